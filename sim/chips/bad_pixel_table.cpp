#include "sim/chips/bad_pixel_table.h"

#include <algorithm>

#include "sensor/registers.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"

namespace sim {

void tcBadPixelTable::check(std::span<const std::uint32_t> words, std::uint32_t entries) {
    tcText text;
    if (entries > limits::kMostBadPixels) {
        text.add("the number of entries is ").hex(entries, 8);
        m_journal.violation(teRule::badPixelTable, text.view());
        return;
    }
    for (std::uint32_t at = 0; at < entries; ++at) {
        const std::uint32_t entry = words[at];
        const bool inside = (entry >> 16) < static_cast<std::uint32_t>(sensorArray::kRows) &&
                            (entry & 0xFFFF) < static_cast<std::uint32_t>(sensorArray::kColumns);
        if (!inside || (at > 0 && entry <= words[at - 1])) {
            text.add("entry ").decimal(at).add(" is x ").decimal(entry & 0xFFFF).add(", y ");
            text.decimal(entry >> 16).add(inside ? ": not in raster order" : ": outside");
            m_journal.violation(teRule::badPixelTable, text.view());
            return;
        }
    }
}

void tcBadPixelTable::takeOver(std::span<const std::uint32_t> words, std::uint32_t entries,
                               std::uint64_t waitsNs) {
    check(words, entries);
    m_pendingEntries = entries;
    std::copy_n(words.begin(), m_pendingWords.size(), m_pendingWords.begin());
    m_pending = true;
    m_pendingNs = m_journal.clock.now() + waitsNs;
}

std::optional<std::uint32_t> tcBadPixelTable::newlyInForce() {
    if (!m_pending || m_journal.clock.now() < m_pendingNs) {
        return std::nullopt;
    }
    m_pending = false;
    m_inForce = m_pendingWords;
    return m_pendingEntries;
}

} // namespace sim
