/// \file
/// A user of "/dev/mem", or of another file, in two builds: where `off_t` has 32 bits by default,
/// addresses above 2 GiB are negative file offsets in one and positive ones in the other. Elsewhere
/// both are the same.
#pragma once

#include <cstddef>
#include <cstdint>

struct tsMapped {
    std::size_t offsetBytes = 0; ///< size of `off_t`
    int error = 0;               ///< errno of the call that failed, or 0
    std::uint32_t value = 0;     ///< what the register holds
};

/// Built without _FILE_OFFSET_BITS.
namespace as_the_target_defaults {
/// Maps the page at `address` of an open file, reads a word of it and unmaps it.
tsMapped readWord(int file, std::uint32_t address, std::size_t word);
/// The same with "/dev/mem".
tsMapped readRegister(std::uint32_t address, std::size_t word);
} // namespace as_the_target_defaults

/// Built with _FILE_OFFSET_BITS=64.
namespace with_64_bits {
tsMapped readWord(int file, std::uint32_t address, std::size_t word);
tsMapped readRegister(std::uint32_t address, std::size_t word);
} // namespace with_64_bits
