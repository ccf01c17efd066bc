/// \file
/// Texts in fields of a fixed length.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>

namespace camhost {

/// \return the field up to its first zero; all of it where it has none
template<std::size_t N>
std::string fieldText(const char (&field)[N]) {
    return std::string(field, ::strnlen(field, N));
}

} // namespace camhost
