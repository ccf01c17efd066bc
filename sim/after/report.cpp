#include "sim/after/report.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "fpga/registers.h"
#include "sensor/registers.h"
#include "sim/after/markup.h"
#include "sim/after/report_fields.h"
#include "sim/base/timed_text.h"
#include "sim/base/write_fates.h"

namespace sim {

namespace {

constexpr unsigned kLanes = 12;
constexpr std::size_t kPllFlags = 3;

using tcMoment = std::optional<std::uint64_t>; // [ns]; empty: it did not happen

// A register write, as the head saw it arrive.
struct tsWrite {
    std::uint64_t timeNs = 0;
    bool sensor = false;
    std::uint32_t address = 0;           // register number, or physical address
    std::optional<std::uint32_t> before; // what the register held; empty: nobody knows
    std::uint32_t value = 0;
    bool taken = true; // the register has changed
    std::string fate;  // empty: all is well
    std::string other; // what went over the wire, where that was no register write
};

struct tsAttempt {
    std::uint64_t startNs = 0;
    std::array<tcMoment, kPllFlags> pll;
    tcMoment reset; // of the lanes
    std::array<tcMoment, kLanes> lanes;
    tcMoment held;
    tcMoment aligned;
};

// One conversion of the ADC.
struct tsReading {
    std::uint64_t timeNs = 0;
    std::uint32_t channel = 0;
    std::optional<std::uint32_t> steps; // empty: the transfer failed
    bool settling = false;              // it is the one that switched the reference on
};

// Frame and exposure as the sensor's registers had them.
struct tsTiming {
    bool triggered = false; // a trigger sets the frame
    std::uint32_t frameLines = 0;
    std::uint32_t lineClocks = 1;
    std::uint32_t exposureLines = 0;
    bool fromFirstLine = false; // it cannot begin earlier
    double clockMhz = 0;
    friend bool operator==(const tsTiming&, const tsTiming&) = default;
};
struct tsTimedTiming {
    std::uint64_t timeNs = 0;
    tsTiming timing;
};

// What a run was, in the order of the page.
struct tsRun {
    std::map<std::string, std::uint64_t> first; // when something happened first
    std::vector<tsAttempt> attempts;
    std::vector<tsReading> readings;
    std::vector<tsTimedTiming> timings;
    std::vector<tsWrite> writes;
    std::vector<tsTraceLine> violations;
    std::vector<tsTraceLine> failures;
    std::vector<tsTraceLine> faults;
    std::uint64_t endNs = 0;
};

class tcRunReader {
public:
    tsRun read(const std::vector<tsTraceLine>& trace) {
        for (const tsTraceLine& line : trace) {
            endOfSet(line);
            take(line);
        }
        settleTiming();
        m_run.endNs = trace.empty() ? 0 : trace.back().timeNs;
        return m_run;
    }

private:
    void happened(const std::string& what, std::uint64_t timeNs) {
        m_run.first.emplace(what, timeNs);
    }

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
            takeFailedTransfer(line);
        } else if (what == "ADC-COMMAND" && line.words.size() >= 2 && !failed) {
            takeCommand(static_cast<std::uint32_t>(numberFrom(line.words[1])));
        } else if (what == "ADC" && line.words.size() >= 3) {
            takeConversion(line, failed);
        } else if (what == "GPIO" && line.words.size() == 4 && line.words[3] == "1" && !failed) {
            happened(line.words[1], line.timeNs);
        } else if (what == "STATE" && line.words.size() > 2) {
            takeState(line);
        }
    }

    void takeCommand(std::uint32_t command) {
        constexpr std::uint32_t reference = 8; // PD1
        const bool on = (command & reference) != 0;
        m_settling = on && !m_referenceOn;
        m_referenceOn = on;
    }

    // Readings before reset is released say nothing about the supplies under load.
    void takeConversion(const tsTraceLine& line, bool failed) {
        if (m_run.first.contains("RESET_B") && !failed) {
            happened("conversion", line.timeNs);
        }
        tsReading reading{
            line.timeNs, static_cast<std::uint32_t>(numberFrom(line.words[1])), {}, m_settling};
        if (!failed) {
            reading.steps = static_cast<std::uint32_t>(numberFrom(line.words[2]));
        }
        m_run.readings.push_back(reading);
    }

    // A driver sets the registers of an exposure one after the other; they count together, until
    // one of them comes again or the driver does something else.
    void endOfSet(const tsTraceLine& line) {
        const bool goesOn = line.words.front() == "SPI" || line.words.front() == "STATE";
        if (!goesOn || line.timeNs > m_timingNs + kSet) {
            settleTiming();
        }
    }

    void settleTiming() {
        const tsTiming now = timing();
        if (!m_set.empty() && now.frameLines != 0 &&
            (m_run.timings.empty() || m_run.timings.back().timing != now)) {
            m_run.timings.push_back({m_timingNs, now});
        }
        m_set.clear();
    }

    [[nodiscard]] std::uint32_t field(const tsRegisterField& wanted) const {
        const auto found = m_sensor.find(wanted.address);
        return found == m_sensor.end() ? 0 : found->second >> wanted.shift & wanted.mask;
    }

    [[nodiscard]] tsTiming timing() const {
        using namespace sensorRegisters;
        constexpr std::uint32_t unused = 0x3FFF;
        const std::uint32_t mode = field(kFrameControlMode);
        const bool twice = m_sensor.contains(kGsPos2.address) && field(kGsPos2) != unused;
        const std::uint32_t end = field(twice ? kGsPos2 : kGsPos1);
        tsTiming now;
        now.triggered = mode == 1 || mode == 3;
        now.frameLines = field(kHdMax);
        now.lineClocks = field(kHdPrd) + 1;
        now.exposureLines = now.triggered ? field(kTiming14) : end - std::min(end, field(kAccFpos));
        now.fromFirstLine = !now.triggered && field(kAccFpos) == 0;
        now.clockMhz = clockMhz();
        return now;
    }

    // As the generator's counter register has it; 36 MHz until it is written.
    [[nodiscard]] double clockMhz() const {
        using namespace pllRegisters;
        const auto counter = m_fpga.find(fpgaAddresses::kPll + 4 * kCounter.address);
        return counter != m_fpga.end() && counter->second == kCounter24MHz ? 24.0 : 36.0;
    }

    // "SPI 0F B9 04 36 failed EIO": nothing was on the wire.
    void takeFailedTransfer(const tsTraceLine& line) {
        const auto end = std::find(line.words.begin(), line.words.end(), "failed");
        const std::vector<std::string> bytes(line.words.begin() + 1, end);
        tsWrite write;
        write.timeNs = line.timeNs;
        write.sensor = true;
        write.taken = false;
        write.fate = "lost: the SPI transfer failed";
        if (bytes.size() == sizeof(std::uint32_t)) {
            std::uint32_t word = 0;
            for (unsigned byte = 0; byte < bytes.size(); ++byte) {
                word |= static_cast<std::uint32_t>(numberFrom(bytes[byte], 16)) << (8 * byte);
            }
            write.address = word >> sensorWire::kAddressShift;
            write.value = word & sensorWire::kValueMask;
            const auto held = m_sensor.find(write.address);
            if (held != m_sensor.end()) {
                write.before = held->second;
            }
        } else {
            write.other = std::to_string(bytes.size()) + " bytes";
            for (const std::string& byte : bytes) {
                write.other += " " + byte;
            }
        }
        m_run.writes.push_back(write);
    }

    // "STATE SENSOR-WORD 0x010 - 0x000004 asleep", "STATE FPGA-WORD 0xFF210008 0x00000000
    // 0x000005D9 stuck": register, what it held, what was written, what became of it.
    void takeWord(const tsTraceLine& line) {
        if (line.words.size() != 6) {
            throw std::runtime_error("\"" + line.text + "\" is no register write");
        }
        tsWrite write;
        write.timeNs = line.timeNs;
        write.sensor = line.words[1] == "SENSOR-WORD";
        write.address = static_cast<std::uint32_t>(numberFrom(line.words[2]));
        if (line.words[3] != "-") {
            write.before = static_cast<std::uint32_t>(numberFrom(line.words[3]));
        }
        write.value = static_cast<std::uint32_t>(numberFrom(line.words[4]));
        const tsWriteFate& fate = fateNamed(line.words[5]);
        write.taken = fate.taken;
        write.fate = fate.meaning;
        if (write.sensor) {
            happened("register", line.timeNs);
        }
        if (write.taken) {
            keep(write);
        }
        m_run.writes.push_back(write);
    }

    static const tsWriteFate& fateNamed(const std::string& word) {
        const auto* const fate =
            std::find_if(kWriteFates.begin(), kWriteFates.end(),
                         [&word](const tsWriteFate& known) { return known.word == word; });
        if (fate == kWriteFates.end()) {
            throw std::runtime_error("\"" + word + "\" is no fate of a register write");
        }
        return *fate;
    }

    void keep(const tsWrite& write) {
        if (write.sensor) {
            takeTimingWrite(write.timeNs, write.address);
            m_sensor[write.address] = write.value;
        } else {
            m_fpga[write.address] = write.value;
        }
    }

    // "STATE SENSOR-REST 24 0x04B90F": bits that were too few for a word.
    void takeRest(const tsTraceLine& line) {
        tsWrite write;
        write.timeNs = line.timeNs;
        write.sensor = true;
        write.taken = false;
        write.fate = "lost: no whole word of 32 bits";
        write.other = line.words[2] + " bits " + line.words.back();
        m_run.writes.push_back(write);
    }

    void takeTimingWrite(std::uint64_t timeNs, std::uint32_t address) {
        using namespace sensorRegisters;
        const bool isTiming = (address >= kFrameState.address && address <= kGsPos2.address) ||
                              address == kHdPrd.address;
        if (isTiming && (m_set.contains(address) || address == kHdMax.address)) {
            settleTiming(); // the next set begins: with the frame's length, where it has one
        }
        if (isTiming) {
            m_set.insert(address);
        }
        m_timingNs = timeNs;
    }

    void takeState(const tsTraceLine& line) {
        const std::string& name = line.words[1];
        if (name == "SENSOR-WORD" || name == "FPGA-WORD") {
            takeWord(line);
        } else if (name == "SENSOR-REST") {
            takeRest(line);
        } else {
            takeChange(line);
        }
    }

    void takeChange(const tsTraceLine& line) {
        const std::string& name = line.words[1];
        const bool set = line.words[2] != "0";
        if (name == "SENSOR-AWAKE" && !set) {
            m_sensor.clear(); // it forgets everything
        }
        if (!set) {
            return;
        }
        happened(name, line.timeNs);
        if (name == "CORE-ENABLED") {
            m_run.attempts.push_back({line.timeNs, {}, {}, {}, {}, {}});
        } else if (!m_run.attempts.empty()) {
            takeTraining(name, line);
        }
    }

    void takeTraining(const std::string& name, const tsTraceLine& line) {
        if (name == "DPA-RESET" && m_run.attempts.back().reset) {
            // The core stays on when training fails: another reset is another attempt.
            tsAttempt again{line.timeNs, m_run.attempts.back().pll, {}, {}, {}, {}};
            m_run.attempts.push_back(again);
        }
        tsAttempt& attempt = m_run.attempts.back();
        constexpr std::array flags{"PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED"};
        for (std::size_t at = 0; at < flags.size(); ++at) {
            if (name == flags[at] && !attempt.pll[at]) { // a later one is none of the training's
                attempt.pll[at] = line.timeNs;
            }
        }
        for (unsigned lane = 0; lane < kLanes; ++lane) {
            if (name == "LANE" + std::to_string(lane) + "-LOCK" && !attempt.lanes[lane]) {
                attempt.lanes[lane] = line.timeNs;
            }
        }
        if (name == "DPA-RESET") {
            attempt.reset = line.timeNs;
        } else if (name == "DPA-HOLD" && !attempt.held) {
            attempt.held = line.timeNs;
        } else if (name == "ALIGNED" && !attempt.aligned) {
            attempt.aligned = line.timeNs;
        }
    }

    static constexpr std::uint64_t kSet = 100'000; // ns, between two writes that belong together

    tsRun m_run;
    std::map<std::uint32_t, std::uint32_t> m_sensor;
    std::map<std::uint32_t, std::uint32_t> m_fpga;
    bool m_referenceOn = false; // of the ADC
    bool m_settling = false;
    std::set<std::uint32_t> m_set; // registers of frame and exposure written since the last row
    std::uint64_t m_timingNs = 0;  // the last write to the sensor
};

// "301.003 ms": rounded down to microseconds.
std::string milliseconds(std::uint64_t ns) {
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%llu.%03llu ms",
                                     static_cast<unsigned long long>(ns / 1'000'000),
                                     static_cast<unsigned long long>(ns / 1'000 % 1'000));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string hex(std::uint32_t value, int digits) {
    std::array<char, 16> text{};
    const int length = std::snprintf(text.data(), text.size(), "0x%0*X", digits, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string fixed(double value, int digits) {
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string row(const std::vector<std::string>& cells, const char* look = "") {
    std::string result = "<tr" + std::string(look) + ">";
    for (const std::string& cell : cells) {
        result += "<td>" + escapedMarkup(cell) + "</td>";
    }
    return result + "</tr>\n";
}

std::string table(const char* id, const std::vector<std::string>& heads, const std::string& rows) {
    std::string result = "<table id=\"" + std::string(id) + "\">\n<tr>";
    for (const std::string& head : heads) {
        result += "<th>" + head + "</th>";
    }
    return result + "</tr>\n" + rows + "</table>\n";
}

constexpr const char* kBad = " class=\"bad\"";

tcMoment firstOf(const tsRun& run, const std::string& what) {
    const auto found = run.first.find(what);
    return found == run.first.end() ? tcMoment{} : tcMoment{found->second};
}

// --- Stages ---

struct tsStage {
    std::uint64_t startNs = 0;
    std::uint64_t endNs = 0; // the next stage's start, or the end of the run
    const char* name = "";
};

struct tsStages {
    std::vector<tsStage> reached; // by their times
    std::vector<const char*> never;
};

tsStages stagesOf(const tsRun& run) {
    constexpr std::array<std::pair<const char*, const char*>, 11> names{
        {{"PS_1.2V_EN", "1.2 V on"},
         {"PS_3.3SVDD_EN", "3.3 V SVDD on"},
         {"PS_3.3AVDDH_EN", "3.3 V AVDDH on"},
         {"RESET_B", "reset released"},
         {"SENSOR-AWAKE", "sensor awake"},
         {"conversion", "supplies measured"},
         {"register", "first register write"},
         {"CORE-ENABLED", "frame-control core on"},
         {"PLL-LOCKED", "receiver PLL locked"},
         {"ALIGNED", "link aligned"},
         {"FRAMES", "frames arrive"}}};
    tsStages stages;
    for (const auto& [what, name] : names) {
        if (const tcMoment first = firstOf(run, what)) {
            stages.reached.push_back({*first, run.endNs, name});
        } else {
            stages.never.push_back(name);
        }
    }
    std::stable_sort(
        stages.reached.begin(), stages.reached.end(),
        [](const tsStage& one, const tsStage& other) { return one.startNs < other.startNs; });
    for (std::size_t at = 1; at < stages.reached.size(); ++at) {
        stages.reached[at - 1].endNs = stages.reached[at].startNs;
    }
    return stages;
}

// The run from left to right, one line a stage:
//
//     1.2 V on       |#                        1.000 ms
//     reset released |          ####          10.000 ms
//                    0.000 ms                389.272 ms
//
// [pixels]
namespace timeLine {
constexpr unsigned kLeft = 180;     // of the bars
constexpr unsigned kSpan = 600;     // of the run
constexpr unsigned kLine = 20;      // from one stage to the next
constexpr unsigned kBar = 14;       // height
constexpr unsigned kText = 11;      // from a line's top to the foot of its text
constexpr unsigned kDuration = 880; // right end of the durations
constexpr double kThinnest = 2;     // what a person still sees
} // namespace timeLine

std::string drawnText(unsigned x, unsigned y, const char* anchor, const std::string& text) {
    return "<text x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" text-anchor=\"" +
           anchor + "\">" + escapedMarkup(text) + "</text>\n";
}

std::string drawnStage(const tsStage& stage, std::uint64_t runNs, unsigned top) {
    using namespace timeLine;
    const auto place = [runNs](std::uint64_t ns) {
        return kSpan * static_cast<double>(ns) / static_cast<double>(runNs);
    };
    const std::string duration = milliseconds(stage.endNs - stage.startNs);
    const double width = std::max(place(stage.endNs) - place(stage.startNs), kThinnest);
    return drawnText(kLeft - 10, top + kText, "end", stage.name) + "<rect x=\"" +
           fixed(kLeft + place(stage.startNs), 1) + "\" y=\"" + std::to_string(top) +
           "\" width=\"" + fixed(width, 1) + "\" height=\"" + std::to_string(kBar) + "\"><title>" +
           escapedMarkup(std::string(stage.name) + ": " + duration) + "</title></rect>\n" +
           drawnText(kDuration, top + kText, "end", duration);
}

std::string drawn(const std::vector<tsStage>& reached, std::uint64_t runNs) {
    using namespace timeLine;
    if (reached.empty() || runNs == 0) {
        return "";
    }
    std::string text;
    unsigned top = 0;
    for (const tsStage& stage : reached) {
        text += drawnStage(stage, runNs, top);
        top += kLine;
    }
    text += drawnText(kLeft, top + kText, "start", milliseconds(0)) +
            drawnText(kLeft + kSpan, top + kText, "end", milliseconds(runNs));
    return "<svg id=\"timeline\" width=\"" + std::to_string(kDuration) + "\" height=\"" +
           std::to_string(top + kLine) + "\" role=\"img\" aria-label=\"stages of the run\">\n" +
           text + "</svg>\n";
}

std::string stages(const tsRun& run) {
    const tsStages all = stagesOf(run);
    std::string rows;
    for (const tsStage& stage : all.reached) {
        rows += row(
            {milliseconds(stage.startNs), stage.name, milliseconds(stage.endNs - stage.startNs)});
    }
    rows += row({milliseconds(run.endNs), "end of the run", ""});
    for (const char* name : all.never) {
        rows += row({"never", name, ""});
    }
    return "<h2>Stages</h2>\n" + drawn(all.reached, run.endNs) +
           table("stages", {"Time", "Stage", "Until the next"}, rows);
}

// --- Delays ---

std::string delay(const tsRun& run, const char* from, const char* to, const std::string& name,
                  std::uint64_t neededNs) {
    const tcMoment start = firstOf(run, from);
    const tcMoment end = firstOf(run, to);
    if (!start || !end) {
        return row({name, "not measured", milliseconds(neededNs), ""});
    }
    // The order itself may be wrong.
    const bool enough = *end >= *start && *end - *start >= neededNs;
    const std::string measured =
        *end >= *start ? milliseconds(*end - *start) : "-" + milliseconds(*start - *end);
    return row({name, measured, milliseconds(neededNs), enough ? "kept" : "too short"},
               enough ? "" : kBad);
}

std::string delays(const tsRun& run) {
    constexpr std::uint64_t ms = 1'000'000;
    return "<h2>Supplies and reset</h2>\n" +
           table(
               "delays", {"Delay", "Measured", "Required", ""},
               delay(run, "PS_1.2V_EN", "PS_3.3SVDD_EN", "1.2 V to 3.3 V SVDD", ms) +
                   delay(run, "PS_1.2V_EN", "PS_3.3AVDDH_EN", "1.2 V to 3.3 V AVDDH", ms) +
                   delay(run, "PS_3.3SVDD_EN", "RESET_B", "3.3 V SVDD to end of reset", 300 * ms) +
                   delay(run, "PS_3.3AVDDH_EN", "RESET_B", "3.3 V AVDDH to end of reset",
                         300 * ms) +
                   delay(run, "RESET_B", "conversion", "end of reset to first measurement",
                         10 * ms) +
                   delay(run, "RESET_B", "register", "end of reset to first register write",
                         10 * ms));
}

// --- Supplies ---

// A supply as the ADC sees it, and what the sensor needs.
struct tsRail {
    std::uint32_t channel;
    const char* name;
    double divider; // in front of the ADC
    double lowest;  // V
    double highest; // V
};

const tsRail* railAt(std::uint32_t channel) {
    static constexpr std::array<tsRail, 3> rails{{{0, "VDD1.2", 1, 1.1, 1.3},
                                                  {1, "VDD3.3AVDDH", 2, 3.2, 3.4},
                                                  {4, "VDD3.3SVDD", 2, 3.2, 3.4}}};
    for (const tsRail& rail : rails) {
        if (rail.channel == channel) {
            return &rail;
        }
    }
    return nullptr;
}

// One conversion: 4096 steps are the reference's 2.5 V, in front of the divider twice as much.
std::string reading(const tsReading& reading, const tsRail& rail) {
    constexpr double volts = 2.5 / 4096;
    constexpr std::uint32_t steps = 4096;
    const std::string limits = fixed(rail.lowest, 1) + " to " + fixed(rail.highest, 1) + " V";
    std::vector<std::string> cells{milliseconds(reading.timeNs), rail.name};
    const auto finish = [&](const std::string& raw, const std::string& measured,
                            const std::string& verdict, bool good) {
        cells.insert(cells.end(), {raw, measured, limits, verdict});
        return row(cells, good ? "" : kBad);
    };
    if (!reading.steps) {
        return finish("", "", "the transfer failed", false);
    }
    const std::string raw = hex(*reading.steps, 3);
    if (*reading.steps >= steps) {
        return finish(raw, "", "nobody drove the bus", false);
    }
    if (reading.settling) {
        return finish(raw, "", "not counted: the reference settles", true);
    }
    const double measured = *reading.steps * volts * rail.divider;
    const bool low = measured < rail.lowest;
    const bool high = measured > rail.highest;
    return finish(raw, fixed(measured, 4) + " V",
                  low ? "too low" : (high ? "too high" : "within limits"), !low && !high);
}

std::string rails(const tsRun& run) {
    std::string rows;
    for (const tsReading& converted : run.readings) {
        if (const tsRail* const rail = railAt(converted.channel)) {
            rows += reading(converted, *rail);
        }
    }
    return "<h2>Supplies, as measured</h2>\n" +
           (rows.empty()
                ? "<p id=\"rails\">never measured</p>\n"
                : table("rails", {"Time", "Supply", "Reading", "Voltage", "Limits", ""}, rows));
}

// --- Exposure ---

// What the registers say about a bound: they stand at it.
std::string boundOf(const tsTiming& timing) {
    constexpr std::uint32_t longest = 16383; // lines, of every counter
    if (timing.triggered) {
        return timing.exposureLines == longest ? "exposure: the longest" : "";
    }
    std::string bound;
    if (timing.fromFirstLine) {
        bound = "exposure: all that the frame has";
    } else if (timing.exposureLines <= 1) {
        bound = "exposure: the shortest";
    }
    if (timing.frameLines == longest) {
        bound += std::string(bound.empty() ? "" : "; ") + "frame: the longest";
    }
    return bound;
}

std::string exposure(const tsTimedTiming& at) {
    const double lineUs = at.timing.lineClocks / at.timing.clockMhz;
    const auto duration = [lineUs](std::uint32_t count) {
        return std::to_string(count) + " lines, " + fixed(count * lineUs, 1) + " us";
    };
    return row({milliseconds(at.timeNs), duration(at.timing.frameLines),
                duration(at.timing.exposureLines), boundOf(at.timing)});
}

std::string exposures(const tsRun& run) {
    std::string rows;
    for (const tsTimedTiming& at : run.timings) {
        rows += exposure(at);
    }
    return "<h2>Frame and exposure</h2>\n<p>As the registers stood after each change, and the "
           "bound at which they stood.</p>\n" +
           (rows.empty() ? "<p id=\"exposures\">never set</p>\n"
                         : table("exposures", {"Time", "Frame", "Exposure", "At its bound"}, rows));
}

// --- Clamps ---

// The row of a line "NAME: asked A, applied B, limited by C (result ...)"; empty for any other.
std::string clamp(std::string_view line) {
    constexpr std::array<std::string_view, 4> between{": asked ", ", applied ", ", limited by ",
                                                      " (result "};
    std::vector<std::string> cells;
    for (const std::string_view mark : between) {
        const std::size_t at = line.find(mark);
        if (at == std::string_view::npos) {
            return "";
        }
        cells.emplace_back(line.substr(0, at));
        line.remove_prefix(at + mark.size());
    }
    return row(cells);
}

std::string clamps(const std::optional<std::string>& printed) {
    std::string rows;
    std::istringstream lines(printed.value_or(""));
    for (std::string line; std::getline(lines, line);) {
        rows += clamp(line);
    }
    const std::string none =
        printed
            ? "none that the program told"
            : "the program's output was not kept, for there was no pseudo-terminal: put it into "
              "a pipe, virtual-head --report FILE ... | cat";
    return "<h2>Clamps</h2>\n<p>What was asked for, and what the program says that it got.</p>\n" +
           (rows.empty() ? "<p id=\"clamps\">" + none + "</p>\n"
                         : table("clamps", {"Setting", "Asked", "Applied", "Limited by"}, rows));
}

// --- Pictures ---

std::string base64(const std::string& bytes) {
    constexpr const char* digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t byte = 0; byte < 3; ++byte) {
            group = group << 8 |
                    (at + byte < bytes.size() ? static_cast<unsigned char>(bytes[at + byte]) : 0U);
        }
        for (std::size_t digit = 0; digit < 4; ++digit) {
            const bool there = at + digit <= bytes.size();
            text += there ? digits[group >> (18 - 6 * digit) & 63] : '=';
        }
    }
    return text;
}

// The line "name: value" of a picture's settings, as "name value".
std::string setting(const std::string& settings, const std::string& name) {
    const std::size_t start = ("\n" + settings).find("\n" + name + ": ");
    if (start == std::string::npos) {
        return "";
    }
    const std::size_t value = start + name.size() + 2;
    return name + " " + settings.substr(value, settings.find('\n', value) - value);
}

std::string picture(const tsThumbnail& small, std::size_t number) {
    std::string caption =
        small.file + " at " + milliseconds(static_cast<std::uint64_t>(small.time.count())) + ", " +
        std::to_string(small.frameWidth) + " x " + std::to_string(small.frameHeight);
    const char* separator = ": ";
    for (const char* name : {"exposure", "analogue gain", "digital gain", "ADC", "vertical scan",
                             "horizontal scan", "pairs flip", "pixel shift"}) {
        if (const std::string text = setting(small.settings, name); !text.empty()) {
            caption += separator + text;
            separator = ", ";
        }
    }
    const std::string id = "frame" + std::to_string(number);
    return "<figure id=\"" + id + "\"><img width=\"" + std::to_string(small.width) +
           "\" height=\"" + std::to_string(small.height) + "\" alt=\"" + escapedMarkup(small.file) +
           "\" src=\"data:image/png;base64," + base64(small.png) + "\"><figcaption>" +
           escapedMarkup(caption) + "</figcaption></figure>\n";
}

std::string gallery(const std::vector<tsThumbnail>& all) {
    std::string text = "<h2>Pictures</h2>\n";
    for (std::size_t at = 0; at < all.size(); ++at) {
        text += picture(all[at], at + 1);
    }
    return text + (all.empty() ? "<p id=\"pictures\">none</p>\n" : "");
}

// --- Link ---

std::string since(const tsAttempt& attempt, const tcMoment& moment, const tcMoment& from) {
    return moment ? milliseconds(*moment - from.value_or(attempt.startNs)) : "never";
}

std::string verdict(const tsAttempt& attempt) {
    for (const tcMoment& flag : attempt.pll) {
        if (!flag) {
            return "the receiver's PLL did not lock";
        }
    }
    std::string missing;
    for (unsigned lane = 0; lane < kLanes; ++lane) {
        missing += attempt.lanes[lane] ? "" : " " + std::to_string(lane);
    }
    if (!missing.empty()) {
        return "lanes that did not lock:" + missing;
    }
    return attempt.aligned ? "aligned" : "not aligned";
}

std::string attemptText(const tsAttempt& attempt, std::size_t number) {
    std::string rows;
    constexpr std::array flags{"locked", "rgLocked", "gbLocked"};
    for (std::size_t at = 0; at < flags.size(); ++at) {
        rows += row({std::string("PLL ") + flags[at], since(attempt, attempt.pll[at], {})},
                    attempt.pll[at] ? "" : kBad);
    }
    for (unsigned lane = 0; lane < kLanes; ++lane) {
        rows += row(
            {"lane " + std::to_string(lane), since(attempt, attempt.lanes[lane], attempt.reset)},
            attempt.lanes[lane] ? "" : kBad);
    }
    rows += row({"aligned", since(attempt, attempt.aligned, attempt.held)},
                attempt.aligned ? "" : kBad);
    const std::string id = "attempt" + std::to_string(number);
    return "<h3>Attempt " + std::to_string(number) + " at " + milliseconds(attempt.startNs) + ": " +
           escapedMarkup(verdict(attempt)) + "</h3>\n" + table(id.c_str(), {"What", "After"}, rows);
}

std::string link(const tsRun& run) {
    std::string text = "<h2>Link training</h2>\n<p>PLL flags count from the start of the attempt, "
                       "lanes from their reset, alignment from the hold.</p>\n";
    for (std::size_t at = 0; at < run.attempts.size(); ++at) {
        text += attemptText(run.attempts[at], at + 1);
    }
    return text + (run.attempts.empty() ? "<p>The frame-control core was never on.</p>\n" : "");
}

// --- Registers ---

std::string fieldsOf(const tsWrite& write) {
    const tsRegisterChange change{write.taken ? write.before : std::nullopt, write.value};
    return write.sensor ? sensorFields(write.address, change) : fpgaFields(write.address, change);
}

std::string writeRow(const tsWrite& write) {
    std::vector<std::string> cells{milliseconds(write.timeNs), write.sensor ? "sensor" : "FPGA"};
    if (write.other.empty()) {
        const int digits = write.sensor ? 6 : 8;
        cells.insert(cells.end(),
                     {hex(write.address, write.sensor ? 3 : 8), fieldsOf(write),
                      write.before ? hex(*write.before, digits) : "", hex(write.value, digits)});
    } else {
        cells.insert(cells.end(), {"", write.other, "", ""});
    }
    cells.push_back(write.fate);
    return row(cells, write.fate.empty() ? "" : kBad);
}

std::string registers(const tsRun& run) {
    std::string rows;
    for (const tsWrite& write : run.writes) {
        rows += writeRow(write);
    }
    return "<h2>Register writes</h2>\n<p>Values as they arrived; the old value is what the "
           "register held. The last column says what became of a write that went wrong. Fields are "
           "named where the register reference has them. The head sees "
           "registers, not requests: it cannot tell what was asked for before a limit was "
           "applied.</p>\n" +
           table("writes", {"Time", "Chip", "Register", "Fields", "Old", "New", ""}, rows);
}

std::string listed(const char* id, const char* title, const std::vector<tsTraceLine>& lines) {
    std::string rows;
    for (const tsTraceLine& line : lines) {
        rows += row({milliseconds(line.timeNs), line.text}, kBad);
    }
    return "<h2>" + std::string(title) + "</h2>\n" +
           (lines.empty() ? "<p id=\"" + std::string(id) + "\">none</p>\n"
                          : table(id, {"Time", "Event"}, rows));
}

constexpr const char* kHead =
    "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
    "<title>A run of the virtual head</title>\n<style>\n"
    "body { font: 14px sans-serif; margin: 2em; color: #222; }\n"
    "table { border-collapse: collapse; }\n"
    "th, td { text-align: left; padding: 2px 12px 2px 0; border-bottom: 1px solid #ddd; "
    "font-variant-numeric: tabular-nums; }\n.bad { color: #b00020; }\n"
    "svg { display: block; margin-bottom: 1em; font-size: 12px; }\nsvg rect { fill: #3b6ea5; }\n"
    "figure { display: inline-block; width: 260px; margin: 0 1em 1em 0; vertical-align: top; }\n"
    "</style>\n</head>\n<body>\n"
    "<h1>A run of the virtual head</h1>\n";

} // namespace

std::string report(const std::vector<tsTraceLine>& trace, const std::vector<tsThumbnail>& pictures,
                   const std::optional<std::string>& printed) {
    const tsRun run = tcRunReader().read(trace);
    return kHead + stages(run) + delays(run) + rails(run) + link(run) + clamps(printed) +
           exposures(run) + gallery(pictures) +
           listed("faults", "Faults of the scenario", run.faults) +
           listed("violations", "Violations", run.violations) +
           listed("failures", "Calls that failed", run.failures) + registers(run) +
           "</body>\n</html>\n";
}

} // namespace sim
