/// \file
/// Every register block of the FPGA with its fields: what the register reference lists is what a
/// report of a run names. The sensor's table is `sensorRegisters::kAll`.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <span>

#include <varnox/core_registers.h>

#include "common/register_field.h"
#include "fpga/registers.h"

namespace sim {

/// A block of registers at one physical address.
struct tsRegisterBlock {
    const char* title;
    std::uint32_t base;                      ///< physical address
    std::span<const tsRegisterField> fields; ///< addresses are word indexes
    const char* element = nullptr;           ///< what a word is, of a block of equal words
    std::uint32_t elements = 0;              ///< how many words such a block has
};

namespace hostCores {

/// A field as the host library has it: a word, and the bits in their place.
constexpr tsRegisterField fieldOf(std::uint32_t word, std::uint32_t bits, const char* name,
                                  const char* meaning) {
    const auto shift = static_cast<std::uint8_t>(std::countr_zero(bits));
    return {static_cast<std::uint16_t>(word), shift, bits >> shift, name, meaning};
}

inline constexpr std::uint32_t kFull = 0xFFFF'FFFF;
inline constexpr std::uint32_t kHigh = 0xFFFF'0000;
inline constexpr std::uint32_t kLow = 0x0000'FFFF;

inline constexpr tsRegisterField kRevision =
    fieldOf(coreIdentity::kRevisionWord, kFull, "revision", "revision of the core");

inline constexpr std::array kPwm{
    fieldOf(pwmRegisters::kControlWord, pwmRegisters::kControlEnable, "enable",
            "1 = the pulses run"),
    fieldOf(pwmRegisters::kControlWord, pwmRegisters::kControlInvert, "invert",
            "1 = the pulse is low"),
    fieldOf(pwmRegisters::kPeriodWord, kFull, "period", "period, 2 and more [clocks]"),
    fieldOf(pwmRegisters::kDutyWord, pwmRegisters::kDutyMax, "duty",
            "length of the pulse [clocks]"),
    fieldOf(coreIdentity::kIdWord, kFull, "id", "reads 0x50574D31"),
    kRevision,
};

inline constexpr std::array kPixelShift{
    fieldOf(pixelShiftRegisters::kControlWord, pixelShiftRegisters::kControlReset, "reset",
            "1 = held in reset"),
    fieldOf(pixelShiftRegisters::kControlWord, pixelShiftRegisters::kControlLeft, "left",
            "1 = to the left"),
    fieldOf(pixelShiftRegisters::kControlWord, pixelShiftRegisters::kControlAmount, "amount",
            "by how many bits"),
    fieldOf(coreIdentity::kIdWord, kFull, "id", "reads 0x50534831"),
    kRevision,
};

inline constexpr std::array kBadPixelControl{
    fieldOf(badPixelRegisters::kControlWord, badPixelRegisters::kControlReset, "reset",
            "1 = held in reset"),
    fieldOf(badPixelRegisters::kControlWord, badPixelRegisters::kControlColor, "color",
            "1 = neighbours of the same colour"),
    fieldOf(badPixelRegisters::kControlWord, badPixelRegisters::kControlApplyMap, "apply_map",
            "1 = listed pixels are replaced"),
    fieldOf(badPixelRegisters::kControlWord, badPixelRegisters::kControlRun, "run",
            "1 = the core passes pixels"),
    fieldOf(badPixelRegisters::kStatusWord, badPixelRegisters::kStatusRunning, "running",
            "read: run is set, reset is not"),
    fieldOf(badPixelRegisters::kRoiOriginWord, kHigh, "roi_y", "first line that arrives [lines]"),
    fieldOf(badPixelRegisters::kRoiOriginWord, kLow, "roi_x", "first column that arrives [pixels]"),
    fieldOf(badPixelRegisters::kRoiSizeWord, kHigh, "roi_height", "height that arrives [lines]"),
    fieldOf(badPixelRegisters::kRoiSizeWord, kLow, "roi_width", "width that arrives [pixels]"),
    fieldOf(badPixelRegisters::kEntriesWord, kFull, "entries", "pixels in the table"),
    fieldOf(badPixelRegisters::kBufferWord, kFull, "buffer", "physical address of the line buffer"),
    fieldOf(coreIdentity::kIdWord, kFull, "id", "reads 0x42505231"),
    kRevision,
};

inline constexpr std::array kBadPixelTable{
    fieldOf(0, kHigh, "y", "line of the first pixel; one word a pixel, 1,024 words [lines]"),
    fieldOf(0, kLow, "x", "column of the first pixel [pixels]"),
};

inline constexpr std::array kBadPixelTakeOver{
    fieldOf(badPixelRegisters::kCommitWord, 1, "commit",
            "write 1: the table is taken with the next frame"),
    fieldOf(badPixelRegisters::kInForceWord, kFull, "in_force",
            "read: pixels of the table in force"),
};

} // namespace hostCores

/// In the order of the register reference.
inline constexpr std::array kFpgaBlocks{
    tsRegisterBlock{"System id", fpgaAddresses::kBase, baseRegisters::kAll},
    tsRegisterBlock{"Clock generator", fpgaAddresses::kPll, pllRegisters::kAll},
    tsRegisterBlock{"Frame control", fpgaAddresses::kFrameCtrl, frameCtrlRegisters::kAll},
    tsRegisterBlock{"Frame-start pulses", fpgaAddresses::kPwm, hostCores::kPwm},
    tsRegisterBlock{"Pixel shift", fpgaAddresses::kPixelShift, hostCores::kPixelShift},
    tsRegisterBlock{"Bad-pixel replacement, control", fpgaAddresses::kBadPixelControl,
                    hostCores::kBadPixelControl},
    tsRegisterBlock{"Bad-pixel replacement, table", fpgaAddresses::kBadPixelTable,
                    hostCores::kBadPixelTable, "pixel", badPixelRegisters::kTableEntries},
    tsRegisterBlock{"Bad-pixel replacement, take-over", fpgaAddresses::kBadPixelTakeOver,
                    hostCores::kBadPixelTakeOver},
};

} // namespace sim
