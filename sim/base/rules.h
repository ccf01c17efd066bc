/// \file
/// The rules of the head: what software may do with this hardware, in one table, and the limits
/// that parts, texts and reports share.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/base/export.h"

namespace sim {

/// Rules of the head, in the order of the table in rules.cpp.
enum class teRule : std::uint8_t {
    supplyOrder,
    supplyDelay,
    resetEarly,
    supplyOffRunning,
    adcEarly,
    adcReference,
    sensorAsleep,
    spiMode,
    spiWord,
    spiClock,
    registerLimits,
    areaLimits,
    exposurePositions,
    frameLength,
    scanDirection,
    pairsFlip,
    resolution,
    clockRange,
    clockUpdate,
    clockWhileSending,
    dpaSequence,
    dpaHold,
    pulsePeriod,
    badPixelTable,
    fpgaUnmodelled,
    fpgaWidth,
    fpgaReadOnly,
    fpgaWriteOnly,
    fpgaReserved,
    memoryRange,
    memoryCached,
    deviceCall,
    logFull,
    count,
};

/// A rule of the checker.
struct tsRule {
    const char* name;   ///< as violations name it
    const char* what;   ///< what is not allowed
    const char* why;    ///< what the hardware would do
    const char* remedy; ///< how software keeps the rule
};

/// \return the rule's line of the table
const tsRule& describe(teRule rule);

/// \return every rule
[[nodiscard]] SIM_API std::vector<tsRule> rules();

/// Limits of the rules, from the data sheets of sensor and board.
namespace limits {

inline constexpr std::uint64_t kMicrosecond = 1'000;     ///< ns
inline constexpr std::uint64_t kMillisecond = 1'000'000; ///< ns

/// From switching the 1.2 V supply on until it has settled, and others may go on [ns].
inline constexpr std::uint64_t kCoreSettlesNs = 1 * kMillisecond;
/// From switching a 3.3 V supply on until it has settled, and reset may be released [ns].
inline constexpr std::uint64_t kThreeVoltsSettleNs = 300 * kMillisecond;
/// From the release of reset until the sensor listens and its start-up current is over [ns].
inline constexpr std::uint64_t kWakesNs = 10 * kMillisecond;
/// From switching the ADC's reference on until its capacitor is charged [ns].
inline constexpr std::uint64_t kReferenceSettlesNs = 5 * kMillisecond;
/// The fastest SPI clock that the sensor follows [Hz].
inline constexpr std::uint32_t kFastestSpiHz = 10'000'000;
/// The last pair of rows of the array, from 0.
inline constexpr std::uint32_t kLastRowPair = 1027;
/// The last unit of columns of the array, from 0.
inline constexpr std::uint32_t kLastColumnUnit = 431;
/// The shortest period of the frame-start pulses [clocks].
inline constexpr std::uint32_t kShortestPulsePeriod = 2;
/// Entries that the table of defective pixels has room for.
inline constexpr std::uint32_t kMostBadPixels = 1024;

} // namespace limits

} // namespace sim
