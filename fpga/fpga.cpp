#include "fpga/fpga.h"

#include <iostream>

#include <varnox/codes.h>

#include "common/full_frame.h"
#include "common/print.h"
#include "fpga/registers.h"

namespace {

constexpr float kClock24MHz = 24.0F; // MHz
constexpr float kClock36MHz = 36.0F; // MHz, what the FPGA image starts with

// Bits of the mask that initialize returns.
constexpr unsigned int kBaseBlockFailed = 0x01;
constexpr unsigned int kFrameCtrlFailed = 0x02;
constexpr unsigned int kPwmFailed = 0x04;
constexpr unsigned int kPixelShiftFailed = 0x08;
constexpr unsigned int kBadPixelFailed = 0x10;

} // namespace

tc3U5MGXSFpga::tc3U5MGXSFpga(const std::string& /*config*/)
    : m_clockMhz(kClock36MHz),
      m_speed(eMClk36MHz),
      m_base(fpgaAddresses::kBase, fpgaAddresses::kBaseWords),
      m_pll(std::make_unique<tsMappedBlock>(fpgaAddresses::kPll, fpgaAddresses::kPllWords)),
      frameCtrl(fpgaAddresses::kFrameCtrl),
      pwm(fpgaAddresses::kPwm, static_cast<double>(m_clockMhz), std::string()),
      pixelShift(fpgaAddresses::kPixelShift),
      badPixelReplacement(fpgaAddresses::kBadPixelControl, fpgaAddresses::kBadPixelTable,
                          fpgaAddresses::kBadPixelTakeOver, fpgaAddresses::kBadPixelBuffer,
                          kFullFrame) {}

tc3U5MGXSFpga::~tc3U5MGXSFpga() = default;

unsigned int tc3U5MGXSFpga::initialize() {
    unsigned int failed = 0;
    if (!m_base.ok()) {
        failed |= kBaseBlockFailed;
    }
    if (!frameCtrl.initialized()) {
        failed |= kFrameCtrlFailed;
    }
    if (!pwm.initialized()) {
        failed |= kPwmFailed;
    }
    if (!pixelShift.initialized()) {
        failed |= kPixelShiftFailed;
    }
    if (!badPixelReplacement.initialize()) {
        failed |= kBadPixelFailed;
    }
    return failed;
}

bool tc3U5MGXSFpga::resetPipeline(bool reset) {
    pixelShift.reset(reset);
    badPixelReplacement.reset(reset);
    return true;
}

int tc3U5MGXSFpga::setMClk(teMClkSpeed speed) {
    if (speed != eMClk24MHz && speed != eMClk36MHz) {
        return Varnox::eInvalidArgument;
    }
    const bool slow = speed == eMClk24MHz;
    m_pll->write(pllRegisters::kCounter.address,
                 slow ? pllRegisters::kCounter24MHz : pllRegisters::kCounter36MHz);
    m_pll->write(pllRegisters::kUpdate.address, 1);
    m_speed = speed;
    m_clockMhz = slow ? kClock24MHz : kClock36MHz;
    pwm.clockMhz = static_cast<double>(m_clockMhz);
    return Varnox::eSuccess;
}

void tc3U5MGXSFpga::setExposureMode(bool /*mode*/) {}

void tc3U5MGXSFpga::setExternalTrigger(bool /*enabled*/) {}

std::string tc3U5MGXSFpga::getSysId() const {
    const auto hexadecimal = [](std::uint32_t word) {
        std::array<char, 8> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), word, 16).ptr;
        return std::string(digits.data(), end);
    };
    const std::string first = hexadecimal(m_base.read(baseRegisters::kSysId0));
    return first + "." + hexadecimal(m_base.read(baseRegisters::kSysId1));
}

void tc3U5MGXSFpga::dumpRegisters() const {
    printFlushed(std::cout, "Fpga sys id: ", getSysId(), "\n");
    printFlushed(std::cout, "Pll 0xC0 = 0x", tsHex{m_pll->read(pllRegisters::kCounter.address)},
                 "\n");
    leaveInDecimal(std::cout); // the host's cores, which print next, rely on it
    frameCtrl.dumpRegisters();
    pwm.dumpRegisters();
    badPixelReplacement.dumpRegisters();
}
