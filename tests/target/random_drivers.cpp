#include "tests/target/random_drivers.h"

#include <array>
#include <exception>

namespace {

using tcCore = tcCanon3U5MGXSFrameCtrl;

std::string text(std::int64_t value) {
    return std::to_string(value);
}

std::string both(std::int64_t first, std::int64_t second) {
    return text(first) + " " + text(second);
}

/// \return the call's result, or the text of what it threw
template<class Call>
std::string outcome(Call call) {
    try {
        return text(call());
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// For calls without a result.
template<class Call>
std::string done(Call call) {
    call();
    return "-";
}

} // namespace

// ---- Sensor

tcRandomSensor::tcRandomSensor(tcChance& chance, sim::tcVirtualHead& head)
    : tcRandomLife(chance, head), m_sensor("/dev/spidev1.0") {}

/// Mostly registers that the driver gives a meaning.
unsigned short tcRandomSensor::address() {
    constexpr std::array meant{0x10, 0x12, 0x40, 0x41, 0x42, 0x90, 0xB0, 0x300};
    const int chosen = chance().oneIn(3)   ? chance().of(meant)
                       : chance().oneIn(4) ? chance().upTo(0xFFFF)
                                           : chance().upTo(0x3FF);
    return told(static_cast<unsigned short>(chosen));
}

unsigned char tcRandomSensor::shift() {
    const int chosen = chance().oneIn(4) ? chance().upTo(255) : chance().upTo(32);
    return told(static_cast<unsigned char>(chosen));
}

std::uint32_t tcRandomSensor::bits() {
    return told(chance().bits());
}

/// A row or a column.
unsigned short tcRandomSensor::place() {
    const int chosen = chance().upTo(chance().oneIn(4) ? 65535 : 2600);
    return told(static_cast<unsigned short>(chosen));
}

/// A time that is often at the edge of a number of lines where the exposure arithmetic turns.
std::chrono::microseconds tcRandomSensor::time(int most) {
    constexpr std::array edges{0,     1,     2,     3,     4,     16381, 16382, 16383,
                               16384, 16384, 16385, 65535, 65536, 65537, 81919, 81920};
    constexpr std::array<std::int64_t, 4> wide{1, 4096, 0x100000000LL, -0x100000000LL};
    std::int64_t microseconds = 0;
    if (chance().oneIn(2)) {
        unsigned int period = 0;
        unsigned int frame = 0;
        static_cast<void>(m_sensor.readShadowRegister(0xB0, period));
        static_cast<void>(m_sensor.readShadowRegister(0x12, frame));
        const int lines = chance().oneIn(2)
                              ? chance().of(edges)
                              : static_cast<int>(frame & 0x3FFF) + chance().upTo(8) - 6;
        microseconds = (std::int64_t{lines} * ((period & 0xFFF) + 1) + 35) / 36;
        microseconds += chance().upTo(2) - 1;
    } else {
        microseconds = chance().around(most);
        if (chance().oneIn(10)) {
            microseconds *= chance().of(wide);
        }
    }
    return std::chrono::microseconds(told(microseconds));
}

const tcRandomSensor::tcOperations tcRandomSensor::kOperations = {
    {"writeRegister",
     [](tcRandomSensor& s) {
         const unsigned short address = s.address();
         return text(s.m_sensor.writeRegister(address, s.bits()));
     }},
    {"readShadowRegister",
     [](tcRandomSensor& s) {
         unsigned int value = 77;
         const int result = s.m_sensor.readShadowRegister(s.address(), value);
         return both(result, value);
     }},
    {"setRegisterField",
     [](tcRandomSensor& s) {
         const unsigned short address = s.address();
         const std::uint32_t value = s.bits();
         const std::uint32_t mask = s.bits();
         return done([&] { s.m_sensor.setRegisterField(address, value, mask, s.shift()); });
     }},
    {"getRegisterField",
     [](tcRandomSensor& s) {
         const unsigned short address = s.address();
         const std::uint32_t mask = s.bits();
         return text(s.m_sensor.getRegisterField(address, mask, s.shift()));
     }},
    {"dumpRegisterMap",
     [](tcRandomSensor& s) { return done([&] { s.m_sensor.dumpRegisterMap(); }); }},
    {"setMClockMhz",
     [](tcRandomSensor& s) {
         const bool zero = s.chance().oneIn(6);
         const bool other = s.chance().oneIn(3);
         const int tenths = zero ? 0 : other ? s.chance().upTo(600) - 20 : 360;
         return text(s.m_sensor.setMClockMhz(static_cast<float>(s.told(tenths)) / 10.0F));
     }},
    {"writeRegistersFromFile",
     [](tcRandomSensor& s) {
         constexpr std::array files{"3U5MGXS_10bit.txt", "3U5MGXS_12bit.txt", "missing.txt"};
         const char* file = s.chance().of(files);
         s.tell(file);
         return outcome([&] { return s.m_sensor.writeRegistersFromFile(file); });
     }},
    {"powerUp", [](tcRandomSensor& s) { return outcome([&] { return s.m_sensor.powerUp(); }); }},
    {"powerDown", [](tcRandomSensor& s) { return done([&] { s.m_sensor.powerDown(); }); }},
    {"getHorizontalPeriod",
     [](tcRandomSensor& s) { return text(s.m_sensor.getHorizontalPeriod()); }},
    {"getFrameReadoutTime",
     [](tcRandomSensor& s) {
         return text(static_cast<std::int64_t>(s.m_sensor.getFrameReadoutTime().count()));
     }},
    {"setHDMax", [](tcRandomSensor& s) { return text(s.m_sensor.setHDMax(s.time(600'000))); }},
    {"setHDMax", [](tcRandomSensor& s) { return text(s.m_sensor.setHDMax(s.time(6'000))); }},
    {"setExposure",
     [](tcRandomSensor& s) { return text(s.m_sensor.setExposure(s.time(300'000))); }},
    {"setExposure", [](tcRandomSensor& s) { return text(s.m_sensor.setExposure(s.time(3'000))); }},
    {"setExposure",
     [](tcRandomSensor& s) { return text(s.m_sensor.setExposure(s.time(300'000))); }},
    {"setExposure", [](tcRandomSensor& s) { return text(s.m_sensor.setExposure(s.time(3'000))); }},
    {"setExposureMode",
     [](tcRandomSensor& s) {
         const auto mode = static_cast<tc3U5MGXS::teExposureMode>(s.around(3));
         return done([&] { s.m_sensor.setExposureMode(mode); });
     }},
    {"setFrameState",
     [](tcRandomSensor& s) {
         const auto state = static_cast<tc3U5MGXS::teFrameState>(s.around(8));
         return done([&] { s.m_sensor.setFrameState(state); });
     }},
    {"setFrameControlMode",
     [](tcRandomSensor& s) {
         constexpr std::array usual{0, 0, 3, 3, 1};
         const int mode = s.chance().oneIn(6) ? s.chance().around(4) : s.chance().of(usual);
         const auto asked = static_cast<tc3U5MGXS::teCtrlMode>(s.told(mode));
         return done([&] { s.m_sensor.setFrameControlMode(asked); });
     }},
    {"getFrameControlMode",
     [](tcRandomSensor& s) { return text(s.m_sensor.getFrameControlMode()); }},
    {"setBin",
     [](tcRandomSensor& s) {
         const auto factor = static_cast<unsigned short>(s.upTo(4));
         return done([&] { s.m_sensor.setBin(factor); });
     }},
    {"setVScanInvert",
     [](tcRandomSensor& s) { return done([&] { s.m_sensor.setVScanInvert(s.flag()); }); }},
    {"setHScanInvert",
     [](tcRandomSensor& s) { return done([&] { s.m_sensor.setHScanInvert(s.flag()); }); }},
    {"getVScanInvert", [](tcRandomSensor& s) { return text(s.m_sensor.getVScanInvert() ? 1 : 0); }},
    {"getHScanInvert", [](tcRandomSensor& s) { return text(s.m_sensor.getHScanInvert() ? 1 : 0); }},
    {"setAGainCourse",
     [](tcRandomSensor& s) {
         const auto gain = static_cast<tc3U5MGXS::teAGainCoarse>(s.around(7));
         return text(s.m_sensor.setAGainCourse(gain));
     }},
    {"setAGainFine",
     [](tcRandomSensor& s) {
         return text(s.m_sensor.setAGainFine(static_cast<unsigned char>(s.upTo(255))));
     }},
    {"getAGainCourse", [](tcRandomSensor& s) { return text(s.m_sensor.getAGainCourse()); }},
    {"getAGainFine", [](tcRandomSensor& s) { return text(s.m_sensor.getAGainFine()); }},
    {"setDGainCourse",
     [](tcRandomSensor& s) {
         const auto gain = static_cast<tc3U5MGXS::teDGainCoarse>(s.around(7));
         return done([&] { s.m_sensor.setDGainCourse(gain); });
     }},
    {"setDGainFine",
     [](tcRandomSensor& s) {
         const auto gain = static_cast<unsigned char>(s.upTo(255));
         return done([&] { s.m_sensor.setDGainFine(gain); });
     }},
    {"getDGainCourse", [](tcRandomSensor& s) { return text(s.m_sensor.getDGainCourse()); }},
    {"getDGainFine", [](tcRandomSensor& s) { return text(s.m_sensor.getDGainFine()); }},
    {"setTestPattern",
     [](tcRandomSensor& s) {
         const auto pattern = static_cast<tc3U5MGXS::teTestPattern>(s.around(8));
         return done([&] { s.m_sensor.setTestPattern(pattern); });
     }},
    {"setTestSigEnable",
     [](tcRandomSensor& s) { return text(s.m_sensor.setTestSigEnable(s.flag())); }},
    {"resetROIAreas", [](tcRandomSensor& s) { return text(s.m_sensor.resetROIAreas()); }},
    {"setROIArea",
     [](tcRandomSensor& s) {
         const int area = s.chance().oneIn(8) ? s.chance().upTo(255) : s.chance().upTo(8);
         const auto number = static_cast<unsigned char>(s.told(area));
         const unsigned short firstRow = s.place();
         const unsigned short lastRow = s.place();
         const unsigned short firstColumn = s.place();
         return text(s.m_sensor.setROIArea(number, firstRow, lastRow, firstColumn, s.place()));
     }},
};

// ---- FPGA

tcRandomFpga::tcRandomFpga(tcChance& chance, sim::tcVirtualHead& head)
    : tcRandomLife(chance, head), m_fpga(""), m_core(0xFF210000) {}

std::uint32_t tcRandomFpga::bits() {
    const bool few = chance().oneIn(3);
    return told(few ? static_cast<std::uint32_t>(chance().upTo(0xFFF)) : chance().bits());
}

/// \return a record of two halves of a register
template<class Pair>
Pair tcRandomFpga::pair() {
    const auto half = [this] {
        const int most = chance().oneIn(2) ? 65535 : 2600;
        return static_cast<std::uint16_t>(upTo(most));
    };
    const std::uint16_t first = half();
    const std::uint16_t second = half();
    return {first, second};
}

const tcRandomFpga::tcOperations tcRandomFpga::kOperations = {
    {"initialize", [](tcRandomFpga& s) { return text(s.m_fpga.initialize()); }},
    {"resetPipeline",
     [](tcRandomFpga& s) { return text(s.m_fpga.resetPipeline(s.flag()) ? 1 : 0); }},
    {"setMClk",
     [](tcRandomFpga& s) {
         return text(s.m_fpga.setMClk(static_cast<tc3U5MGXSFpga::teMClkSpeed>(s.around(2))));
     }},
    {"getClockMhz", [](tcRandomFpga& s) { return std::to_string(s.m_fpga.getClockMhz()); }},
    {"setExposureMode",
     [](tcRandomFpga& s) { return done([&] { s.m_fpga.setExposureMode(s.flag()); }); }},
    {"setExternalTrigger",
     [](tcRandomFpga& s) { return done([&] { s.m_fpga.setExternalTrigger(s.flag()); }); }},
    {"getSysId", [](tcRandomFpga& s) { return s.m_fpga.getSysId(); }},
    {"dumpRegisters", [](tcRandomFpga& s) { return done([&] { s.m_fpga.dumpRegisters(); }); }},
    {"initialized", [](tcRandomFpga& s) { return text(s.m_core.initialized() ? 1 : 0); }},
    {"readCoreEnabled", [](tcRandomFpga& s) { return text(s.m_core.readCoreEnabled() ? 1 : 0); }},
    {"enableCore", [](tcRandomFpga& s) { return text(s.m_core.enableCore(s.flag())); }},
    {"readPairsFlip", [](tcRandomFpga& s) { return text(s.m_core.readPairsFlip() ? 1 : 0); }},
    {"enablePairsFlip",
     [](tcRandomFpga& s) { return done([&] { s.m_core.enablePairsFlip(s.flag()); }); }},
    {"triggerHdrUpdate",
     [](tcRandomFpga& s) { return done([&] { s.m_core.triggerHdrUpdate(); }); }},
    {"readStatus",
     [](tcRandomFpga& s) {
         const tcCore::tsCoreStatus status = s.m_core.readStatus();
         return text(status.aligned ? 1 : 0) + text(status.locked ? 1 : 0) +
                text(status.rgLocked ? 1 : 0) + text(status.gbLocked ? 1 : 0);
     }},
    {"readLaneInversion", [](tcRandomFpga& s) { return text(s.m_core.readLaneInversion()); }},
    {"setLaneInversion",
     [](tcRandomFpga& s) { return done([&] { s.m_core.setLaneInversion(s.bits()); }); }},
    {"readIrqFlags", [](tcRandomFpga& s) { return text(s.m_core.readIrqFlags()); }},
    {"clearIrqFlags",
     [](tcRandomFpga& s) { return done([&] { s.m_core.clearIrqFlags(s.bits()); }); }},
    {"readIrqMask", [](tcRandomFpga& s) { return text(s.m_core.readIrqMask()); }},
    {"setIrqMask", [](tcRandomFpga& s) { return done([&] { s.m_core.setIrqMask(s.bits()); }); }},
    {"readRoiResCntConfig",
     [](tcRandomFpga& s) {
         const tcCore::tsResolutionConfig count = s.m_core.readRoiResCntConfig();
         return both(count.H, count.W);
     }},
    {"setRoiResCntConfig",
     [](tcRandomFpga& s) {
         return done([&] { s.m_core.setRoiResCntConfig(s.pair<tcCore::tsResolutionConfig>()); });
     }},
    {"readResolutionConfig",
     [](tcRandomFpga& s) {
         const tcCore::tsResolutionConfig resolution = s.m_core.readResolutionConfig();
         return both(resolution.H, resolution.W);
     }},
    {"setResolutionConfig",
     [](tcRandomFpga& s) {
         return done([&] { s.m_core.setResolutionConfig(s.pair<tcCore::tsResolutionConfig>()); });
     }},
    {"readRoiConfig",
     [](tcRandomFpga& s) {
         const tcCore::tsRoiConfig roi = s.m_core.readRoiConfig();
         return both(roi.y, roi.x);
     }},
    {"setRoiConfig",
     [](tcRandomFpga& s) {
         return done([&] { s.m_core.setRoiConfig(s.pair<tcCore::tsRoiConfig>()); });
     }},
    {"readBackPorchConfig",
     [](tcRandomFpga& s) {
         const tcCore::tsBackPorchConfig porch = s.m_core.readBackPorchConfig();
         return both(porch.y, porch.x);
     }},
    {"setBackPorchConfig",
     [](tcRandomFpga& s) {
         return done([&] { s.m_core.setBackPorchConfig(s.pair<tcCore::tsBackPorchConfig>()); });
     }},
    {"readDPAReset", [](tcRandomFpga& s) { return text(s.m_core.readDPAReset()); }},
    {"readDPAFifoReset", [](tcRandomFpga& s) { return text(s.m_core.readDPAFifoReset()); }},
    {"readDPAHold", [](tcRandomFpga& s) { return text(s.m_core.readDPAHold()); }},
    {"readDPALock", [](tcRandomFpga& s) { return text(s.m_core.readDPALock()); }},
    {"setDPAReset", [](tcRandomFpga& s) { return done([&] { s.m_core.setDPAReset(s.bits()); }); }},
    {"setDPAFifoReset",
     [](tcRandomFpga& s) { return done([&] { s.m_core.setDPAFifoReset(s.bits()); }); }},
    {"setDPAHold", [](tcRandomFpga& s) { return done([&] { s.m_core.setDPAHold(s.bits()); }); }},
    {"setIndexSync",
     [](tcRandomFpga& s) { return done([&] { s.m_core.setIndexSync(s.bits()); }); }},
    {"setFrameTimestamp",
     [](tcRandomFpga& s) { return done([&] { s.m_core.setFrameTimestamp(s.bits()); }); }},
    {"readCoreId", [](tcRandomFpga& s) { return text(s.m_core.readCoreId()); }},
    {"readCoreRev", [](tcRandomFpga& s) { return text(s.m_core.readCoreRev()); }},
    {"readCoreCaps", [](tcRandomFpga& s) { return text(s.m_core.readCoreCaps()); }},
    {"dumpCore", [](tcRandomFpga& s) { return done([&] { s.m_core.dumpRegisters(); }); }},
};
