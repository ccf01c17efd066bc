#include "sim/after/waveform.h"

#include <cstdint>
#include <stdexcept>

#include "sim/after/waveform/dump_writer.h"
#include "sim/after/waveform/i2c_wires.h"
#include "sim/after/waveform/level_wires.h"
#include "sim/after/waveform/pulse_wire.h"
#include "sim/after/waveform/spi_wires.h"
#include "sim/after/waveform/supply_wires.h"
#include "sim/after/waveform/wires.h"

namespace sim {

namespace {

// A dump that has the head's wires.
tcDumpWriter dumpOfHead() {
    tcDumpWriter dump;
    defineWires(dump);
    return dump;
}

// Hands each line to the wires that it is about.
class tcWaveform {
public:
    void add(const tsTraceLine& line) {
        const std::string& what = line.words.front();
        m_dump.enter(line.timeNs);
        if (line.text.find(" failed ") != std::string::npos) {
            return; // nothing happened on the wires
        }
        if (what == "SPI") {
            m_spi.addTransfer(line);
        } else if (what == "GPIO") {
            drawGpioLine(m_dump, line);
        } else if (what == "STATE" && line.words.size() > 1) {
            addState(line);
        }
    }

    std::string finish(std::uint64_t endNs) {
        m_spi.finish();
        m_i2c.finish();
        m_pulses.finish(endNs);
        m_frames.finish(endNs);
        return m_dump.text(endNs);
    }

private:
    void addState(const tsTraceLine& line) {
        const std::string& name = line.words[1];
        const bool hasValue = line.words.size() > 2;
        if (name == "END" || name == "SENSOR-WORD" || name == "SENSOR-REST" ||
            name == "FPGA-WORD") {
            return; // no wire
        }
        if (name == "I2C-STOP") {
            m_i2c.stop(line.timeNs);
        } else if (name == "I2C") {
            m_i2c.addMessage(line);
        } else if (!hasValue) {
            throw std::runtime_error("\"" + line.text + "\" says nothing");
        } else if (name == "SPI-WIRE") {
            m_spi.setPort(line);
        } else if (name == "SPI-SELECT") {
            m_spi.select(line.timeNs, line.words[2] == "1");
        } else if (name == "PULSES") {
            m_pulses.begin(pulsesFrom(line), line.timeNs);
        } else if (name == "FRAMES") {
            m_frames.begin(framesFrom(line), line.timeNs);
        } else if (name == "DPA-RESET" || name == "DPA-FIFO-RESET" || name == "DPA-HOLD") {
            drawLanes(m_dump, line);
        } else if (line.words.size() == 4) {
            m_supplies.addRamp(line);
        } else {
            drawFlag(m_dump, line);
        }
    }

    tcDumpWriter m_dump = dumpOfHead();
    tcSpiWires m_spi{m_dump};
    tcI2cWires m_i2c{m_dump};
    tcSupplyWires m_supplies{m_dump};
    tcPulseWire m_pulses{m_dump, "FRAME-START"};
    tcPulseWire m_frames{m_dump, "FRAME-VALID"};
};

} // namespace

std::string waveform(const std::vector<tsTraceLine>& trace) {
    tcWaveform result;
    for (const tsTraceLine& line : trace) {
        result.add(line);
    }
    return result.finish(trace.empty() ? 0 : trace.back().timeNs);
}

} // namespace sim
