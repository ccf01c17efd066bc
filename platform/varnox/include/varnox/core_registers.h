/// \file
/// Registers of the FPGA cores that the host library drives. Word indexes into each core's block;
/// the byte offset is four times the index. Pure constants: the virtual head reads them too.
#pragma once

#include <cstdint>

/// What every core of the family carries, at the same place.
namespace coreIdentity {
inline constexpr std::uint32_t kIdWord = 128;       ///< read: which core it is
inline constexpr std::uint32_t kRevisionWord = 129; ///< read: revision of the core
} // namespace coreIdentity

/// Pulse generator: the sensor's frame-start pulse.
namespace pwmRegisters {
inline constexpr std::uint32_t kId = 0x50574D31;             ///< "PWM1"
inline constexpr std::uint32_t kControlWord = 0;             ///< read/write
inline constexpr std::uint32_t kControlEnable = 0x8000'0000; ///< 1 = the pulses run
inline constexpr std::uint32_t kControlInvert = 0x0000'0001; ///< 1 = the pulse is low
inline constexpr std::uint32_t kPeriodWord = 1;   ///< read/write: period [clocks], 2 to 2^32 - 1
inline constexpr std::uint32_t kDutyWord = 2;     ///< read/write: pulse [clocks], 16 bits
inline constexpr std::uint32_t kDutyMax = 0xFFFF; ///< [clocks]
inline constexpr std::uint32_t kPeriodMin = 2;    ///< [clocks]
} // namespace pwmRegisters

/// Moves every pixel's bits.
namespace pixelShiftRegisters {
inline constexpr std::uint32_t kId = 0x50534831;             ///< "PSH1"
inline constexpr std::uint32_t kControlWord = 0;             ///< read/write
inline constexpr std::uint32_t kControlReset = 0x8000'0000;  ///< 1 = held in reset
inline constexpr std::uint32_t kControlLeft = 0x0000'0010;   ///< direction: 1 = to the left
inline constexpr std::uint32_t kControlAmount = 0x0000'000F; ///< by how many bits
} // namespace pixelShiftRegisters

/// Replaces defective pixels by their neighbours' mean.
namespace badPixelRegisters {
inline constexpr std::uint32_t kId = 0x42505231; ///< "BPR1"
// First block: control.
inline constexpr std::uint32_t kControlWord = 0;               ///< read/write
inline constexpr std::uint32_t kControlReset = 0x8000'0000;    ///< 1 = held in reset
inline constexpr std::uint32_t kControlRun = 0x0000'0001;      ///< 1 = the core passes pixels
inline constexpr std::uint32_t kControlApplyMap = 0x0000'0002; ///< 1 = listed pixels are replaced
inline constexpr std::uint32_t kControlColor = 0x0000'0004;  ///< 1 = neighbours of the same colour
inline constexpr std::uint32_t kStatusWord = 1;              ///< read
inline constexpr std::uint32_t kStatusRunning = 0x0000'0001; ///< run is set, reset is not
inline constexpr std::uint32_t kRoiOriginWord = 2;           ///< read/write: y in 31:16, x in 15:0
inline constexpr std::uint32_t kRoiSizeWord = 3; ///< read/write: height in 31:16, width in 15:0
inline constexpr std::uint32_t kEntriesWord = 4; ///< read/write: pixels in the table
inline constexpr std::uint32_t kBufferWord = 5; ///< read/write: physical address of its line buffer
// Second block: the table, one word a pixel, y in 31:16 and x in 15:0, in raster order.
inline constexpr std::uint32_t kTableEntries = 1024; ///< pixels that it has room for
// Third block: taking the table over.
inline constexpr std::uint32_t kCommitWord = 0; ///< write 1: the table is taken with the next frame
inline constexpr std::uint32_t kInForceWord = 1; ///< read: pixels of the table in force
} // namespace badPixelRegisters
