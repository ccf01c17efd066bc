#include "apps/live/time_line.h"

#include <algorithm>

namespace live {

namespace {

constexpr std::size_t kPieceEvents = 2048; // what has to be gone through for a state, at most

} // namespace

std::size_t tcTimeLine::tsPiece::bytes() const {
    return sizeof *this + before.bytes() + text.capacity() + entries.capacity() * sizeof(tsEntry);
}

std::string_view tcTimeLine::tsPiece::textOf(std::size_t at) const {
    const std::size_t begin = at == 0 ? 0 : entries[at - 1].end;
    return std::string_view(text).substr(begin, entries[at].end - begin);
}

tcTimeLine::tcTimeLine(std::size_t budget) : m_budget(budget) {}

void tcTimeLine::begin(unsigned process) {
    const std::lock_guard lock(m_mutex);
    m_process = process;
    m_state = {};
    startPiece();
}

void tcTimeLine::startPiece() {
    if (!m_pieces.empty()) {
        m_closedBytes += m_pieces.back().bytes();
    }
    m_pieces.push_back({m_next, m_process, m_state, {}, {}});
    while (m_closedBytes > m_budget && m_pieces.size() > 1) {
        m_closedBytes -= m_pieces.front().bytes();
        m_pieces.pop_front();
    }
}

void tcTimeLine::add(std::uint64_t timeNs, std::string_view text) {
    const std::lock_guard lock(m_mutex);
    addLocked(timeNs, text);
}

void tcTimeLine::addLocked(std::uint64_t timeNs, std::string_view text) {
    if (m_pieces.empty() || m_pieces.back().entries.size() == kPieceEvents) {
        startPiece();
    }
    tsPiece& piece = m_pieces.back();
    piece.text += text;
    piece.entries.push_back({timeNs, piece.text.size()});
    m_state.take(m_next++, timeNs, text);
}

void tcTimeLine::lost(std::uint64_t events) {
    const std::lock_guard lock(m_mutex);
    m_state.lost(events);
    startPiece();
    addLocked(m_state.timeNs(), "LOST " + std::to_string(events) + " events");
}

std::uint64_t tcTimeLine::first() const {
    const std::lock_guard lock(m_mutex);
    return m_pieces.empty() ? m_next : m_pieces.front().first;
}

std::uint64_t tcTimeLine::next() const {
    const std::lock_guard lock(m_mutex);
    return m_next;
}

const tcTimeLine::tsPiece* tcTimeLine::pieceOf(std::uint64_t number) const {
    const auto behind =
        std::upper_bound(m_pieces.begin(), m_pieces.end(), number,
                         [](std::uint64_t n, const tsPiece& piece) { return n < piece.first; });
    if (behind == m_pieces.begin()) {
        return nullptr;
    }
    const tsPiece& piece = *std::prev(behind);
    return number - piece.first < piece.entries.size() ? &piece : nullptr;
}

std::vector<tsShownEvent> tcTimeLine::events(std::uint64_t from, std::size_t most) const {
    const std::lock_guard lock(m_mutex);
    std::vector<tsShownEvent> result;
    if (m_pieces.empty()) {
        return result;
    }
    std::uint64_t number = std::max(from, m_pieces.front().first);
    while (result.size() < most) {
        const tsPiece* const piece = pieceOf(number);
        if (piece == nullptr) {
            break;
        }
        const auto at = static_cast<std::size_t>(number - piece->first);
        result.push_back(
            {number, piece->process, piece->entries[at].timeNs, std::string(piece->textOf(at))});
        ++number;
    }
    return result;
}

sim::tcHeadState tcTimeLine::state() const {
    const std::lock_guard lock(m_mutex);
    return m_state;
}

std::optional<sim::tcHeadState> tcTimeLine::stateAt(std::uint64_t number) const {
    const std::lock_guard lock(m_mutex);
    const tsPiece* const piece = pieceOf(number);
    if (piece == nullptr) {
        return std::nullopt;
    }
    sim::tcHeadState state = piece->before;
    for (std::size_t at = 0; piece->first + at <= number; ++at) {
        state.take(piece->first + at, piece->entries[at].timeNs, piece->textOf(at));
    }
    return state;
}

unsigned tcTimeLine::processAt(std::uint64_t number) const {
    const std::lock_guard lock(m_mutex);
    const tsPiece* const piece = pieceOf(number);
    return piece == nullptr ? 0 : piece->process;
}

} // namespace live
