#include "sim/after/waveform/wires.h"

#include <array>
#include <string>

#include "fpga/registers.h"

namespace sim {

namespace {

constexpr std::array kLines{"LED_STATUS",     "HEAD_PRESENT_B", "PS_1.2V_EN",  "PS_3.3SVDD_EN",
                            "PS_3.3AVDDH_EN", "RESET_B",        "EXT_TRIG_EN", "FAN_ALERT_B"};
constexpr std::array kRailNames{"VDD1.2", "VDD3.3SVDD", "VDD3.3AVDDH"};

} // namespace

void defineWires(tcDumpWriter& dump) {
    for (const char* line : kLines) {
        dump.define("gpio", line, "0");
    }
    for (const char* rail : kRailNames) {
        dump.define("supplies", rail, "0", true);
        dump.define("supplies", std::string(rail) + "-GOOD", "0");
    }
    dump.define("sensor", "SENSOR-AWAKE", "0");
    dump.define("spi", "SPI-CS", "1");
    dump.define("spi", "SPI-CLK", "0");
    dump.define("spi", "SPI-MOSI", "0");
    dump.define("i2c", "I2C-SCL", "1");
    dump.define("i2c", "I2C-SDA", "1");
    dump.define("link", "FRAME-START", "0");
    dump.define("link", "CORE-ENABLED", "0");
    for (const char* flag : {"PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED", "ALIGNED"}) {
        dump.define("link", flag, "0");
    }
    dump.define("link", "FRAME-VALID", "0");
    for (const char* what : {"LANE", "DPA-RESET", "DPA-FIFO-RESET", "DPA-HOLD"}) {
        for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
            const bool lock = std::string(what) == "LANE";
            dump.define("lanes", what + std::to_string(lane) + (lock ? "-LOCK" : ""), "0");
        }
    }
}

} // namespace sim
