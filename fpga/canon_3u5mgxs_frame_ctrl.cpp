#include "fpga/canon_3u5mgxs_frame_ctrl.h"

#include <chrono>
#include <iostream>

#include "common/pause.h"
#include "common/print.h"
#include "fpga/registers.h"

using namespace frameCtrlRegisters;
using namespace std::chrono_literals;

namespace {

// The receiver PLL and the DPA circuits settle within a few milliseconds of a steady clock.
constexpr auto kLockPause = 10ms;
// Alignment needs a whole frame to pass, about 33 ms at the frame-start pulse's 30 Hz.
constexpr auto kAlignPause = 40ms;
constexpr unsigned kTries = 10;

constexpr std::uint32_t kRowsPerUnit = 2;    // of the scaled registers
constexpr std::uint32_t kColumnsPerUnit = 6; // of the scaled registers

/// Two numbers in the fields that one register has for them.
constexpr std::uint32_t packed(const tsRegisterField& first, std::uint32_t one,
                               const tsRegisterField& second, std::uint32_t other) {
    return first.placed(one) | second.placed(other);
}

/// A field in units, multiplied out: what 16 bits do not hold is lost.
constexpr std::uint16_t unscaled(const tsRegisterField& field, std::uint32_t word,
                                 std::uint32_t unit = 1) {
    return static_cast<std::uint16_t>(field.of(word) * unit);
}

void printStatus(const tcCanon3U5MGXSFrameCtrl::tsCoreStatus& status) {
    printFlushed(std::cout, "Status: Aligned ", status.aligned, " Locked ", status.locked,
                 " rgLocked ", status.rgLocked, " gbLocked ", status.gbLocked, "\n");
}

bool pllLocked(const tcCanon3U5MGXSFrameCtrl::tsCoreStatus& status) {
    return status.locked && status.gbLocked && status.rgLocked;
}

} // namespace

tcCanon3U5MGXSFrameCtrl::tcCanon3U5MGXSFrameCtrl(unsigned int base)
    : m_block(base, fpgaAddresses::kFrameCtrlWords) {}

tcCanon3U5MGXSFrameCtrl::~tcCanon3U5MGXSFrameCtrl() = default;

bool tcCanon3U5MGXSFrameCtrl::initialized() const {
    return m_block.ok();
}

// ---- Control and status

bool tcCanon3U5MGXSFrameCtrl::readCoreEnabled() const {
    return m_block.read(kEnable) != 0;
}

bool tcCanon3U5MGXSFrameCtrl::readPairsFlip() const {
    return m_block.read(kPairsFlip) != 0;
}

void tcCanon3U5MGXSFrameCtrl::enablePairsFlip(bool flip) {
    m_block.modify(kPairsFlip, flip ? 1 : 0);
}

void tcCanon3U5MGXSFrameCtrl::triggerHdrUpdate() {
    m_block.modify(kHdrUpdate, 1);
}

tcCanon3U5MGXSFrameCtrl::tsCoreStatus tcCanon3U5MGXSFrameCtrl::readStatus() const {
    tsCoreStatus status{};
    status.aligned = m_block.read(kAligned) != 0;
    status.locked = m_block.read(kLocked) != 0;
    status.rgLocked = m_block.read(kRgLocked) != 0;
    status.gbLocked = m_block.read(kGbLocked) != 0;
    return status;
}

unsigned int tcCanon3U5MGXSFrameCtrl::readLaneInversion() const {
    return m_block.read(kLaneInversion.address);
}

void tcCanon3U5MGXSFrameCtrl::setLaneInversion(unsigned int lanes) {
    m_block.write(kLaneInversion.address, kLaneInversion.placed(lanes));
}

unsigned int tcCanon3U5MGXSFrameCtrl::readIrqFlags() const {
    return m_block.read(kIrqFlags.address);
}

void tcCanon3U5MGXSFrameCtrl::clearIrqFlags(unsigned int flags) {
    m_block.write(kIrqFlags.address, flags);
}

unsigned int tcCanon3U5MGXSFrameCtrl::readIrqMask() const {
    return m_block.read(kIrqMask.address);
}

void tcCanon3U5MGXSFrameCtrl::setIrqMask(unsigned int mask) {
    m_block.write(kIrqMask.address, mask);
}

// ---- Geometry

tcCanon3U5MGXSFrameCtrl::tsResolutionConfig tcCanon3U5MGXSFrameCtrl::readRoiResCntConfig() const {
    const std::uint32_t word = m_block.read(kRoiResCntH.address);
    return {unscaled(kRoiResCntH, word, kRowsPerUnit),
            unscaled(kRoiResCntW, word, kColumnsPerUnit)};
}

void tcCanon3U5MGXSFrameCtrl::setRoiResCntConfig(tsResolutionConfig config) {
    m_block.write(kRoiResCntH.address, packed(kRoiResCntH, config.H / kRowsPerUnit, kRoiResCntW,
                                              config.W / kColumnsPerUnit));
}

tcCanon3U5MGXSFrameCtrl::tsResolutionConfig tcCanon3U5MGXSFrameCtrl::readResolutionConfig() const {
    const std::uint32_t word = m_block.read(kResolutionH.address);
    return {unscaled(kResolutionH, word), unscaled(kResolutionW, word)};
}

void tcCanon3U5MGXSFrameCtrl::setResolutionConfig(tsResolutionConfig config) {
    m_block.write(kResolutionH.address, packed(kResolutionH, config.H, kResolutionW, config.W));
}

tcCanon3U5MGXSFrameCtrl::tsRoiConfig tcCanon3U5MGXSFrameCtrl::readRoiConfig() const {
    const std::uint32_t word = m_block.read(kRoiY.address);
    return {unscaled(kRoiY, word), unscaled(kRoiX, word)};
}

void tcCanon3U5MGXSFrameCtrl::setRoiConfig(tsRoiConfig config) {
    m_block.write(kRoiY.address, packed(kRoiY, config.y, kRoiX, config.x));
}

tcCanon3U5MGXSFrameCtrl::tsBackPorchConfig tcCanon3U5MGXSFrameCtrl::readBackPorchConfig() const {
    const std::uint32_t word = m_block.read(kBackPorchY.address);
    return {unscaled(kBackPorchY, word, kRowsPerUnit),
            unscaled(kBackPorchX, word, kColumnsPerUnit)};
}

void tcCanon3U5MGXSFrameCtrl::setBackPorchConfig(tsBackPorchConfig config) {
    m_block.write(kBackPorchY.address, packed(kBackPorchY, config.y / kRowsPerUnit, kBackPorchX,
                                              config.x / kColumnsPerUnit));
}

// ---- DPA

unsigned int tcCanon3U5MGXSFrameCtrl::readDPAReset() const {
    return m_block.read(kDpaReset);
}

void tcCanon3U5MGXSFrameCtrl::setDPAReset(unsigned int lanes) {
    m_block.write(kDpaReset.address, kDpaReset.placed(lanes));
}

unsigned int tcCanon3U5MGXSFrameCtrl::readDPAFifoReset() const {
    return m_block.read(kDpaFifoReset);
}

void tcCanon3U5MGXSFrameCtrl::setDPAFifoReset(unsigned int lanes) {
    m_block.write(kDpaFifoReset.address, kDpaFifoReset.placed(lanes));
}

unsigned int tcCanon3U5MGXSFrameCtrl::readDPAHold() const {
    return m_block.read(kDpaHold.address);
}

void tcCanon3U5MGXSFrameCtrl::setDPAHold(unsigned int lanes) {
    m_block.write(kDpaHold.address, kDpaHold.placed(lanes));
}

unsigned int tcCanon3U5MGXSFrameCtrl::readDPALock() const {
    return m_block.read(kDpaLock);
}

// ---- Frame marks and identification

void tcCanon3U5MGXSFrameCtrl::setIndexSync(unsigned int value) {
    m_block.write(kIndexSync.address, value);
}

void tcCanon3U5MGXSFrameCtrl::setFrameTimestamp(unsigned int value) {
    m_block.write(kFrameTimestamp.address, value);
}

unsigned int tcCanon3U5MGXSFrameCtrl::readCoreId() const {
    return m_block.read(kCoreId.address);
}

unsigned int tcCanon3U5MGXSFrameCtrl::readCoreRev() const {
    return m_block.read(kCoreRev.address);
}

unsigned int tcCanon3U5MGXSFrameCtrl::readCoreCaps() const {
    return m_block.read(kCoreCaps.address);
}

// ---- Link bring-up

int tcCanon3U5MGXSFrameCtrl::enableCore(bool enable) {
    m_block.modify(kEnable, enable ? 1 : 0);
    if (!enable) {
        return 0;
    }
    if (!lockPll()) {
        printFlushed(std::cerr, "PLL failed to lock\n");
        return -1;
    }
    resetDpa();
    if (!lockDpa()) {
        printFlushed(std::cerr, "DPA failed to lock\n");
        return -2;
    }
    setDPAFifoReset(0);
    setDPAHold(kAllLanes); // the phases found are kept from here on
    if (!alignFrame()) {
        printFlushed(std::cerr, "Frame failed to align\n");
        return -1;
    }
    return 0;
}

bool tcCanon3U5MGXSFrameCtrl::lockPll() {
    tsCoreStatus status = readStatus();
    for (unsigned tries = 0; !pllLocked(status) && tries != kTries; ++tries) {
        printStatus(status);
        printFlushed(std::cout, " tries: ", tries, "\n");
        pauseFor(kLockPause);
        status = readStatus();
    }
    printStatus(status);
    return pllLocked(status);
}

void tcCanon3U5MGXSFrameCtrl::resetDpa() {
    setDPAHold(0);
    setDPAReset(kAllLanes);
    setDPAFifoReset(kAllLanes); // the same write ends the DPA reset
    setDPAReset(0);             // the same write ends the FIFO reset
}

bool tcCanon3U5MGXSFrameCtrl::lockDpa() {
    unsigned int locked = readDPALock();
    for (unsigned tries = 0; locked != kAllLanes && tries < kTries; ++tries) {
        printFlushed(std::cout, "DPA Lock: ", tsHex{locked}, " tries: ", tries, "\n");
        pauseFor(kLockPause);
        locked = readDPALock();
    }
    printFlushed(std::cout, "DPA Lock: ", tsHex{locked}, "\n");
    leaveInDecimal(std::cout);
    return locked == kAllLanes;
}

bool tcCanon3U5MGXSFrameCtrl::alignFrame() {
    tsCoreStatus status = readStatus();
    for (unsigned tries = 0; !status.aligned && tries != kTries; ++tries) {
        printStatus(status);
        printFlushed(std::cout, " tries: ", tries, "\n");
        pauseFor(kAlignPause);
        status = readStatus();
    }
    printStatus(status);
    return status.aligned;
}

// ---- Dump

void tcCanon3U5MGXSFrameCtrl::dumpRegisters() const {
    const auto line = [](const auto&... pieces) { printFlushed(std::cout, pieces..., "\n"); };
    line("FPGA register dump");
    line("Core enabled:\t", readCoreEnabled());
    line("Core ID:\t0x", tsHex{readCoreId()});
    line("Core Rev:\t0x", tsHex{readCoreRev()});
    line("Core Caps:\t0x", tsHex{readCoreCaps()});
    printStatus(readStatus());
    line("Lane Inversion:\t0x", tsHex{readLaneInversion()});
    line("Irq Flags:\t0x", tsHex{readIrqFlags()});
    line("Irq Mask:\t0x", tsHex{readIrqMask()});
    const tsResolutionConfig count = readRoiResCntConfig();
    line("Roi Res Cnt Cfg:\tH: ", count.H, " W: ", count.W);
    const tsResolutionConfig resolution = readResolutionConfig();
    line("Resol Cfg:\tH: ", resolution.H, " W: ", resolution.W);
    const tsRoiConfig roi = readRoiConfig();
    line("ROI Cfg:\tx: ", roi.x, " y: ", roi.y);
    const tsBackPorchConfig porch = readBackPorchConfig();
    line("BP Cfg:\tx: ", porch.x, " y: ", porch.y);
    line("DPA Reset:\t0x", tsHex{readDPAReset()});
    line("DPA Fifo Reset:\t0x", tsHex{readDPAFifoReset()});
    line("DPA Hold:\t0x", tsHex{readDPAHold()});
    line("DPA Lock:\t0x", tsHex{readDPALock()});
    leaveInDecimal(std::cout);
}
