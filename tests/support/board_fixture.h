/// \file
/// A board on a virtual head, with everything it does in one ordered trace.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/traced_output.h"

/// Makes the head, an empty working directory and, on demand, the board.
///
/// The trace is the head's log. Besides what the head itself sees it holds
/// "NOTE STATUS 6 text" (level -1 for a line without one), "NOTE WORD 0x3A004 = 30000" (decimal,
/// unsigned) for a published word, "NOTE PIPELINE 2" for the packing code, "NOTE OUT text" and
/// "NOTE ERR text" for each piece of standard output and error, a line end shown as "\n".
class tcBoardFixture : public testing::Test {
protected:
    tcBoardFixture();
    ~tcBoardFixture() override;

    /// Replaces the healthy head. Call before `makeBoard`.
    void useHead(sim::tcVirtualHeadBuilder& builder);
    void useHead(sim::tcVirtualHeadBuilder&& builder) { useHead(builder); }

    /// Writes the demonstration settings and INI files that ship with the project.
    void useShippedFiles();

    /// Builds the board as `makeSensor` does, and listens to it.
    Varnox::tc3U5MGXSSensorBoard& makeBoard();

    /// `makeBoard` and `initialize` with the shipped files, which must succeed; the log is empty
    /// afterwards.
    Varnox::tc3U5MGXSSensorBoard& makeInitializedBoard();

    /// Destroys the board, if there is one.
    void destroyBoard();

    /// What the operation under test did: forgets the log, runs it, returns the log's lines.
    template<class Operation>
    std::vector<std::string> trace(Operation operation, sim::tcKinds kinds = sim::tcKinds::all()) {
        m_head->clearLog();
        operation();
        return m_head->lines(kinds);
    }

    sim::tcVirtualHead& head() { return *m_head; }
    Varnox::tc3U5MGXSSensorBoard& board() { return *m_board; }
    tcTemporaryDirectory& directory() { return m_directory; }
    const tcTracedOutput& out() const { return *m_out; }
    const tcTracedOutput& err() const { return *m_err; }
    /// The process's register file; it keeps its words from test to test.
    static Varnox::tcRegisterFile& registerFile();

private:
    class tcPipelineSpy;

    tcTemporaryDirectory m_directory;
    std::optional<sim::tcVirtualHead> m_head;
    std::unique_ptr<tcTracedOutput> m_out;
    std::unique_ptr<tcTracedOutput> m_err;
    std::unique_ptr<Varnox::tcPipeline> m_pipeline;
    std::unique_ptr<Varnox::tc3U5MGXSSensorBoard> m_board;
};

/// \return the "SPI .." line of one register write, bytes as the wire format lays them out, spelled
///         here once more: address in bits 31..22, value in bits 21..0, lowest byte first
std::string spiLine(std::uint32_t address, std::uint32_t value);
