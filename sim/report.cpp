#include "sim/report.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <optional>

#include "fpga/registers.h"
#include "sensor/registers.h"
#include "sim/markup.h"

namespace sim {

namespace {

constexpr unsigned kLanes = 12;
constexpr std::size_t kPllFlags = 3;

using tcMoment = std::optional<std::uint64_t>; // [ns]; empty: it did not happen

struct tsWrite {
    std::uint64_t timeNs = 0;
    bool sensor = false;
    std::uint32_t address = 0; // register number, or physical address
    std::optional<std::uint32_t> before;
    std::uint32_t value = 0;
    std::string fate; // empty: it arrived
};

struct tsAttempt {
    std::uint64_t startNs = 0;
    std::array<tcMoment, kPllFlags> pll;
    tcMoment reset; // of the lanes
    std::array<tcMoment, kLanes> lanes;
    tcMoment held;
    tcMoment aligned;
};

// What a run was, in the order of the page.
struct tsRun {
    std::map<std::string, std::uint64_t> first; // when something happened first
    std::vector<tsAttempt> attempts;
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
            take(line);
        }
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
        if (what == "SPI" && line.words.size() == 5) {
            takeSensorWrite(line, failed);
        } else if (what == "WRITE" && line.words.size() >= 3) {
            note({line.timeNs,
                  false,
                  static_cast<std::uint32_t>(numberFrom(line.words[1])),
                  {},
                  static_cast<std::uint32_t>(numberFrom(line.words[2])),
                  {}});
        } else if (what == "ADC" && !failed) {
            takeConversion(line.timeNs);
        } else if (what == "GPIO" && line.words.size() == 4 && line.words[3] == "1" && !failed) {
            happened(line.words[1], line.timeNs);
        } else if (what == "STATE" && line.words.size() > 2) {
            takeState(line);
        }
    }

    // Readings before reset is released say nothing about the supplies under load.
    void takeConversion(std::uint64_t timeNs) {
        if (m_run.first.contains("RESET_B")) {
            happened("conversion", timeNs);
        }
    }

    void takeSensorWrite(const tsTraceLine& line, bool failed) {
        std::uint32_t word = 0;
        for (unsigned byte = 0; byte < 4; ++byte) {
            const auto value = static_cast<std::uint32_t>(numberFrom(line.words[1 + byte], 16));
            word |= value << (8 * byte);
        }
        happened("register", line.timeNs);
        note({line.timeNs,
              true,
              word >> sensorWire::kAddressShift,
              {},
              word & sensorWire::kValueMask,
              failed ? "lost: the transfer failed" : ""});
    }

    void note(tsWrite write) {
        std::map<std::uint32_t, std::uint32_t>& held = write.sensor ? m_sensor : m_fpga;
        const auto before = held.find(write.address);
        if (before != held.end()) {
            write.before = before->second;
        }
        if (write.fate.empty()) {
            held[write.address] = write.value;
        }
        m_run.writes.push_back(write);
    }

    void takeState(const tsTraceLine& line) {
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

    tsRun m_run;
    std::map<std::uint32_t, std::uint32_t> m_sensor;
    std::map<std::uint32_t, std::uint32_t> m_fpga;
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

std::string stages(const tsRun& run) {
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
    std::vector<std::pair<std::uint64_t, std::string>> reached;
    std::string never;
    for (const auto& [what, name] : names) {
        const auto found = run.first.find(what);
        if (found != run.first.end()) {
            reached.emplace_back(found->second, name);
        } else {
            never += row({"never", name, ""});
        }
    }
    std::stable_sort(reached.begin(), reached.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    reached.emplace_back(run.endNs, "end of the run");
    std::string rows;
    for (std::size_t at = 0; at < reached.size(); ++at) {
        const auto& [timeNs, name] = reached[at];
        const bool last = at + 1 == reached.size();
        rows += row(
            {milliseconds(timeNs), name, last ? "" : milliseconds(reached[at + 1].first - timeNs)});
    }
    return "<h2>Stages</h2>\n" + table("stages", {"Time", "Stage", "Until the next"}, rows + never);
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

template<class Fields>
std::string fieldsOf(const Fields& fields, std::uint32_t number, const tsWrite& write) {
    std::string text;
    for (const tsRegisterField& field : fields) {
        if (field.address != number) {
            continue;
        }
        const std::uint32_t now = write.value >> field.shift & field.mask;
        text += (text.empty() ? "" : ", ") + std::string(field.name) + " ";
        if (write.before && (*write.before >> field.shift & field.mask) != now) {
            text += std::to_string(*write.before >> field.shift & field.mask) + " to ";
        }
        text += std::to_string(now);
    }
    return text;
}

std::string nameOf(const tsWrite& write) {
    if (write.sensor) {
        return fieldsOf(sensorRegisters::kAll, write.address, write);
    }
    const std::uint32_t offset = write.address - fpgaAddresses::kFrameCtrl;
    if (offset < 4 * fpgaAddresses::kFrameCtrlWords) {
        return fieldsOf(frameCtrlRegisters::kAll, offset / 4, write);
    }
    return "";
}

std::string registers(const tsRun& run) {
    std::string rows;
    for (const tsWrite& write : run.writes) {
        const int digits = write.sensor ? 6 : 8;
        rows += row({milliseconds(write.timeNs), write.sensor ? "sensor" : "FPGA",
                     hex(write.address, write.sensor ? 3 : 8), nameOf(write),
                     write.before ? hex(*write.before, digits) : "", hex(write.value, digits),
                     write.fate},
                    write.fate.empty() ? "" : kBad);
    }
    return "<h2>Register writes</h2>\n<p>Values as written; the old value is that of the write "
           "before. Fields are named where the register reference has them. The head sees "
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
    "font-variant-numeric: tabular-nums; }\n.bad { color: #b00020; }\n</style>\n</head>\n<body>\n"
    "<h1>A run of the virtual head</h1>\n";

} // namespace

std::string report(const std::vector<tsTraceLine>& trace) {
    const tsRun run = tcRunReader().read(trace);
    return kHead + stages(run) + delays(run) + link(run) +
           listed("faults", "Faults of the scenario", run.faults) +
           listed("violations", "Violations", run.violations) +
           listed("failures", "Calls that failed", run.failures) + registers(run) +
           "</body>\n</html>\n";
}

} // namespace sim
