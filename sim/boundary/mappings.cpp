#include "sim/boundary/mappings.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>

#include "sim/base/real_calls.h"

namespace sim {

constinit tcMappings g_mappings;

bool tcMappings::add(const tsRange& range) {
    if (m_used == m_ranges.size()) {
        return false;
    }
    m_ranges[m_used++] = range;
    return true;
}

void* tcMappings::map(std::uint32_t physicalAddress, std::size_t length) {
    void* pages =
        real::mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) {
        return nullptr;
    }
    std::uintptr_t start = 0;
    std::memcpy(&start, &pages, sizeof start);
    if (!add({start, length, physicalAddress})) {
        real::munmap(pages, length);
        errno = ENOMEM;
        return nullptr;
    }
    return pages;
}

// The kernel unmaps whole pages and leaves the rest of a mapping as it is.
bool tcMappings::unmap(std::uintptr_t start, std::size_t length, std::uint32_t& first) {
    const std::uintptr_t end = start + length;
    bool found = false;
    for (std::size_t at = 0; at < m_used;) {
        const tsRange range = m_ranges[at];
        const std::uintptr_t rangeEnd = range.start + range.length;
        const std::uintptr_t cutStart = std::max(start, range.start);
        const std::uintptr_t cutEnd = std::min(end, rangeEnd);
        if (cutStart >= cutEnd) {
            ++at;
            continue;
        }
        const auto physicalOf = [&range](std::uintptr_t address) {
            return range.physicalAddress + static_cast<std::uint32_t>(address - range.start);
        };
        if (!found) {
            first = physicalOf(cutStart);
        }
        found = true;
        m_ranges[at] = m_ranges[--m_used];
        if (range.start < cutStart) {
            add({range.start, cutStart - range.start, range.physicalAddress});
        }
        if (cutEnd < rangeEnd) {
            add({cutEnd, rangeEnd - cutEnd, physicalOf(cutEnd)});
        }
    }
    return found;
}

std::optional<std::uint32_t> tcMappings::physical(std::uintptr_t address) const {
    for (std::size_t at = 0; at < m_used; ++at) {
        const std::uintptr_t offset = address - m_ranges[at].start;
        if (offset < m_ranges[at].length) {
            return m_ranges[at].physicalAddress + static_cast<std::uint32_t>(offset);
        }
    }
    return std::nullopt;
}

} // namespace sim
