/// \file
/// Error numbers and their names.
#pragma once

#include <cstring>
#include <string>
#include <string_view>

namespace sim {

/// \param name for example "EIO" \return errno; 0 for a name that is none
inline int errorNamed(std::string_view name) {
    constexpr int last = 133;
    for (int error = 1; error <= last; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) {
            return error;
        }
    }
    return 0;
}

/// \return for example "EIO"; the number where it has no name
inline std::string nameOfError(int error) {
    const char* known = strerrorname_np(error);
    return known != nullptr ? known : std::to_string(error);
}

} // namespace sim
