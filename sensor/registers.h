/// \file
/// Registers of the 3U5MGXS image sensor. Driver, virtual head, trace decoder and the register
/// reference all read this table. Pure constants.
///
/// One register write is one 32-bit word on the wire, address above value, sent from bit 31 down:
///
///      31        22 21                                     0
///     +------------+----------------------------------------+
///     | address 10 |               value 22                 |
///     +------------+----------------------------------------+
///
/// There is no read frame.
#pragma once

#include <array>
#include <cstdint>

#include "common/register_field.h"

namespace sensorWire {
inline constexpr unsigned kAddressShift = 22;             // bits
inline constexpr std::uint32_t kAddressMask = 0x3FF;      // 10 bits
inline constexpr std::uint32_t kValueMask = 0x3F'FFFF;    // 22 bits
inline constexpr std::uint32_t kClockHz = 10'000'000;     // Hz
inline constexpr std::uint32_t kSpiMode = 0;              // clock idles low, sampled on rising edge
inline constexpr std::uint16_t kLsbFirstAndBits = 0x2000; // MSB first, 32 bits per word
} // namespace sensorWire

namespace sensorArray {
inline constexpr std::int32_t kColumns = 2592;      // pixels
inline constexpr std::int32_t kRows = 2056;         // rows
inline constexpr std::uint8_t kAreas = 8;           // readout areas
inline constexpr std::uint32_t kRowsPerUnit = 2;    // rows in one count of a row field
inline constexpr std::uint32_t kColumnsPerUnit = 6; // columns in one count of a column field
} // namespace sensorArray

namespace sensorRegisters {

// Frame control
inline constexpr tsRegisterField kFrameState{0x10, 0, 0x7, "frame_state",
                                             "what the sensor does: 0 stop, 3 stream, 4 lanes on"};
inline constexpr tsRegisterField kFrameControlMode{
    0x10, 8, 0x3, "frame_control_mode",
    "who sets frame and exposure: 0 registers, 1 and 3 trigger"};

// Timing, all in lines of one horizontal period
inline constexpr tsRegisterField kHdMax{0x12, 0, 0x3FFF, "hd_max", "frame length [lines]"};
inline constexpr tsRegisterField kTiming14{0x14, 0, 0x3FFF, "timing_14", "timing position [lines]"};
inline constexpr tsRegisterField kTiming15{0x15, 0, 0x3FFF, "timing_15", "timing position [lines]"};
inline constexpr tsRegisterField kGresPos{0x16, 0, 0x3FFF, "gres_pos", "reset position [lines]"};
inline constexpr tsRegisterField kAccFpos{0x19, 0, 0x3FFF, "acc_fpos",
                                          "start of accumulation [lines]"};
inline constexpr tsRegisterField kTiming1A{0x1A, 0, 0x3FFF, "timing_1a", "timing position [lines]"};
inline constexpr tsRegisterField kGsPos1{0x1B, 0, 0x3FFF, "gs_pos1",
                                         "first global-shutter position [lines]"};
inline constexpr tsRegisterField kGsPos2{0x1C, 0, 0x3FFF, "gs_pos2",
                                         "second global-shutter position [lines]"};
inline constexpr std::uint32_t kNoPosition = 0x3FFF; // of a position: no frame has this line
inline constexpr tsRegisterField kTiming3B{0x3B, 0, 0x3FFF, "timing_3b", "timing position [lines]"};

// ADC. Only settings files write it; the driver leaves it alone.
inline constexpr tsRegisterField kAdcDepth{0x20, 0, 0x7, "adc_depth", "3 = 10 bits, 5 = 12 bits"};
inline constexpr std::uint32_t kAdcDepth10Bits = 3;
inline constexpr tsRegisterField kHdPrd{0xB0, 0, 0xFFF, "hd_prd",
                                        "horizontal period less one [master clocks]"};

// Gain
inline constexpr tsRegisterField kAGainCoarse{0x40, 0, 0x3, "again_coarse",
                                              "analogue gain, first stage"};
inline constexpr tsRegisterField kAGainCoarse2{0x41, 0, 0x7, "again_coarse2",
                                               "analogue gain, second stage"};
inline constexpr tsRegisterField kAGainFine{0x41, 4, 0x3F, "again_fine", "analogue gain, fine"};
inline constexpr tsRegisterField kDGainCoarse{0x42, 0, 0x3, "dgain_coarse",
                                              "digital gain, power of two"};
inline constexpr tsRegisterField kDGainFine{0x42, 4, 0xF, "dgain_fine", "digital gain, fine"};

// Readout
inline constexpr tsRegisterField kVScanInvert2{0x6C, 3, 0x1, "vscan_invert2",
                                               "vertical scan direction, second place"};
inline constexpr tsRegisterField kHScanInvert2{0x6D, 0, 0x1, "hscan_invert2",
                                               "horizontal scan direction, second place"};
inline constexpr tsRegisterField kHScanInvert{0x90, 16, 0x1, "hscan_invert",
                                              "horizontal scan direction: 1 = from the right"};
inline constexpr tsRegisterField kVScanInvert{0x90, 17, 0x1, "vscan_invert",
                                              "vertical scan direction: 1 = from the bottom"};
inline constexpr tsRegisterField kBin{0x90, 18, 0x3, "bin", "1 = two rows make one"};

// Readout areas: a row and a column register each, area n at + 2n
inline constexpr std::uint16_t kAreaRows = 0x94;
inline constexpr std::uint16_t kAreaColumns = 0x95;
inline constexpr std::uint16_t kAreaStride = 2;
inline constexpr tsRegisterField kAreaRowStart{kAreaRows, 0, 0x7FF, "row_start",
                                               "first row of the area [row pairs]"};
inline constexpr tsRegisterField kAreaRowEnd{kAreaRows, 11, 0x7FF, "row_end",
                                             "last row of the area [row pairs]"};
inline constexpr tsRegisterField kAreaColumnStart{kAreaColumns, 0, 0x1FF, "col_start",
                                                  "first column of the area [units of 6]"};
inline constexpr tsRegisterField kAreaColumnEnd{kAreaColumns, 12, 0x1FF, "col_end",
                                                "last column of the area [units of 6]"};
inline constexpr std::uint32_t kAreaRowsFull = 0x20'1800;    // rows 0 to 2055
inline constexpr std::uint32_t kAreaColumnsFull = 0x1A'F000; // columns 0 to 2591
inline constexpr std::uint32_t kAreaRowsOff = 0x3F'FFFF;     // every field at its maximum
inline constexpr std::uint32_t kAreaColumnsOff = 0x1F'F1FF;  // every field at its maximum

// Clock range
inline constexpr tsRegisterField kClockRange{0xD8, 0, 0x3F'FFFF, "clock_range",
                                             "PLL set-up for the master clock's range"};
inline constexpr std::uint32_t kClockRangeHigh = 0x2'D90F; // master clock of 36 MHz and more
inline constexpr std::uint32_t kClockRangeLow = 0x4'B90F;  // below

// Test
inline constexpr tsRegisterField kTestSignal{0x201, 0, 0x3F'FFFF, "test_signal",
                                             "0x203 = test signal on, 0 = off"};
inline constexpr std::uint32_t kTestSignalOn = 0x203;
inline constexpr tsRegisterField kTestPattern{0x300, 16, 0x7, "test_pattern",
                                              "0 = off; 3 and 4 are patterns"};

/// Every field, by address and shift; the areas stand for area 0.
inline constexpr std::array kAll{
    kFrameState,      kFrameControlMode, kHdMax,       kTiming14,    kTiming15,     kGresPos,
    kAccFpos,         kTiming1A,         kGsPos1,      kGsPos2,      kAdcDepth,     kTiming3B,
    kAGainCoarse,     kAGainCoarse2,     kAGainFine,   kDGainCoarse, kDGainFine,    kVScanInvert2,
    kHScanInvert2,    kHScanInvert,      kVScanInvert, kBin,         kAreaRowStart, kAreaRowEnd,
    kAreaColumnStart, kAreaColumnEnd,    kHdPrd,       kClockRange,  kTestSignal,   kTestPattern,
};

} // namespace sensorRegisters
