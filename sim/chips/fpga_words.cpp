#include "sim/chips/fpga_words.h"

#include <varnox/core_registers.h>

#include "sensor/registers.h"

namespace sim {

namespace {

using namespace fpgaAddresses;
namespace frame = frameCtrlRegisters;

constexpr std::uint32_t kFull = 0xFFFF'FFFF;
constexpr std::uint32_t kFrameControlId = 0x4643'5231; // "FCR1"
constexpr std::uint32_t kFrameControlRevision = 0x0001'0002;
constexpr std::uint32_t kFrameControlCaps = 0x0000'000C; // twelve lanes
constexpr std::uint32_t kCoreRevision = 0x0001'0000;

} // namespace

tcFpgaWords::tcFpgaWords(const tsFpgaFacts& facts) {
    define(kBase, baseRegisters::kSysId0.address, teAccess::readOnly, kFull, facts.systemId[0]);
    define(kBase, baseRegisters::kSysId1.address, teAccess::readOnly, kFull, facts.systemId[1]);
    define(kPll, pllRegisters::kUpdate.address, teAccess::writeOnly, kFull, 0);
    define(kPll, pllRegisters::kCounter.address, teAccess::readWrite, kFull,
           pllRegisters::kCounter36MHz);
    defineFrameControl();
    defineHostCores();
}

void tcFpgaWords::define(std::uint32_t block, std::uint32_t word, teAccess access,
                         std::uint32_t mask, std::uint32_t value) {
    const std::size_t index = (addressOf(block, word) - kRegion) / 4;
    m_rules[index] = {access, mask};
    m_values[index] = value;
}

void tcFpgaWords::defineCore(std::uint32_t block, std::uint32_t id) {
    define(block, coreIdentity::kIdWord, teAccess::readOnly, kFull, id);
    define(block, coreIdentity::kRevisionWord, teAccess::readOnly, kFull, kCoreRevision);
}

void tcFpgaWords::defineFrameControl() {
    using enum teAccess;
    const std::uint32_t resolution = static_cast<std::uint32_t>(sensorArray::kRows) << 16 |
                                     static_cast<std::uint32_t>(sensorArray::kColumns);
    define(kFrameCtrl, frame::kEnable.address, readWrite,
           bitsOf(frame::kEnable) | bitsOf(frame::kPairsFlip) | bitsOf(frame::kHdrUpdate), 0);
    define(kFrameCtrl, frame::kAligned.address, readOnly, 0xF, 0);
    define(kFrameCtrl, frame::kLaneInversion.address, readWrite, bitsOf(frame::kLaneInversion), 0);
    define(kFrameCtrl, frame::kIrqFlags.address, clearOnWrite, kFull, 0);
    define(kFrameCtrl, frame::kIrqMask.address, readWrite, kFull, 0);
    define(kFrameCtrl, frame::kRoiResCntH.address, readWrite,
           bitsOf(frame::kRoiResCntH) | bitsOf(frame::kRoiResCntW), 0x0404'01B0);
    define(kFrameCtrl, frame::kResolutionH.address, readWrite, kFull, resolution);
    define(kFrameCtrl, frame::kRoiY.address, readWrite, kFull, 0);
    define(kFrameCtrl, frame::kDpaReset.address, readWrite,
           bitsOf(frame::kDpaReset) | bitsOf(frame::kDpaFifoReset), 0);
    define(kFrameCtrl, frame::kDpaHold.address, readWrite, bitsOf(frame::kDpaHold), 0);
    define(kFrameCtrl, frame::kDpaLock.address, readOnly, bitsOf(frame::kDpaLock), 0);
    define(kFrameCtrl, frame::kIndexSync.address, writeOnly, kFull, 0);
    define(kFrameCtrl, frame::kFrameTimestamp.address, writeOnly, kFull, 0);
    define(kFrameCtrl, frame::kBackPorchY.address, readWrite,
           bitsOf(frame::kBackPorchY) | bitsOf(frame::kBackPorchX), 0);
    define(kFrameCtrl, frame::kCoreId.address, readOnly, kFull, kFrameControlId);
    define(kFrameCtrl, frame::kCoreRev.address, readOnly, kFull, kFrameControlRevision);
    define(kFrameCtrl, frame::kCoreCaps.address, readOnly, kFull, kFrameControlCaps);
}

void tcFpgaWords::defineHostCores() {
    using enum teAccess;
    defineCore(kPwm, pwmRegisters::kId);
    define(kPwm, pwmRegisters::kControlWord, readWrite,
           pwmRegisters::kControlEnable | pwmRegisters::kControlInvert, 0);
    define(kPwm, pwmRegisters::kPeriodWord, readWrite, kFull, 0);
    define(kPwm, pwmRegisters::kDutyWord, readWrite, pwmRegisters::kDutyMax, 0);

    defineCore(kPixelShift, pixelShiftRegisters::kId);
    define(kPixelShift, pixelShiftRegisters::kControlWord, readWrite,
           pixelShiftRegisters::kControlReset | pixelShiftRegisters::kControlLeft |
               pixelShiftRegisters::kControlAmount,
           pixelShiftRegisters::kControlReset);

    using namespace badPixelRegisters;
    defineCore(kBadPixelControl, badPixelRegisters::kId);
    define(kBadPixelControl, kControlWord, readWrite,
           kControlReset | kControlRun | kControlApplyMap | kControlColor, kControlReset);
    define(kBadPixelControl, kStatusWord, readOnly, kStatusRunning, 0);
    define(kBadPixelControl, kRoiOriginWord, readWrite, kFull, 0);
    define(kBadPixelControl, kRoiSizeWord, readWrite, kFull, 0);
    define(kBadPixelControl, kEntriesWord, readWrite, kFull, 0);
    define(kBadPixelControl, kBufferWord, readWrite, kFull, 0);
    for (std::uint32_t entry = 0; entry < kTableEntries; ++entry) {
        define(kBadPixelTable, entry, readWrite, kFull, 0);
    }
    define(kBadPixelTakeOver, kCommitWord, writeOnly, 1, 0);
    define(kBadPixelTakeOver, kInForceWord, readOnly, kFull, 0);
}

std::optional<std::size_t> tcFpgaWords::indexOf(std::uint32_t address) {
    const std::uint32_t offset = address - kRegion;
    if (offset >= kRegionLength || address % 4 != 0) {
        return std::nullopt;
    }
    return offset / 4;
}

tcFpgaWords::tsWord tcFpgaWords::rulesOf(std::uint32_t address) const {
    const std::optional<std::size_t> index = indexOf(address);
    return index ? m_rules[*index] : tsWord{};
}

std::uint32_t& tcFpgaWords::at(std::uint32_t address) {
    return m_values[(address - kRegion) / 4];
}

std::uint32_t tcFpgaWords::at(std::uint32_t address) const {
    return m_values[(address - kRegion) / 4];
}

} // namespace sim
