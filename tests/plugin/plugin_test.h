/// \file
/// What the board's tests share: the lines of its traces, and boards to start from.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <varnox/mutex.h>

#include "tests/support/board_fixture.h"

using tsTrace = std::vector<std::string>;

/// For what the hardware does not stand, and the board does all the same.
inline constexpr sim::tcKinds kWithoutViolations =
    sim::kHardwareEvents | sim::teEventKind::sleep | sim::teEventKind::note;

/// \name One line of a trace
/// @{
std::string spi(std::uint32_t address, std::uint32_t value); ///< one sensor register write
std::string load(std::uint32_t address, std::uint32_t value);
std::string store(std::uint32_t address, std::uint32_t value);
std::string level(const std::string& line, int value);        ///< of a GPIO line
std::string slept(std::uint64_t microseconds);                ///< one call
std::string status(int level, const std::string& text);       ///< level -1: without a level
std::string word(std::uint32_t address, std::uint32_t value); ///< published
std::string printed(const std::string& text);                 ///< standard output
std::string complained(const std::string& text);              ///< standard error
std::string packing(int code);                                ///< given to the pipeline
std::string locked();   ///< the board mutex, see `noteBoardLocks`
std::string unlocked(); ///< the board mutex, see `noteBoardLocks`
/// @}

/// \name Pieces of a trace, every number given by the test
/// @{

/// What `setExposure` does in frame-control mode 0 and exposure mode 0.
struct tsExposureNumbers {
    int asked;             ///< [us]
    std::uint32_t gsPos1;  ///< [lines]
    std::uint32_t gresPos; ///< [lines]
    std::uint32_t accFpos; ///< [lines]
    int applied;           ///< [us]
    int limitedFrom = -1;  ///< lines asked for when they are more than fit, else -1
    int raisedFrom = -1;   ///< acc_fpos before it was raised to one line, else -1
    std::uint32_t hdPrd = 899;
};
tsTrace exposure(const tsExposureNumbers& numbers);

/// What `setFrameInterval` does in frame-control mode 0, without what comes of the exposure.
tsTrace frameLength(int interval, std::uint32_t hdMax);

/// The sixteen writes that switch the readout areas off.
tsTrace areasReset();

/// A link that comes up at once. \param control word 0 of the frame-control core, before
/// \param aligned at the first look: the core still holds the lanes' phases of an earlier bring-up
tsTrace quickLink(std::uint32_t control, bool aligned = false);
/// @}

/// One line of a trace, or several.
class tcPiece {
public:
    tcPiece(const char* line) : m_lines{line} {}
    tcPiece(const std::string& line) : m_lines{line} {}
    tcPiece(tsTrace lines) : m_lines(std::move(lines)) {}
    [[nodiscard]] const tsTrace& lines() const { return m_lines; }

private:
    tsTrace m_lines;
};

/// \return the pieces' lines one after the other
tsTrace lines(std::initializer_list<tcPiece> pieces);

/// \return one line of text for each line, which GoogleTest compares line by line
std::string shown(const tsTrace& trace);

std::string text(std::initializer_list<tcPiece> pieces);

/// A head whose link comes up at once, so that traces hold no waiting.
sim::tcVirtualHeadBuilder aQuickHead();

/// \return the board's mutex, which the host keeps for boards
tcMutex& boardMutexOf(Varnox::tc3U5MGXSSensorBoard& board);

/// \return whether another thread would wait for the mutex now
bool isTaken(tcMutex& mutex);

class tcPluginTest : public tcBoardFixture {
protected:
    ~tcPluginTest() override;

    /// From here on, the trace holds each lock and unlock of the board mutex.
    void noteBoardLocks();

    /// Runs the operation. \return its trace, as `text` builds the expected one
    template<class Operation>
    std::string seen(Operation operation, sim::tcKinds kinds = sim::tcKinds::all()) {
        return shown(trace(std::move(operation), kinds));
    }

    /// A board on a quick head, initialized with the shipped files: 36 MHz, lines of 900 clocks,
    /// full frame, interval 99900 us, exposure 30000 us.
    Varnox::tc3U5MGXSSensorBoard& makeReadyBoard();
};
