/// \file
/// Register blocks of the FPGA. Driver, virtual head, trace decoder and the register reference all
/// read this table. Pure constants. Addresses of fields are word indexes into their block; the
/// byte offset is four times the index.
#pragma once

#include <array>
#include <cstdint>

#include "common/register_field.h"

/// Physical base addresses, fixed for the FPGA image.
namespace fpgaAddresses {
inline constexpr std::uint32_t kRegion = 0xFF20'0000;
inline constexpr std::uint32_t kRegionLength = 0x1'8000; // bytes
inline constexpr std::uint32_t kBase = 0xFF20'0000;
inline constexpr std::uint32_t kBaseWords = 32;
inline constexpr std::uint32_t kPll = 0xFF20'4000;
inline constexpr std::uint32_t kPllWords = 512;
inline constexpr std::uint32_t kFrameCtrl = 0xFF21'0000;
inline constexpr std::uint32_t kFrameCtrlWords = 64;
inline constexpr std::uint32_t kPwm = 0xFF21'1000;
inline constexpr std::uint32_t kBadPixelTakeOver = 0xFF21'2000;
inline constexpr std::uint32_t kBadPixelTable = 0xFF21'3000;
inline constexpr std::uint32_t kBadPixelControl = 0xFF21'5000;
inline constexpr std::uint32_t kBadPixelBuffer = 0x1200'0000; // passed through as it stands
inline constexpr std::uint32_t kPixelShift = 0xFF21'7000;
} // namespace fpgaAddresses

/// Base block.
namespace baseRegisters {
inline constexpr tsRegisterField kSysId0{0, 0, 0xFFFF'FFFF, "sys_id0", "system id, first part"};
inline constexpr tsRegisterField kSysId1{1, 0, 0xFFFF'FFFF, "sys_id1", "system id, second part"};
inline constexpr std::array kAll{kSysId0, kSysId1};
} // namespace baseRegisters

/// Clock generator of the sensor's master clock.
namespace pllRegisters {
inline constexpr tsRegisterField kUpdate{0, 0, 0xFFFF'FFFF, "pll_update",
                                         "write 1: the clock generator takes the new setting"};
inline constexpr tsRegisterField kCounter{0xC0, 0, 0xFFFF'FFFF, "pll_counter",
                                          "output counter: high count in 15:8, low count in 7:0"};
inline constexpr std::uint32_t kCounter24MHz = 0x1617; // 0x16 + 0x17 = 45
inline constexpr std::uint32_t kCounter36MHz = 0x0F0F; // 0x0F + 0x0F = 30, and 45 : 30 = 36 : 24
inline constexpr std::array kAll{kUpdate, kCounter};
} // namespace pllRegisters

/// Frame-control core: receiver of the sensor's twelve serial lanes.
namespace frameCtrlRegisters {
inline constexpr unsigned kLanes = 12;
inline constexpr std::uint32_t kAllLanes = 0xFFF;

inline constexpr tsRegisterField kEnable{0, 31, 0x1, "enable", "1 = the core runs"};
inline constexpr tsRegisterField kPairsFlip{0, 1, 0x1, "pairs_flip", "1 = line pairs swapped"};
inline constexpr tsRegisterField kHdrUpdate{0, 0, 0x1, "hdr_update", "write 1: HDR update"};
inline constexpr tsRegisterField kAligned{1, 3, 0x1, "aligned", "frame alignment found"};
inline constexpr tsRegisterField kLocked{1, 2, 0x1, "locked", "receiver PLL locked"};
inline constexpr tsRegisterField kRgLocked{1, 1, 0x1, "rg_locked", "receiver PLL rg locked"};
inline constexpr tsRegisterField kGbLocked{1, 0, 0x1, "gb_locked", "receiver PLL gb locked"};
inline constexpr tsRegisterField kLaneInversion{2, 0, 0xFFF, "lane_inversion",
                                                "1 = lane inverted, one bit a lane"};
inline constexpr tsRegisterField kIrqFlags{4, 0, 0xFFFF'FFFF, "irq_flags",
                                           "interrupt flags, cleared by writing"};
inline constexpr tsRegisterField kIrqMask{5, 0, 0xFFFF'FFFF, "irq_mask", "interrupt mask"};
inline constexpr tsRegisterField kRoiResCntH{6, 16, 0x7FFF, "roi_res_cnt_h",
                                             "height of the delivered image [2 lines]"};
inline constexpr tsRegisterField kRoiResCntW{6, 0, 0xFFFF, "roi_res_cnt_w",
                                             "width of the delivered image [6 pixels]"};
inline constexpr tsRegisterField kResolutionH{8, 16, 0xFFFF, "resolution_h",
                                              "height that arrives [lines]"};
inline constexpr tsRegisterField kResolutionW{8, 0, 0xFFFF, "resolution_w",
                                              "width that arrives [pixels]"};
inline constexpr tsRegisterField kRoiY{9, 16, 0xFFFF, "roi_y", "first line delivered [lines]"};
inline constexpr tsRegisterField kRoiX{9, 0, 0xFFFF, "roi_x", "first column delivered [pixels]"};
inline constexpr tsRegisterField kDpaReset{10, 0, 0xFFF, "dpa_reset", "DPA reset, one bit a lane"};
inline constexpr tsRegisterField kDpaFifoReset{10, 12, 0xFFF, "dpa_fifo_reset",
                                               "DPA FIFO reset, one bit a lane"};
inline constexpr tsRegisterField kDpaHold{11, 0, 0xFFF, "dpa_hold", "DPA hold, one bit a lane"};
inline constexpr tsRegisterField kDpaLock{12, 0, 0xFFF, "dpa_lock", "DPA locked, one bit a lane"};
inline constexpr tsRegisterField kIndexSync{13, 0, 0xFFFF'FFFF, "index_sync",
                                            "index synchronisation value"};
inline constexpr tsRegisterField kFrameTimestamp{14, 0, 0xFFFF'FFFF, "frame_timestamp",
                                                 "frame timestamp value"};
inline constexpr tsRegisterField kBackPorchY{15, 16, 0x7FFF, "back_porch_y",
                                             "vertical back porch [2 lines]"};
inline constexpr tsRegisterField kBackPorchX{15, 0, 0xFFFF, "back_porch_x",
                                             "horizontal back porch [6 pixels]"};
inline constexpr tsRegisterField kCoreId{128, 0, 0xFFFF'FFFF, "core_id", "core identifier"};
inline constexpr tsRegisterField kCoreRev{129, 0, 0xFFFF'FFFF, "core_rev", "core revision"};
inline constexpr tsRegisterField kCoreCaps{130, 0, 0xFFFF'FFFF, "core_caps", "core capabilities"};

inline constexpr std::array kAll{
    kEnable,      kPairsFlip,     kHdrUpdate, kAligned,        kLocked,     kRgLocked,
    kGbLocked,    kLaneInversion, kIrqFlags,  kIrqMask,        kRoiResCntH, kRoiResCntW,
    kResolutionH, kResolutionW,   kRoiY,      kRoiX,           kDpaReset,   kDpaFifoReset,
    kDpaHold,     kDpaLock,       kIndexSync, kFrameTimestamp, kBackPorchY, kBackPorchX,
    kCoreId,      kCoreRev,       kCoreCaps,
};
} // namespace frameCtrlRegisters
