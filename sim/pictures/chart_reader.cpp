#include "sim/base/frame.h"

#include <algorithm>
#include <span>
#include <stdexcept>

#include "sensor/registers.h"
#include "sim/pictures/chart.h"

namespace sim {

namespace {

using tcLine = std::span<const std::uint16_t>;

// How many of a line's pixels must say the same to be believed.
bool most(std::size_t count, std::size_t of) {
    return of > 0 && 4 * count >= 3 * of;
}

std::optional<std::uint32_t> number(std::uint16_t code, std::int32_t limit) {
    const std::uint32_t value = code - chart::kFirstCode; // below the first code: very large
    return value < static_cast<std::uint32_t>(limit) ? std::optional(value) : std::nullopt;
}

// A line whose pixels agree on a row.
std::optional<std::uint32_t> rowOf(tcLine line) {
    std::vector<std::uint16_t> sorted(line.begin(), line.end());
    std::sort(sorted.begin(), sorted.end());
    if (sorted.empty()) {
        return std::nullopt;
    }
    const std::uint16_t middle = sorted[sorted.size() / 2];
    const auto count = std::count(sorted.begin(), sorted.end(), middle);
    return most(static_cast<std::size_t>(count), line.size()) ? number(middle, sensorArray::kRows)
                                                              : std::nullopt;
}

// Rows are believed where they count: lines of one code lie in the chart's wedge, too. Binned,
// they count by two; with swapped pairs they are up to three apart.
bool counts(const std::vector<std::optional<std::uint32_t>>& rows, std::size_t line) {
    constexpr std::size_t near = 3;    // lines
    constexpr std::uint32_t apart = 6; // rows
    const std::size_t last = std::min(line + near, rows.size() - 1);
    for (std::size_t at = line - std::min(line, near); at <= last; ++at) {
        if (rows[at] && *rows[at] != *rows[line] && *rows[at] < *rows[line] + apart &&
            *rows[line] < *rows[at] + apart) {
            return true;
        }
    }
    return false;
}

// A line whose pixels count up or down.
bool countsColumns(tcLine line) {
    std::size_t up = 0;
    std::size_t down = 0;
    for (std::size_t at = 1; at < line.size(); ++at) {
        if (number(line[at], sensorArray::kColumns) &&
            number(line[at - 1], sensorArray::kColumns)) {
            up += line[at] == line[at - 1] + 1 ? 1U : 0U;
            down += line[at] + 1 == line[at - 1] ? 1U : 0U;
        }
    }
    return line.size() > 1 && most(std::max(up, down), line.size() - 1);
}

} // namespace

std::uint16_t tsFrame::at(std::uint32_t x, std::uint32_t y) const {
    if (x >= width || y >= height) {
        throw std::out_of_range("frame: pixel " + std::to_string(x) + " " + std::to_string(y) +
                                " is outside " + std::to_string(width) + " x " +
                                std::to_string(height));
    }
    return pixels[std::size_t{y} * width + x];
}

tsChartReading readChart(const tsFrame& frame) {
    tsChartReading reading;
    reading.columns.resize(frame.width);
    reading.rows.resize(frame.height);
    std::vector<std::optional<std::uint32_t>> rows(frame.height);
    bool columnsKnown = false;
    for (std::size_t y = 0; y < frame.height; ++y) {
        const tcLine line = tcLine(frame.pixels).subspan(y * frame.width, frame.width);
        if (!columnsKnown && countsColumns(line)) {
            columnsKnown = true;
            for (std::size_t x = 0; x < frame.width; ++x) {
                reading.columns[x] = number(line[x], sensorArray::kColumns);
            }
        } else {
            rows[y] = rowOf(line);
        }
    }
    for (std::size_t y = 0; y < frame.height; ++y) {
        reading.rows[y] = rows[y] && counts(rows, y) ? rows[y] : std::nullopt;
    }
    return reading;
}

} // namespace sim
