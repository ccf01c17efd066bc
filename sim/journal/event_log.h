/// \file
/// The ordered log of everything that the head saw, in memory or on its way to a file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/calls.h"
#include "sim/journal/live_ring.h"
#include "sim/journal/log_line.h"

namespace sim {

/// Records of fixed size in memory that is reserved beforehand: appending is possible in a signal
/// handler. A text or transfer longer than a record's payload goes on in the following records.
class tcEventLog {
public:
    /// \param capacity records
    /// \throws std::bad_alloc
    explicit tcEventLog(std::size_t capacity);
    tcEventLog(const tcEventLog&) = delete;
    tcEventLog& operator=(const tcEventLog&) = delete;
    ~tcEventLog();

    /// \return false when the log is full; nothing is recorded then
    bool append(const tsLogEvent& event);

    void clear();
    /// From now on each event's line, with its time, goes to this descriptor at once instead of
    /// into memory. \param descriptor -1: nowhere
    void streamTo(int descriptor);
    /// As `streamTo`, with the events of the kind `state` too, which a log does not have.
    void traceTo(int descriptor);
    /// From now on each event goes to whoever looks at the run, the kind `state` too.
    /// \param ring null: nobody looks any more; outlives this object otherwise
    void showTo(tcLiveRing* ring) { m_ring = ring; }

    [[nodiscard]] std::vector<tsEvent> events(tcKinds kinds) const;
    [[nodiscard]] std::vector<std::string> lines(tcKinds kinds, bool timed) const;

private:
    struct tsRecord {
        std::uint64_t timeNs;
        std::uint64_t value;
        std::uint32_t address;
        std::uint32_t length; // of the payload [bytes]
        teLine line;
        std::uint8_t reserved;
        std::int16_t error; // errno or kShort
        std::array<std::uint8_t, 36> payload;
    };
    static_assert(sizeof(tsRecord) == 64);

    static std::size_t recordsOf(std::uint32_t payloadLength);
    static tsLogEvent eventOf(const tsRecord& record);
    template<class Visitor>
    void visit(tcKinds kinds, Visitor visitor) const;
    void streamOut(const tsRecord& record) const;
    static void streamOut(const tsRecord& record, int descriptor);

    std::span<tsRecord> m_records;
    std::size_t m_used = 0;
    bool m_streaming = false;
    int m_descriptor = -1;
    int m_traceDescriptor = -1;
    tcLiveRing* m_ring = nullptr;
};

} // namespace sim
