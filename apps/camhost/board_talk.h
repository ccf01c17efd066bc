/// \file
/// What a board tells by printing only.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace camhost {

/// No operation of a board tells its supplies and its link; boards print them while they bring the
/// head up. This stands in a stream, hands everything on as it comes, and keeps
///
/// - supplies: the last "NAME: VOLTS" of every name that begins with V;
/// - the link: the lines that speak of locks or alignment, in their order, of the last command that
///   printed any;
/// - all lines of the last command, in their order.
///
/// All operations may be called from several threads, with others printing meanwhile.
class tcBoardTalk : private std::streambuf {
public:
    /// Listens until it is destroyed. \param stream outlives it
    explicit tcBoardTalk(std::ostream& stream);
    tcBoardTalk(const tcBoardTalk&) = delete;
    tcBoardTalk& operator=(const tcBoardTalk&) = delete;
    ~tcBoardTalk() override;

    /// A new command begins: lines of the link that it prints replace those kept so far, and its
    /// lines begin.
    void beginCommand();

    /// \return names and voltages [V], by name
    [[nodiscard]] std::map<std::string, double> supplies() const;

    /// \return at most the last 512 lines
    [[nodiscard]] std::vector<std::string> link() const;

    /// \return at most the last 4096 lines of the command
    [[nodiscard]] std::vector<std::string> lines() const;

private:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

    void hear(char character);
    void keep(const std::string& line);

    mutable std::mutex m_lock;
    std::ostream& m_stream;
    std::streambuf* const m_below; // where everything goes on to
    std::string m_line;
    bool m_newCommand = false;
    std::map<std::string, double> m_supplies;
    std::vector<std::string> m_link;
    std::deque<std::string> m_lines;
};

/// Numbers of lanes, lowest first.
using tmLanes = std::vector<unsigned>;

/// Reads a line of the link that ends in a mask, one bit a lane: "DPA Lock: fff".
/// \return the lanes that are set, lowest first; nothing where the line is none
[[nodiscard]] std::optional<tmLanes> lanesOf(const std::string& line);

/// Boards try a link several times, and tell the lanes again and again meanwhile: "DPA Lock: ff7
/// tries: 3". Where the count of tries begins anew, so does an attempt; lines without a count
/// belong to the one before. \param link lines as `tcBoardTalk::link` has them \return the lanes of
/// each attempt's best line, the earliest one where several are as good
[[nodiscard]] std::vector<tmLanes> lanesByAttempt(const std::vector<std::string>& link);

/// \return the attempt with most lanes; nothing where there was none
[[nodiscard]] std::optional<tmLanes> mostLanes(const std::vector<tmLanes>& attempts);

} // namespace camhost
