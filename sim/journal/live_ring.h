/// \file
/// The head's events on their way to whoever looks at a run while it goes on: memory that the
/// program shares with another process. The program never waits for the reader; a reader that is
/// too slow loses events, and is told how many.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "sim/base/export.h"
#include "sim/journal/log_line.h"

namespace sim {

/// What both processes see. Words are atomic, because one reads what the other may just overwrite.
struct tsLiveMemory {
    static constexpr std::uint32_t kFormat = 0x4C495631; // "LIV1": programs of one build agree
    static constexpr std::uint64_t kRecords = std::uint64_t{1} << 16;
    static constexpr std::size_t kRecordWords = 16;
    static constexpr std::size_t kFrameBytes = 8192;
    static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

    std::atomic<std::uint32_t> format;      ///< `kFormat` once everything else is in place
    std::atomic<std::uint32_t> bell;        ///< counts changes of `stopAt`; a futex
    std::atomic<std::uint64_t> stopAt;      ///< events after which the program's calls wait
    std::atomic<std::uint64_t> events;      ///< written so far
    std::atomic<std::uint64_t> begun;       ///< records that are written, or being written
    std::atomic<std::uint64_t> written;     ///< records that are written
    std::atomic<std::uint64_t> frames;      ///< pictures that were put into `frame`
    std::atomic<std::uint32_t> frameTurn;   ///< odd while `frame` is being written
    std::atomic<std::uint32_t> frameLength; ///< [bytes]
    std::array<std::atomic<std::uint32_t>, kFrameBytes / 4> frame;
    std::array<std::array<std::atomic<std::uint32_t>, kRecordWords>, kRecords> records;
};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

/// The program's side. All operations but constructor and destructor are possible in a signal
/// handler. Only who holds the head's lock writes.
class tcLiveRing {
public:
    /// \param path file that is made; nobody else may have it
    /// \param stopped whether the program's calls wait from the first event on
    /// \throws std::runtime_error with the path
    tcLiveRing(const std::string& path, bool stopped);
    tcLiveRing(const tcLiveRing&) = delete;
    tcLiveRing& operator=(const tcLiveRing&) = delete;
    ~tcLiveRing();

    void append(const tsLogEvent& event);
    /// Keeps what the latest picture depends on. \param bytes at most `tsLiveMemory::kFrameBytes`
    void keepFrame(std::span<const std::byte> bytes);

    /// \return whether calls are to wait
    [[nodiscard]] bool stopped() const {
        return m_memory->events.load(std::memory_order_relaxed) >=
               m_memory->stopAt.load(std::memory_order_relaxed);
    }
    /// Waits until somebody lets the program go on, or a signal comes.
    void wait() const;
    /// Lets the program go on for good: nobody looks any more.
    void letGo();

private:
    tsLiveMemory* m_memory;
};

/// One event as the reader gets it.
struct tsLiveEvent {
    std::uint64_t number = 0; ///< counted from 0
    tsLogEvent event;         ///< its payload lasts until the next one is read

    /// \return the event's line, without its time
    [[nodiscard]] SIM_API std::string text() const;
};

/// The other side. Not for several threads at once.
class SIM_API tcLiveReader {
public:
    /// \throws std::runtime_error with the path, also where the file is not such memory
    explicit tcLiveReader(const std::string& path);
    tcLiveReader(const tcLiveReader&) = delete;
    tcLiveReader& operator=(const tcLiveReader&) = delete;
    ~tcLiveReader();

    /// \return whether there was an event
    bool next(tsLiveEvent& event);
    /// \return events that were overwritten before they were read, since the last call
    std::uint64_t takeLost();
    /// \return number of pictures so far
    [[nodiscard]] std::uint64_t frames() const;
    /// \return what the latest picture depends on; empty before the first one
    [[nodiscard]] std::string frame() const;

    /// The program's calls wait from now on.
    void stop();
    /// They go on until one more event has happened, and wait again.
    void step();
    void go();
    /// \return whether the program's calls wait, or will at the next event
    [[nodiscard]] bool stopping() const;

private:
    void copy(std::uint64_t record, std::span<std::uint32_t> words) const;
    [[nodiscard]] bool overwritten() const;
    void stopAt(std::uint64_t events);

    tsLiveMemory* m_memory;
    std::uint64_t m_record = 0; // the next one
    std::uint64_t m_number = 0; // of the next event
    std::uint64_t m_lost = 0;
    std::vector<std::uint32_t> m_words; // of the event at hand
};

} // namespace sim
