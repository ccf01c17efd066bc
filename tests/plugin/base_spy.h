/// \file
/// Sees what a board hands to the host's base class, which keeps it for itself.
#pragma once

#include <cstdint>

struct tsBaseArguments {
    int boardType = 0;
    std::uint32_t regionBase = 0;
    std::uint32_t regionLength = 0;
    int eventLines = 0;
    int* eventCount = nullptr;
};

/// \return those of the board constructed last
const tsBaseArguments& lastBaseArguments();
