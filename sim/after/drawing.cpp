#include "sim/after/drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "sim/after/markup.h"
#include "sim/after/trace_reader.h"
#include "sim/base/timed_text.h"

namespace sim {

namespace {

// Measures of the picture [px].
constexpr double kNames = 225;
constexpr double kWidth = 860; // of the time axis
constexpr double kRow = 21;
constexpr double kSignal = 13; // height of a signal in its row
constexpr double kTop = 34;
constexpr double kMargin = 12;
constexpr double kStep = 0.5; // finest step along the time axis

constexpr std::uint64_t kIdleParts = 16; // idle longer than this part of the run is cut short

struct tsSignal {
    std::string name;
    bool real = false;
    std::vector<std::pair<std::uint64_t, double>> changes; // NaN: unknown
};

struct tsDump {
    std::vector<tsSignal> signals;
    std::uint64_t endNs = 0;
};

[[noreturn]] void fail(std::size_t line, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + what);
}

class tcReader {
public:
    tsDump read(std::string_view text) {
        std::istringstream stream{std::string(text)};
        for (std::string line; std::getline(stream, line);) {
            ++m_line;
            take(line);
        }
        if (m_dump.signals.empty()) {
            fail(m_line, "the dump has no variables");
        }
        m_dump.endNs = m_timeNs;
        return m_dump;
    }

private:
    void take(const std::string& line) {
        std::istringstream stream(line);
        std::vector<std::string> words;
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        if (words.empty()) {
            return;
        }
        if (words.front() == "$var") {
            define(words);
        } else if (words.front() == "$timescale" && line != "$timescale 1 ns $end") {
            fail(m_line, "only a scale of 1 ns can be drawn");
        } else if (words.front().front() == '#') {
            advance(words.front().substr(1));
        } else if (words.front().front() == 'r' && words.size() == 2) {
            change(words[1], number(words.front().substr(1)));
        } else if (words.front().front() != '$') {
            change(words.front().substr(1), bit(words.front().front()));
        }
    }

    void define(const std::vector<std::string>& words) {
        if (words.size() != 6 || (words[1] != "wire" && words[1] != "real") ||
            (words[1] == "wire" && words[2] != "1")) {
            fail(m_line, "only scalar wires and real variables can be drawn");
        }
        m_byCode[words[3]] = m_dump.signals.size();
        m_dump.signals.push_back({words[4], words[1] == "real", {}});
    }

    void advance(const std::string& text) {
        std::uint64_t timeNs = 0;
        try {
            timeNs = numberFrom(text, 10);
        } catch (const std::runtime_error&) {
            fail(m_line, "the time is not a number");
        }
        if (timeNs < m_timeNs) {
            fail(m_line, "time goes back");
        }
        m_timeNs = timeNs;
    }

    double number(const std::string& text) const {
        std::istringstream stream(text);
        double value = 0;
        if (!(stream >> value) || !stream.eof()) {
            fail(m_line, "\"" + text + "\" is not a number");
        }
        return value;
    }

    double bit(char value) const {
        if (value == '0' || value == '1') {
            return value - '0';
        }
        if (value != 'x' && value != 'z') {
            fail(m_line, "a wire is 0, 1, x or z");
        }
        return std::nan("");
    }

    void change(const std::string& code, double value) {
        const auto found = m_byCode.find(code);
        if (found == m_byCode.end()) {
            fail(m_line, "no variable has the code \"" + code + "\"");
        }
        m_dump.signals[found->second].changes.emplace_back(m_timeNs, value);
    }

    tsDump m_dump;
    std::map<std::string, std::size_t> m_byCode;
    std::uint64_t m_timeNs = 0;
    std::size_t m_line = 0;
};

// A stretch of time on the axis.
struct tsStretch {
    std::uint64_t fromNs = 0;
    std::uint64_t toNs = 0;
    bool cut = false;
    double x = 0;
    double width = 0;
};

class tcAxis {
public:
    tcAxis(const std::vector<tsSignal>& signals, std::uint64_t endNs) {
        std::vector<std::uint64_t> times{0, endNs};
        for (const tsSignal& signal : signals) {
            for (const auto& [timeNs, value] : signal.changes) {
                times.push_back(timeNs);
            }
        }
        std::sort(times.begin(), times.end());
        split(times, std::max<std::uint64_t>(endNs / kIdleParts, 1));
        place();
    }
    [[nodiscard]] double x(std::uint64_t timeNs) const {
        auto stretch = m_stretches.begin();
        while (stretch + 1 != m_stretches.end() && timeNs > stretch->toNs) {
            ++stretch;
        }
        const auto length =
            static_cast<double>(std::max<std::uint64_t>(stretch->toNs - stretch->fromNs, 1));
        return stretch->x + stretch->width * static_cast<double>(timeNs - stretch->fromNs) / length;
    }
    [[nodiscard]] const std::vector<tsStretch>& stretches() const { return m_stretches; }

private:
    void split(const std::vector<std::uint64_t>& times, std::uint64_t longestNs) {
        m_stretches.push_back({0, 0, false, 0, 0});
        for (std::size_t at = 1; at < times.size(); ++at) {
            if (times[at] - times[at - 1] > longestNs) {
                m_stretches.back().toNs = times[at - 1];
                m_stretches.push_back({times[at - 1], times[at], true, 0, 0});
                m_stretches.push_back({times[at], times[at], false, 0, 0});
            }
            m_stretches.back().toNs = times[at];
        }
    }
    // Cut stretches have all the same width; the others share the rest by their length.
    void place() {
        constexpr double cutWidth = 56;
        std::uint64_t lengthNs = 0;
        double rest = kWidth;
        for (const tsStretch& stretch : m_stretches) {
            lengthNs += stretch.cut ? 0 : stretch.toNs - stretch.fromNs;
            rest -= stretch.cut ? cutWidth : 0;
        }
        double x = kNames;
        for (tsStretch& stretch : m_stretches) {
            const auto length = static_cast<double>(stretch.toNs - stretch.fromNs);
            stretch.x = x;
            stretch.width =
                stretch.cut
                    ? cutWidth
                    : rest * length / static_cast<double>(std::max<std::uint64_t>(lengthNs, 1));
            x += stretch.width;
        }
    }
    std::vector<tsStretch> m_stretches;
};

std::string pixels(double value) {
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.1f", value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string milliseconds(std::uint64_t ns) {
    std::array<char, 32> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%.3g ms", static_cast<double>(ns) / 1e6);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string label(double x, double y, const std::string& text, const char* look) {
    return "<text x=\"" + pixels(x) + "\" y=\"" + pixels(y) + "\" " + look + ">" +
           escapedMarkup(text) + "</text>\n";
}

// The line of a signal. More than two changes in one step of the picture are one blot.
std::string path(const tsSignal& signal, const tcAxis& axis, std::uint64_t endNs, double bottom) {
    double highest = 1;
    for (const auto& [timeNs, value] : signal.changes) {
        highest = std::max(highest, std::isnan(value) ? 0 : value);
    }
    const auto height = [&](double value) {
        return bottom - kSignal * (std::isnan(value) ? 0.5 : value / highest);
    };
    std::string result = "M" + pixels(axis.x(0)) + " " + pixels(height(signal.changes[0].second));
    double lastX = -1;
    unsigned here = 0;
    bool blot = false;
    double y = height(signal.changes[0].second);
    for (const auto& [timeNs, value] : signal.changes) {
        const double x = std::floor(axis.x(timeNs) / kStep) * kStep;
        const bool same = x == lastX;
        here = same ? here + 1 : 0;
        lastX = x;
        const double next = height(value);
        if (!same && blot) {
            result += " V" + pixels(y); // where the blot ended
        }
        blot = here >= 2;
        if (here < 2) {
            result += signal.real ? "" : " H" + pixels(x);
            result += signal.real ? " L" + pixels(x) + " " + pixels(next) : " V" + pixels(next);
        }
        y = next;
    }
    if (blot) {
        result += " V" + pixels(y);
    }
    return result + " H" + pixels(axis.x(endNs));
}

// "LANE0-LOCK to LANE11-LOCK"
std::string rowName(const std::vector<tsSignal>& signals, std::size_t first, std::size_t last) {
    return first == last ? signals[first].name : signals[first].name + " to " + signals[last].name;
}

std::string axisOf(const tcAxis& axis, double bottom) {
    constexpr double leastForTime = 40;
    std::string result;
    double lastX = -leastForTime;
    for (const tsStretch& stretch : axis.stretches()) {
        if (stretch.cut) {
            result += "<rect x=\"" + pixels(stretch.x) + "\" y=\"" + pixels(kTop - 4) +
                      "\" width=\"" + pixels(stretch.width) + "\" height=\"" +
                      pixels(bottom - kTop + 8) + "\" fill=\"#f0f0f0\"/>\n";
            result += label(stretch.x + stretch.width / 2, kTop - 10,
                            milliseconds(stretch.toNs - stretch.fromNs),
                            "text-anchor=\"middle\" fill=\"#777\"");
        } else if (stretch.x - lastX >= leastForTime) {
            result += label(stretch.x, bottom + 18, milliseconds(stretch.fromNs), "fill=\"#777\"");
            lastX = stretch.x;
        }
    }
    const tsStretch& last = axis.stretches().back();
    return result + label(last.x + last.width, bottom + 18, milliseconds(last.toNs),
                          "text-anchor=\"end\" fill=\"#777\"");
}

std::string drawn(const tsDump& dump) {
    std::vector<tsSignal> signals;
    std::copy_if(dump.signals.begin(), dump.signals.end(), std::back_inserter(signals),
                 [](const tsSignal& signal) { return signal.changes.size() > 1; });
    const tcAxis axis(signals, dump.endNs);
    std::string rows;
    double y = kTop;
    for (std::size_t first = 0; first < signals.size();) {
        std::size_t last = first;
        while (last + 1 < signals.size() && signals[last + 1].changes == signals[first].changes) {
            ++last;
        }
        y += kRow;
        rows += label(kMargin, y - 2, rowName(signals, first, last), "fill=\"#222\"");
        rows += "<path d=\"" + path(signals[first], axis, dump.endNs, y) + "\" stroke=\"" +
                (signals[first].real ? "#b3541e" : "#1f5fa8") + "\"/>\n";
        first = last + 1;
    }
    const std::string size = pixels(kNames + kWidth + kMargin) + " " + pixels(y + 32);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size +
           "\" font-family=\"sans-serif\" font-size=\"10\">\n"
           "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" +
           axisOf(axis, y) + "<g fill=\"none\" stroke-width=\"1\">\n" + rows + "</g>\n</svg>\n";
}

} // namespace

std::string drawing(std::string_view dump) {
    return drawn(tcReader().read(dump));
}

} // namespace sim
