#include "sim/journal/journal.h"

#include "sim/base/rules.h"
#include "sim/base/text.h"

namespace sim {

namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    const void* start = text.data();
    return {static_cast<const std::uint8_t*>(start), text.size()};
}

} // namespace

void tcJournal::event(teLine line, std::uint32_t address, std::uint64_t value, int error,
                      std::string_view payload) {
    clock.touched();
    keep({clock.now(), line, address, value, error, bytesOf(payload)});
}

void tcJournal::transfer(std::span<const std::uint8_t> bytes, int error) {
    clock.touched();
    keep({clock.now(), teLine::spi, 0, bytes.size(), error, bytes});
}

void tcJournal::violation(teRule rule, std::string_view text) {
    const std::uint64_t now = clock.now();
    checker.violated(rule, now, text);
    tcText line;
    line.add(describe(rule).name).add(": ").add(text);
    keep({now, teLine::violation, 0, 0, 0, bytesOf(line.view())});
}

void tcJournal::state(std::uint64_t timeNs, std::string_view text) {
    if (m_stateEvents) {
        kept(log.append({timeNs, teLine::state, 0, 0, 0, bytesOf(text)}));
    }
}

void tcJournal::spend(std::uint64_t durationNs) {
    clock.advance(durationNs);
    if (m_witness != nullptr) {
        m_witness->timePassed();
    }
}

void tcJournal::keep(const tsLogEvent& event) {
    kept(log.append(event));
    if (m_witness != nullptr) {
        m_witness->sees(event);
    }
}

void tcJournal::kept(bool recorded) {
    if (recorded) {
        m_full = false;
    } else if (!m_full) {
        m_full = true;
        checker.violated(teRule::logFull, clock.now(), "an event did not fit into the log");
    }
}

} // namespace sim
