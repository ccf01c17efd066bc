/// \file
/// What of a head can change while it runs.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <optional>
#include <string_view>

#include "fpga/registers.h"
#include "sim/base/calls.h"
#include "sim/base/states.h"
#include "sim/chips/link.h"
#include "sim/chips/supplies.h"

namespace sim {

inline constexpr std::size_t kPageBytes = 4096; // of a register block
inline constexpr std::size_t kRegionPages = fpgaAddresses::kRegionLength / kPageBytes;
inline constexpr std::size_t kRegionWords = fpgaAddresses::kRegionLength / 4;
inline constexpr std::size_t kCores = 4; // members of teCore
inline constexpr std::array<std::string_view, kCores> kCoreNames{"frame-control", "pwm",
                                                                 "pixel-shift", "bad-pixel"};

/// \return the page that starts at this physical address; empty where none does
inline std::optional<std::size_t> pageOf(std::uint32_t address) {
    const std::uint32_t offset = address - fpgaAddresses::kRegion;
    return offset < fpgaAddresses::kRegionLength && offset % kPageBytes == 0
               ? std::optional<std::size_t>(offset / kPageBytes)
               : std::nullopt;
}

/// How the head behaves at a time: what the scenario's keys say, and on top of it the faults that
/// last. Kept in place, without the heap: a fault may begin in a signal handler. An error is an
/// errno, or 0.
struct tsConditions {
    tcRails rails{};
    bool i2cPresent = true;
    int adcError = 0;       // or kShort
    bool adcFloats = false; // answers, but drives no bit
    bool gpioPresent = true;
    std::uint32_t missingLines = 0; // one bit a line of the chip
    std::uint32_t busyLines = 0;
    bool spiPresent = true;
    bool spiSettingsRefused = false;
    int spiError = 0; // or kShort
    int memOpenError = 0;
    std::array<int, kRegionPages> mapErrors{}; // of mappings that start with the page
    std::array<bool, kCores> silent{};         // by teCore
    std::bitset<kRegionWords> stuck;           // words that keep their value
    tsLinkFacts link;
};

} // namespace sim
