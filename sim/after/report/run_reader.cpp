#include "sim/after/report/run_reader.h"

#include <string>

#include "sim/after/report/exposure_reader.h"
#include "sim/after/report/held_registers.h"
#include "sim/after/report/supply_reader.h"
#include "sim/after/report/training_reader.h"
#include "sim/after/report/write_reader.h"

namespace sim {

namespace {

// Hands each line to the reader of its subject.
class tcRunReader {
public:
    tsRun read(const std::vector<tsTraceLine>& trace) {
        for (const tsTraceLine& line : trace) {
            m_exposures.see(line);
            take(line);
        }
        m_exposures.settle();
        m_run.endNs = trace.empty() ? 0 : trace.back().timeNs;
        return m_run;
    }

private:
    void take(const tsTraceLine& line) {
        const std::string& what = line.words.front();
        const bool failed = line.text.find(" failed ") != std::string::npos;
        if (what == "VIOLATION") {
            m_run.violations.push_back(line);
        } else if (what == "NOTE" && line.words.size() > 2 && line.words[1] == "fault") {
            m_run.faults.push_back(line);
        } else if (failed) {
            m_run.failures.push_back(line);
        }
        if (what == "SPI" && failed) {
            m_writes.takeFailedTransfer(line);
        } else if (what == "ADC-COMMAND" && line.words.size() >= 2 && !failed) {
            m_supplies.takeCommand(line);
        } else if (what == "ADC" && line.words.size() >= 3) {
            m_supplies.takeConversion(line, failed);
        } else if (what == "GPIO" && line.words.size() == 4 && line.words[3] == "1" && !failed) {
            m_run.happened(line.words[1], line.timeNs);
        } else if (what == "STATE" && line.words.size() > 2) {
            takeState(line);
        }
    }

    void takeState(const tsTraceLine& line) {
        const std::string& name = line.words[1];
        if (name == "SENSOR-WORD" || name == "FPGA-WORD") {
            m_writes.takeWord(line);
        } else if (name == "SENSOR-REST") {
            m_writes.takeRest(line);
        } else {
            takeChange(line);
        }
    }

    void takeChange(const tsTraceLine& line) {
        const std::string& name = line.words[1];
        const bool set = line.words[2] != "0";
        if (name == "SENSOR-AWAKE" && !set) {
            m_held.sensor.clear(); // it forgets everything
        }
        if (set) {
            m_run.happened(name, line.timeNs);
            m_training.take(name, line.timeNs);
        }
    }

    tsRun m_run;
    tsHeldRegisters m_held;
    tcExposureReader m_exposures{m_held, m_run};
    tcWriteReader m_writes{m_held, m_exposures, m_run};
    tcSupplyReader m_supplies{m_run};
    tcTrainingReader m_training{m_run};
};

} // namespace

tsRun readRun(const std::vector<tsTraceLine>& trace) {
    return tcRunReader().read(trace);
}

} // namespace sim
