/// \file
/// Pointers of a program as spidev takes them.
#pragma once

#include <cstdint>
#include <cstring>

namespace sim {

/// \param address the pointer as a 64-bit number, on every target
inline std::uint8_t* userPointer(std::uint64_t address) {
    const auto number = static_cast<std::uintptr_t>(address);
    std::uint8_t* pointer = nullptr;
    std::memcpy(&pointer, &number, sizeof pointer);
    return pointer;
}

} // namespace sim
