#include "sim/journal/event_log.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sys/mman.h>

#include "sim/base/real_calls.h"

namespace sim {

namespace {

// Writes a line to a descriptor in as few pieces as a small buffer allows.
class tcDescriptorSink final : public tcTextSink {
public:
    explicit tcDescriptorSink(int descriptor) : m_descriptor(descriptor) {}
    void add(std::string_view text) override {
        for (const char character : text) {
            if (m_length == m_buffer.size()) {
                flush();
            }
            m_buffer[m_length++] = character;
        }
    }
    void flush() {
        std::size_t done = 0;
        while (done < m_length) {
            const ssize_t written =
                real::write(m_descriptor, m_buffer.data() + done, m_length - done);
            if (written <= 0) {
                break;
            }
            done += static_cast<std::size_t>(written);
        }
        m_length = 0;
    }

private:
    int m_descriptor;
    std::array<char, 1024> m_buffer{};
    std::size_t m_length = 0;
};

constexpr std::size_t kBigEnoughToGiveBack = 4096; // records

} // namespace

tcEventLog::tcEventLog(std::size_t capacity) {
    void* memory = real::mmap(nullptr, capacity * sizeof(tsRecord), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    m_records = {static_cast<tsRecord*>(memory), capacity};
}

tcEventLog::~tcEventLog() {
    real::munmap(m_records.data(), m_records.size_bytes());
}

std::size_t tcEventLog::recordsOf(std::uint32_t payloadLength) {
    constexpr std::size_t first = sizeof(tsRecord::payload);
    if (payloadLength <= first) {
        return 1;
    }
    return 1 + (payloadLength - first + sizeof(tsRecord) - 1) / sizeof(tsRecord);
}

tsLogEvent tcEventLog::eventOf(const tsRecord& record) {
    // The payload is the record's last member and goes on in the records behind it.
    const void* start = &record;
    const auto* bytes = static_cast<const std::uint8_t*>(start);
    return {record.timeNs, record.line,  record.address,
            record.value,  record.error, {bytes + offsetof(tsRecord, payload), record.length}};
}

bool tcEventLog::append(const tsLogEvent& event) {
    if (m_ring != nullptr) {
        m_ring->append(event);
    }
    if (m_streaming) {
        m_used = 0;
        if (m_descriptor < 0 && m_traceDescriptor < 0) {
            return true;
        }
    }
    const auto length = static_cast<std::uint32_t>(event.payload.size());
    const std::size_t needed = recordsOf(length);
    if (m_records.size() - m_used < needed) {
        return false;
    }
    tsRecord& record = m_records[m_used];
    record.timeNs = event.timeNs;
    record.value = event.value;
    record.address = event.address;
    record.length = length;
    record.line = event.line;
    record.error = static_cast<std::int16_t>(event.error);
    if (length != 0) {
        void* start = &record;
        std::memcpy(static_cast<std::uint8_t*>(start) + offsetof(tsRecord, payload),
                    event.payload.data(), length);
    }
    m_used += needed;
    if (m_streaming) {
        streamOut(record);
    }
    return true;
}

void tcEventLog::clear() {
    if (m_used > kBigEnoughToGiveBack) {
        madvise(m_records.data(), m_records.size_bytes(), MADV_DONTNEED);
    }
    m_used = 0;
}

void tcEventLog::streamTo(int descriptor) {
    m_streaming = true;
    m_descriptor = descriptor;
}

void tcEventLog::traceTo(int descriptor) {
    m_streaming = true;
    m_traceDescriptor = descriptor;
}

void tcEventLog::streamOut(const tsRecord& record) const {
    if (m_descriptor >= 0 && record.line != teLine::state) {
        streamOut(record, m_descriptor);
    }
    if (m_traceDescriptor >= 0) {
        streamOut(record, m_traceDescriptor);
    }
}

void tcEventLog::streamOut(const tsRecord& record, int descriptor) {
    tcDescriptorSink sink(descriptor);
    writeTime(record.timeNs, sink);
    writeLine(eventOf(record), sink);
    sink.add("\n");
    sink.flush();
}

template<class Visitor>
void tcEventLog::visit(tcKinds kinds, Visitor visitor) const {
    for (std::size_t at = 0; at < m_used; at += recordsOf(m_records[at].length)) {
        if (kinds.contains(kindOf(m_records[at].line))) {
            visitor(m_records[at]);
        }
    }
}

std::vector<std::string> tcEventLog::lines(tcKinds kinds, bool timed) const {
    std::vector<std::string> result;
    visit(kinds, [&](const tsRecord& record) {
        tcStringSink sink;
        if (timed) {
            writeTime(record.timeNs, sink);
        }
        writeLine(eventOf(record), sink);
        result.push_back(sink.take());
    });
    return result;
}

std::vector<tsEvent> tcEventLog::events(tcKinds kinds) const {
    std::vector<tsEvent> result;
    visit(kinds, [&](const tsRecord& record) {
        const std::span<const std::uint8_t> payload = eventOf(record).payload;
        tsEvent event;
        event.time = std::chrono::nanoseconds(record.timeNs);
        event.kind = kindOf(record.line);
        event.address = record.address;
        event.value = record.value;
        event.error = record.error;
        if (record.line == teLine::spi) {
            event.bytes.assign(payload.begin(), payload.end());
        } else if (record.line == teLine::violation) {
            event.subject = asText(payload).substr(0, asText(payload).find(':'));
        } else if (record.line == teLine::state) {
            event.subject = asText(payload).substr(0, asText(payload).find(' '));
        } else if (record.line != teLine::note) {
            event.subject = asText(payload);
        }
        tcStringSink sink;
        writeLine(eventOf(record), sink);
        event.text = sink.take();
        result.push_back(std::move(event));
    });
    return result;
}

} // namespace sim
