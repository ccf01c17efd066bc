/// \file
/// The events of a run, kept while it goes on, and the head's state at any of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/after/head_state.h"

namespace live {

/// One event, as a page or program gets it.
struct tsShownEvent {
    std::uint64_t number = 0; ///< counted from 0 over all processes of the run
    unsigned process = 0;     ///< which head it is of, counted from 1
    std::uint64_t timeNs = 0; ///< since that head was built
    std::string text;         ///< as in a log or trace, without the time
};

/// What is kept of a run. Its memory is bounded: of a long run the oldest events are let go, the
/// state at any event that is left stays exact. Any thread may call at any time.
class tcTimeLine {
public:
    /// \param budget about how much memory it may take [bytes]
    explicit tcTimeLine(std::size_t budget);

    /// A program's head begins: the state is that of a head of which nothing is known.
    void begin(unsigned process);
    void add(std::uint64_t timeNs, std::string_view text);
    /// Events of the present head never came. They are told of as one event, "LOST 120 events".
    void lost(std::uint64_t events);

    /// \return number of the oldest event that is kept; `next()` where there is none
    [[nodiscard]] std::uint64_t first() const;
    /// \return number that the next event will have
    [[nodiscard]] std::uint64_t next() const;
    /// \return the events from a number on, those that were let go left out
    [[nodiscard]] std::vector<tsShownEvent> events(std::uint64_t from, std::size_t most) const;
    /// \return the state behind the newest event
    [[nodiscard]] sim::tcHeadState state() const;
    /// \return the state behind that event; empty where it is not kept
    [[nodiscard]] std::optional<sim::tcHeadState> stateAt(std::uint64_t number) const;
    /// \return which head the event is of; 0 where it is not kept
    [[nodiscard]] unsigned processAt(std::uint64_t number) const;

private:
    struct tsEntry {
        std::uint64_t timeNs = 0;
        std::size_t end = 0; // of its text
    };
    // Events of one head that follow each other, and the state in front of them.
    struct tsPiece {
        std::uint64_t first = 0;
        unsigned process = 0;
        sim::tcHeadState before;
        std::string text;
        std::vector<tsEntry> entries;

        [[nodiscard]] std::size_t bytes() const;
        [[nodiscard]] std::string_view textOf(std::size_t at) const;
    };
    void addLocked(std::uint64_t timeNs, std::string_view text);
    void startPiece();
    [[nodiscard]] const tsPiece* pieceOf(std::uint64_t number) const;

    mutable std::mutex m_mutex;
    std::size_t m_budget;
    std::size_t m_closedBytes = 0; // of all pieces but the last one
    std::deque<tsPiece> m_pieces;
    sim::tcHeadState m_state;
    std::uint64_t m_next = 0;
    unsigned m_process = 0;
};

} // namespace live
