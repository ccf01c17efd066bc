#include "sim/pictures/fpga_image.h"

#include <algorithm>
#include <optional>
#include <span>

namespace sim {

namespace {

// Where a line of the reassembled picture stands in the raw frame.
std::uint32_t rawLine(std::uint32_t line, bool pairsFlip) {
    return pairsFlip ? line ^ 1U : line;
}

// The part of a raw frame that the frame-control core takes as a picture: porches skipped, cut to
// the resolution. Its lines and columns keep the numbers that they have in the sensor's array.
class tcArrived {
public:
    tcArrived(const tsFpgaImage& settings, const tsRawFrame& raw)
        : m_settings(settings),
          m_raw(raw),
          m_width(visible(raw.width, settings.porchX, settings.width)),
          m_height(visible(2 * raw.pairs, settings.porchY, settings.height)) {}

    // \return the pixel with these numbers; 0 when it did not arrive
    [[nodiscard]] std::uint16_t at(std::uint32_t column, std::uint32_t line) const {
        const std::uint32_t x = column - m_raw.firstColumn; // left of it: very large
        const std::uint32_t y = line - m_raw.firstLine;
        if (x >= m_width || y >= m_height) {
            return 0;
        }
        const std::uint32_t from = rawLine(y + m_settings.porchY, m_settings.pairsFlip);
        return m_raw.pixels[std::size_t{from} * m_raw.width + x + m_settings.porchX];
    }

private:
    static std::uint32_t visible(std::uint32_t sent, std::uint32_t porch, std::uint32_t wanted) {
        return std::min(sent - std::min(sent, porch), wanted);
    }

    const tsFpgaImage& m_settings;
    const tsRawFrame& m_raw;
    std::uint32_t m_width;
    std::uint32_t m_height;
};

// Replaces the pixels of the map by the mean of their neighbours to the left and to the right.
class tcReplacement {
public:
    explicit tcReplacement(const tsFpgaImage& settings)
        : m_settings(settings),
          m_entries(std::span(settings.table)
                        .first(std::min<std::size_t>(settings.entries, settings.table.size()))) {}

    void apply(tsFrame& frame) const {
        for (const std::uint32_t entry : m_entries) {
            const std::uint32_t x = (entry & 0xFFFF) - m_settings.mapX; // left of it: very large
            const std::uint32_t y = (entry >> 16) - m_settings.mapY;
            if (x < std::min(frame.width, m_settings.mapWidth) &&
                y < std::min(frame.height, m_settings.mapHeight)) {
                replace(frame, x, y);
            }
        }
    }

private:
    [[nodiscard]] bool listed(std::uint32_t x, std::uint32_t y) const {
        const std::uint32_t entry = (y + m_settings.mapY) << 16 | (x + m_settings.mapX);
        return std::find(m_entries.begin(), m_entries.end(), entry) != m_entries.end();
    }

    // A neighbour that is no better than the pixel itself does not count.
    [[nodiscard]] std::optional<std::uint32_t> neighbour(const tsFrame& frame, std::uint32_t x,
                                                         std::uint32_t y) const {
        if (x >= frame.width || listed(x, y)) {
            return std::nullopt;
        }
        return frame.at(x, y);
    }

    void replace(tsFrame& frame, std::uint32_t x, std::uint32_t y) const {
        const std::uint32_t distance = m_settings.color ? 2 : 1;
        const std::optional<std::uint32_t> left = neighbour(frame, x - distance, y);
        const std::optional<std::uint32_t> right = neighbour(frame, x + distance, y);
        if (left || right) {
            const std::uint32_t sum = (left ? *left : *right) + (right ? *right : *left);
            frame.pixels[std::size_t{y} * frame.width + x] = static_cast<std::uint16_t>(sum / 2);
        }
    }

    const tsFpgaImage& m_settings;
    std::span<const std::uint32_t> m_entries;
};

void shift(tsFrame& frame, bool left, std::uint32_t amount) {
    if (amount == 0) {
        return;
    }
    for (std::uint16_t& word : frame.pixels) {
        word = static_cast<std::uint16_t>(left ? std::uint32_t{word} << amount
                                               : std::uint32_t{word} >> amount);
    }
}

} // namespace

tsFrame fpgaImage(const tsFpgaImage& settings, const tsRawFrame& raw) {
    tsFrame frame;
    frame.width = settings.roiWidth;
    frame.height = settings.roiHeight;
    frame.pixels.reserve(std::size_t{frame.width} * frame.height);
    const tcArrived arrived(settings, raw);
    for (std::uint32_t y = 0; y < frame.height; ++y) {
        for (std::uint32_t x = 0; x < frame.width; ++x) {
            frame.pixels.push_back(arrived.at(settings.roiX + x, settings.roiY + y));
        }
    }
    if (settings.replace) {
        tcReplacement(settings).apply(frame);
    }
    shift(frame, settings.shiftLeft, settings.shift);
    return frame;
}

} // namespace sim
