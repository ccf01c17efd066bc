#include "sim/boundary/hardware.h"

#include <algorithm>
#include <cerrno>
#include <sys/mman.h>

#include "sim/base/real_calls.h"
#include "sim/base/text.h"

namespace sim {

constinit tcHardware g_hardware;

int tcHardware::map(int descriptor, std::uint32_t physicalAddress, std::size_t length,
                    int protection, int flags) {
    auto* const pages = std::find_if(m_pages.begin(), m_pages.end(), [&](const tsPages& known) {
        return known.length == 0 || (known.physicalAddress == physicalAddress &&
                                     known.length == length && known.protection == protection);
    });
    if (pages == m_pages.end()) {
        return ENOMEM;
    }
    if (pages->length == 0) {
        void* const start = real::mmap(nullptr, length, protection, flags, descriptor,
                                       static_cast<std::int64_t>(physicalAddress));
        if (start == MAP_FAILED) {
            return errno;
        }
        *pages = {physicalAddress, length, protection, static_cast<volatile std::uint8_t*>(start)};
    }
    return 0;
}

template<class Word>
volatile Word* tcHardware::at(std::uint32_t physicalAddress) const {
    for (const tsPages& pages : m_pages) {
        const std::uint32_t offset = physicalAddress - pages.physicalAddress;
        if (pages.length >= sizeof(Word) && offset <= pages.length - sizeof(Word)) {
            volatile void* const word = pages.start + offset;
            return static_cast<volatile Word*>(word);
        }
    }
    tcText text;
    stopProgram(
        text.add("virtual head: nothing is mapped at ").hex(physicalAddress, 8).add("\n").view());
}

std::uint32_t tcHardware::load(std::uint32_t physicalAddress, unsigned width) const {
    switch (width) {
    case 1:
        return *at<std::uint8_t>(physicalAddress);
    case 2:
        return *at<std::uint16_t>(physicalAddress);
    default:
        return *at<std::uint32_t>(physicalAddress);
    }
}

void tcHardware::store(std::uint32_t physicalAddress, unsigned width, std::uint32_t value) const {
    switch (width) {
    case 1:
        *at<std::uint8_t>(physicalAddress) = static_cast<std::uint8_t>(value);
        break;
    case 2:
        *at<std::uint16_t>(physicalAddress) = static_cast<std::uint16_t>(value);
        break;
    default:
        *at<std::uint32_t>(physicalAddress) = value;
        break;
    }
}

} // namespace sim
