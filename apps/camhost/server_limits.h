/// \file
/// What clients of the line server may take.
#pragma once

#include <cstddef>

namespace camhost {

/// What clients may take.
struct tsServerLimits {
    std::size_t clients = 8;
    std::size_t lineBytes = 4096;
    std::size_t unreadBytes = 1048576; ///< of replies that a client does not fetch
};

} // namespace camhost
