#include "sim/journal/live_ring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include "sim/base/real_calls.h"

namespace sim {

namespace {

constexpr mode_t kOnlyOurs = 0600;
constexpr std::size_t kWordBytes = 4;

// The first words of an event. Its payload begins behind them and goes on in the next records.
struct tsFirstWords {
    std::uint64_t number;
    std::uint64_t timeNs;
    std::uint64_t value;
    std::uint32_t address;
    std::uint32_t length; // of the payload [bytes]
    std::int16_t error;
    std::uint8_t line;
    std::uint8_t reserved;
};
constexpr std::size_t kFirstWords = 9;
using tcFirstWords = std::array<std::uint32_t, kFirstWords>;
constexpr std::size_t kFirstBytes = kFirstWords * kWordBytes; // without the structure's padding

std::uint64_t recordsOf(std::size_t payloadBytes) {
    constexpr std::size_t record = tsLiveMemory::kRecordWords * kWordBytes;
    return (kFirstBytes + payloadBytes + record - 1) / record;
}

tsLiveMemory* mapped(const std::string& path, int flags, const char* what) {
    const int file = real::open(path.c_str(), flags | O_RDWR | O_CLOEXEC, kOnlyOurs);
    if (file < 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    if ((flags & O_CREAT) != 0 && ::ftruncate(file, sizeof(tsLiveMemory)) != 0) {
        const int error = errno;
        real::close(file);
        throw std::runtime_error(path + ": " + std::strerror(error));
    }
    void* memory = MAP_FAILED;
    if (::lseek(file, 0, SEEK_END) == static_cast<off_t>(sizeof(tsLiveMemory))) {
        memory =
            real::mmap(nullptr, sizeof(tsLiveMemory), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    real::close(file);
    if (memory == MAP_FAILED) {
        throw std::runtime_error(path + ": " + what);
    }
    return static_cast<tsLiveMemory*>(memory);
}

// Puts bytes behind each other into the words of consecutive records.
class tcWordWriter {
public:
    tcWordWriter(tsLiveMemory& memory, std::uint64_t record) : m_memory(memory), m_record(record) {}
    void put(std::uint32_t word) {
        m_memory.records[m_record % tsLiveMemory::kRecords][m_at].store(word,
                                                                        std::memory_order_relaxed);
        if (++m_at == tsLiveMemory::kRecordWords) {
            m_at = 0;
            ++m_record;
        }
    }

private:
    tsLiveMemory& m_memory;
    std::uint64_t m_record;
    std::size_t m_at = 0;
};

template<class Put>
void inWords(std::span<const std::uint8_t> bytes, Put put) {
    std::uint32_t word = 0;
    std::size_t at = 0;
    for (; at + kWordBytes <= bytes.size(); at += kWordBytes) {
        std::memcpy(&word, bytes.data() + at, kWordBytes);
        put(word);
    }
    if (at < bytes.size()) {
        word = 0;
        std::memcpy(&word, bytes.data() + at, bytes.size() - at);
        put(word);
    }
}

void ringBell(tsLiveMemory& memory) {
    memory.bell.fetch_add(1, std::memory_order_release);
    ::syscall(SYS_futex, &memory.bell, FUTEX_WAKE, std::numeric_limits<int>::max(), nullptr,
              nullptr, 0);
}

} // namespace

tcLiveRing::tcLiveRing(const std::string& path, bool stopped)
    : m_memory(mapped(path, O_CREAT | O_EXCL, "no memory for the events of the run")) {
    m_memory->stopAt.store(stopped ? 0 : tsLiveMemory::kNever, std::memory_order_relaxed);
    m_memory->format.store(tsLiveMemory::kFormat, std::memory_order_release);
}

tcLiveRing::~tcLiveRing() {
    real::munmap(m_memory, sizeof *m_memory);
}

void tcLiveRing::append(const tsLogEvent& event) {
    const std::uint64_t record = m_memory->written.load(std::memory_order_relaxed);
    const std::uint64_t number = m_memory->events.load(std::memory_order_relaxed);
    const std::uint64_t after = record + recordsOf(event.payload.size());
    m_memory->begun.store(after, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    const tsFirstWords first{number,
                             event.timeNs,
                             event.value,
                             event.address,
                             static_cast<std::uint32_t>(event.payload.size()),
                             static_cast<std::int16_t>(event.error),
                             static_cast<std::uint8_t>(event.line),
                             0};
    tcFirstWords words{};
    std::memcpy(words.data(), &first, kFirstBytes);
    tcWordWriter writer(*m_memory, record);
    for (const std::uint32_t word : words) {
        writer.put(word);
    }
    inWords(event.payload, [&](std::uint32_t word) { writer.put(word); });
    m_memory->written.store(after, std::memory_order_release);
    m_memory->events.store(number + 1, std::memory_order_release);
}

void tcLiveRing::keepFrame(std::span<const std::byte> bytes) {
    const std::uint32_t turn = m_memory->frameTurn.load(std::memory_order_relaxed);
    m_memory->frameTurn.store(turn + 1, std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    const std::size_t length = std::min(bytes.size(), tsLiveMemory::kFrameBytes);
    const void* start = bytes.data();
    std::size_t at = 0;
    inWords({static_cast<const std::uint8_t*>(start), length}, [&](std::uint32_t word) {
        m_memory->frame[at++].store(word, std::memory_order_relaxed);
    });
    m_memory->frameLength.store(static_cast<std::uint32_t>(length), std::memory_order_relaxed);
    m_memory->frames.fetch_add(1, std::memory_order_relaxed);
    m_memory->frameTurn.store(turn + 2, std::memory_order_release);
}

void tcLiveRing::wait() const {
    const std::uint32_t bell = m_memory->bell.load(std::memory_order_acquire);
    if (stopped()) {
        ::syscall(SYS_futex, &m_memory->bell, FUTEX_WAIT, bell, nullptr, nullptr, 0);
    }
}

void tcLiveRing::letGo() {
    m_memory->stopAt.store(tsLiveMemory::kNever, std::memory_order_relaxed);
    ringBell(*m_memory);
}

std::string tsLiveEvent::text() const {
    tcStringSink sink;
    writeLine(event, sink);
    return sink.take();
}

tcLiveReader::tcLiveReader(const std::string& path)
    : m_memory(mapped(path, 0, "holds no events of a run")) {
    if (m_memory->format.load(std::memory_order_acquire) != tsLiveMemory::kFormat) {
        real::munmap(m_memory, sizeof *m_memory);
        throw std::runtime_error(path + ": holds no events of a run");
    }
}

tcLiveReader::~tcLiveReader() {
    real::munmap(m_memory, sizeof *m_memory);
}

void tcLiveReader::copy(std::uint64_t record, std::span<std::uint32_t> words) const {
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::uint64_t from = record + at / tsLiveMemory::kRecordWords;
        words[at] =
            m_memory->records[from % tsLiveMemory::kRecords][at % tsLiveMemory::kRecordWords].load(
                std::memory_order_relaxed);
    }
}

bool tcLiveReader::overwritten() const {
    std::atomic_thread_fence(std::memory_order_acquire);
    return m_memory->begun.load(std::memory_order_relaxed) - m_record > tsLiveMemory::kRecords;
}

bool tcLiveReader::next(tsLiveEvent& event) {
    while (m_memory->written.load(std::memory_order_acquire) != m_record) {
        tcFirstWords words{};
        tsFirstWords first{};
        copy(m_record, words);
        std::memcpy(&first, words.data(), kFirstBytes);
        const bool whole = !overwritten() && recordsOf(first.length) <= tsLiveMemory::kRecords;
        if (whole) {
            m_words.resize(kFirstWords + (first.length + kWordBytes - 1) / kWordBytes);
            copy(m_record, m_words);
        }
        if (!whole || overwritten()) {
            // Where the events begin that are left is not known: only what comes now.
            m_record = m_memory->written.load(std::memory_order_acquire);
            continue;
        }
        m_record += recordsOf(first.length);
        m_lost += first.number - m_number;
        m_number = first.number + 1;
        const void* payload = m_words.data() + kFirstWords;
        event.number = first.number;
        event.event = {first.timeNs,  static_cast<teLine>(first.line),
                       first.address, first.value,
                       first.error,   {static_cast<const std::uint8_t*>(payload), first.length}};
        return true;
    }
    return false;
}

std::uint64_t tcLiveReader::takeLost() {
    return std::exchange(m_lost, 0);
}

std::uint64_t tcLiveReader::frames() const {
    return m_memory->frames.load(std::memory_order_acquire);
}

std::string tcLiveReader::frame() const {
    for (;;) {
        const std::uint32_t turn = m_memory->frameTurn.load(std::memory_order_acquire);
        const std::size_t length = std::min<std::size_t>(
            m_memory->frameLength.load(std::memory_order_relaxed), tsLiveMemory::kFrameBytes);
        std::string bytes((length + kWordBytes - 1) / kWordBytes * kWordBytes, '\0');
        for (std::size_t at = 0; at * kWordBytes < length; ++at) {
            const std::uint32_t word = m_memory->frame[at].load(std::memory_order_relaxed);
            std::memcpy(bytes.data() + at * kWordBytes, &word, kWordBytes);
        }
        std::atomic_thread_fence(std::memory_order_acquire);
        if (turn % 2 == 0 && m_memory->frameTurn.load(std::memory_order_relaxed) == turn) {
            bytes.resize(length);
            return bytes;
        }
        if (m_memory->frameTurn.load(std::memory_order_relaxed) == turn) {
            return {}; // the program ended while it wrote
        }
    }
}

void tcLiveReader::stopAt(std::uint64_t events) {
    m_memory->stopAt.store(events, std::memory_order_relaxed);
    ringBell(*m_memory);
}

void tcLiveReader::stop() {
    stopAt(m_memory->events.load(std::memory_order_acquire));
}

void tcLiveReader::step() {
    stopAt(m_memory->events.load(std::memory_order_acquire) + 1);
}

void tcLiveReader::go() {
    stopAt(tsLiveMemory::kNever);
}

bool tcLiveReader::stopping() const {
    return m_memory->stopAt.load(std::memory_order_relaxed) != tsLiveMemory::kNever;
}

} // namespace sim
