#include "sim/after/drawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <vector>

#include "sim/after/drawing/dump_reader.h"
#include "sim/after/drawing/rows.h"
#include "sim/after/drawing/time_axis.h"
#include "sim/after/markup.h"

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
std::string path(const tsSignal& signal, const tcTimeAxis& axis, std::uint64_t endNs,
                 double bottom) {
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

// What a row's name and line look like.
struct tsLook {
    const char* name;
    const char* line;
};

tsLook lookOf(const tsRow& row) {
    if (row.stoodStill) {
        return {"fill=\"#b00020\" font-weight=\"bold\"", "stroke=\"#b00020\" stroke-width=\"2\""};
    }
    return {"fill=\"#222\"", row.signal.real ? "stroke=\"#b3541e\"" : "stroke=\"#1f5fa8\""};
}

std::string axisOf(const tcTimeAxis& axis, double bottom) {
    constexpr double leastForTime = 40;
    const tsStretch& last = axis.stretches().back();
    const double lastTime = last.x + last.width - 2 * leastForTime; // where the end's text begins
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
        } else if (stretch.x - lastX >= leastForTime && stretch.x <= lastTime) {
            result += label(stretch.x, bottom + 18, milliseconds(stretch.fromNs), "fill=\"#777\"");
            lastX = stretch.x;
        }
    }
    return result + label(last.x + last.width, bottom + 18, milliseconds(last.toNs),
                          "text-anchor=\"end\" fill=\"#777\"");
}

std::string picture(const tsDump& dump, teDrawn drawn) {
    std::vector<tsRow> rows = rowsOf(dump);
    if (drawn == teDrawn::piece) {
        std::erase_if(rows, [](const tsRow& row) { return row.stoodStill; });
    }
    std::vector<tsSignal> signals;
    std::transform(rows.begin(), rows.end(), std::back_inserter(signals),
                   [](const tsRow& row) { return row.signal; });
    const tcTimeAxis axis(signals, dump.endNs, kNames, kWidth);
    std::string lines;
    double y = kTop;
    for (const tsRow& row : rows) {
        y += kRow;
        const tsLook look = lookOf(row);
        lines += label(kMargin, y - 2, row.name, look.name);
        lines += "<path d=\"" + path(row.signal, axis, dump.endNs, y) + "\" " + look.line + "/>\n";
    }
    const std::string size = pixels(kNames + kWidth + kMargin) + " " + pixels(y + 32);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + size +
           "\" font-family=\"sans-serif\" font-size=\"10\">\n"
           "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n" +
           axisOf(axis, y) + "<g fill=\"none\" stroke-width=\"1\">\n" + lines + "</g>\n</svg>\n";
}

} // namespace

std::string drawing(std::string_view dump, teDrawn drawn) {
    return picture(readDump(dump), drawn);
}

} // namespace sim
