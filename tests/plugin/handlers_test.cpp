// The board's command handlers, and the one of the exposure mode.

#include <csignal>
#include <map>
#include <memory>
#include <new>

#include <sys/wait.h>

#include <varnox/clock_handler.h>

#include "plugin/bad_pixel_handler.h"
#include "plugin/exposure_mode_handler.h"
#include "tests/plugin/handler_test.h"
#include "tests/plugin/plugin_test.h"
#include "tests/support/failing_allocation.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::UnorderedElementsAre;
using Varnox::tcAbstractHandler;
using Varnox::tcExposureModeHandler;
using Varnox::tsUpdate;

namespace {

/// A board with external exposure and nothing else.
class tcExposureSpy : public Varnox::tcSensorBoard, public Varnox::tcExternalExposure {
public:
    tcExposureSpy() : tcSensorBoard(0, 0, 0, 0, nullptr) {}
    int setInternalExposureMode(bool internal) override {
        calls.push_back(internal ? "set internal" : "set external");
        mode = internal;
        return result;
    }
    bool getInternalExposureMode() override {
        calls.push_back("get");
        return mode;
    }
    std::vector<std::string> calls;
    bool mode = true;
    int result = 0;
};

/// A board without.
class tcPlainBoard : public Varnox::tcSensorBoard {
public:
    tcPlainBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}
};

class ExposureModeHandler : public testing::Test {
protected:
    std::string execute(const std::string& command, const std::string& arguments = "") {
        m_board.calls.clear();
        return ask(m_handler, command, arguments);
    }
    tsUpdate update(std::uint32_t address, std::uint32_t value, int kind = 1) {
        m_board.calls.clear();
        return sendUpdate(m_handler, address, value, kind);
    }

    tcExposureSpy m_board;
    tcLast m_last;
    tcExposureModeHandler m_handler{&m_board, &m_last, nullptr};
};

} // namespace

// ---- "EXPM"

TEST_F(ExposureModeHandler, AsksWithoutAnArgument) {
    EXPECT_EQ(execute("EXPM"), "<ack>^0");
    EXPECT_THAT(m_board.calls, ElementsAre("get"));
    m_board.mode = false;
    EXPECT_EQ(execute("EXPM"), "<ack>^1");
    EXPECT_EQ(execute("EXPM", "   "), "<ack>^1");
    EXPECT_THAT(m_board.calls, ElementsAre("get"));
}

TEST_F(ExposureModeHandler, ZeroSelectsInternalExposure) {
    m_board.mode = false;
    EXPECT_EQ(execute("EXPM", "0"), "<nack 0>");
    EXPECT_THAT(m_board.calls, ElementsAre("set internal"));
}

TEST_F(ExposureModeHandler, EveryOtherNumberSelectsExternalExposure) {
    for (const char* number : {"1", "2 5", "-1", "0x10", " 7", "4294967295", "1 0", "3 x"}) {
        EXPECT_EQ(execute("EXPM", number), "<nack 0>");
        EXPECT_THAT(m_board.calls, ElementsAre("set external")) << number;
    }
}

TEST_F(ExposureModeHandler, WhatIsNotANumberCountsAsZero) {
    for (const char* word : {"x", "on 1", "1x", "99999999999"}) {
        EXPECT_EQ(execute("EXPM", word), "<nack 0>");
        EXPECT_THAT(m_board.calls, ElementsAre("set internal")) << word;
    }
}

TEST_F(ExposureModeHandler, TheBoardsResultIsNotTheAnswer) {
    m_board.result = 4;
    EXPECT_EQ(execute("EXPM", "1"), "<nack 0>");
}

TEST_F(ExposureModeHandler, OtherKeywordsGoToTheNextHandler) {
    for (const char* keyword : {"expm", "EXP", "EXPMX", "", "EXPN", " EXPM", "EXPM "}) {
        EXPECT_EQ(execute(keyword, "1 2"), "last: '" + std::string(keyword) + "' '1 2'");
        EXPECT_THAT(m_board.calls, IsEmpty());
    }
    EXPECT_EQ(execute(std::string("EXPM\0", 5)), std::string("last: 'EXPM\0' ''", 16));
}

TEST_F(ExposureModeHandler, EventsAreForwarded) {
    EXPECT_EQ(m_handler.forward(4), 5);
    tcExposureModeHandler alone(&m_board, nullptr, nullptr);
    EXPECT_EQ(alone.forward(4), 0);
    EXPECT_EQ(ask(alone, "SBPR"), "<nack 1>");
}

TEST_F(ExposureModeHandler, WithoutABoardEveryFormIsNotSupported) {
    tcExposureModeHandler handler(nullptr, &m_last, nullptr);
    EXPECT_EQ(ask(handler, "EXPM"), "<nack 7>");
    EXPECT_EQ(ask(handler, "EXPM", "0"), "<nack 7>");
    EXPECT_EQ(ask(handler, "EXPM", "1"), "<nack 7>");
    EXPECT_EQ(ask(handler, "GBPR"), "last: 'GBPR' ''");
}

TEST_F(ExposureModeHandler, WithABoardWithoutExternalExposureEveryFormIsNotSupported) {
    tcPlainBoard plain;
    tcExposureModeHandler handler(&plain, &m_last, nullptr);
    EXPECT_EQ(ask(handler, "EXPM"), "<nack 7>");
    EXPECT_EQ(ask(handler, "EXPM", "1"), "<nack 7>");
}

TEST_F(ExposureModeHandler, TheOperationSetsGetsAndIgnoresOthers) {
    bool internal = false;
    EXPECT_EQ(m_handler.execute(static_cast<tcExposureModeHandler::teExposureModeOp>(0), internal),
              0);
    internal = true;
    EXPECT_EQ(m_handler.execute(static_cast<tcExposureModeHandler::teExposureModeOp>(0), internal),
              0);
    m_board.mode = false;
    EXPECT_EQ(m_handler.execute(static_cast<tcExposureModeHandler::teExposureModeOp>(1), internal),
              0);
    EXPECT_FALSE(internal);
    EXPECT_THAT(m_board.calls, ElementsAre("set external", "set internal", "get"));
    m_board.calls.clear();
    for (const int op : {2, -1}) {
        EXPECT_EQ(
            m_handler.execute(static_cast<tcExposureModeHandler::teExposureModeOp>(op), internal),
            0);
    }
    EXPECT_THAT(m_board.calls, IsEmpty());
    tcExposureModeHandler alone(nullptr, nullptr, nullptr);
    EXPECT_EQ(alone.execute(static_cast<tcExposureModeHandler::teExposureModeOp>(2), internal), 7);
}

TEST_F(ExposureModeHandler, WordWritesHaveTheOppositeSense) {
    tsUpdate marked = update(0x3A200, 0);
    EXPECT_TRUE(marked.handled);
    EXPECT_EQ(marked.status, 0);
    EXPECT_THAT(m_board.calls, ElementsAre("set external"));
    for (const std::uint32_t value : {1U, 2U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_TRUE(update(0x3A200, value).handled);
        EXPECT_THAT(m_board.calls, ElementsAre("set internal"));
    }
}

TEST_F(ExposureModeHandler, AWordWriteThatTheBoardRefusesIsHandledAllTheSame) {
    m_board.result = 4;
    const tsUpdate marked = update(0x3A200, 1);
    EXPECT_TRUE(marked.handled);
    EXPECT_EQ(marked.status, 0);
}

TEST_F(ExposureModeHandler, OtherWordsAndKindsAreLeftUnmarked) {
    for (const std::uint32_t address : {0U, 0x3A1FCU, 0x3A201U, 0x3A204U, 0x3A000U, 0x3D000U}) {
        EXPECT_FALSE(update(address, 1).handled);
    }
    for (const int kind : {0, 2, -1}) {
        EXPECT_FALSE(update(0x3A200, 1, kind).handled);
    }
    EXPECT_THAT(m_board.calls, IsEmpty());
}

TEST_F(ExposureModeHandler, WithoutABoardOtherUpdatesAreIgnored) {
    tcExposureModeHandler handler(nullptr, nullptr, nullptr);
    tsUpdate update{1, 0x3A204, 1, false, 0};
    handler.update(update);
    update = {2, 0x3A200, 1, false, 0};
    handler.update(update);
    EXPECT_FALSE(update.handled);
}

using ExposureModeHandlerDeathTest = ExposureModeHandler;

namespace {

void writeInternalExposureWithoutABoard() {
    tcExposureModeHandler handler(nullptr, nullptr, nullptr);
    tsUpdate update{1, 0x3A200, 1, false, 0};
    handler.update(update);
}

bool endedByTrap(int status) {
    return WIFSIGNALED(status) && (WTERMSIG(status) == SIGILL || WTERMSIG(status) == SIGTRAP);
}

} // namespace

TEST_F(ExposureModeHandlerDeathTest, WithoutABoardItsWordEndsTheProgramByATrap) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(writeInternalExposureWithoutABoard(), endedByTrap, "");
}

// ---- The chain

namespace {

/// Looks at what handlers keep to themselves.
class tcLook : public tcAbstractHandler {
public:
    static Varnox::tcSensorBoard* boardOf(tcAbstractHandler& handler) {
        return (handler.*&tcLook::board)();
    }
    static tcAbstractHandler* nextOf(tcAbstractHandler& handler) {
        return (handler.*&tcLook::next)();
    }
};

class Handlers : public tcPluginTest {
protected:
    /// The host's part: it owns what it gets.
    void own(tcAbstractHandler* first, std::map<std::string, tcAbstractHandler*>& handlers) {
        m_owned.emplace_back(handlers.at("CLKS"));
        m_owned.emplace_back(handlers.at("EXPM"));
        m_owned.emplace_back(first);
    }

    std::vector<std::unique_ptr<tcAbstractHandler>> m_owned;
    std::map<std::string, tcAbstractHandler*> m_handlers;
    tcLast m_last;
};

} // namespace

TEST_F(Handlers, EveryKeywordFindsItsHandler) {
    makeBoard();
    tcLast other;
    m_handlers = {{"SBPR", &other}, {"EXPM", &other}, {"OTHER", &other}};
    tcAbstractHandler* first = nullptr;
    EXPECT_EQ(seen([&] { first = board().getCustomHandlers(&m_last, &m_handlers); }), "");
    own(first, m_handlers);
    EXPECT_THAT(m_handlers,
                UnorderedElementsAre(Key("CLKS"), Key("EXPM"), Key("GBPR"), Key("GBPRM"),
                                     Key("OTHER"), Key("SBPR"), Key("SBPRM")));
    for (const char* keyword : {"SBPR", "GBPR", "SBPRM", "GBPRM"}) {
        EXPECT_EQ(m_handlers.at(keyword), first) << keyword;
    }
    EXPECT_NE(dynamic_cast<Varnox::tcBadPixelHandler<tcBadPixelReplacement>*>(first), nullptr);
    EXPECT_NE(dynamic_cast<tcExposureModeHandler*>(m_handlers.at("EXPM")), nullptr);
    EXPECT_NE(dynamic_cast<Varnox::tcClockHandler*>(m_handlers.at("CLKS")), nullptr);
    EXPECT_EQ(m_handlers.at("OTHER"), &other);
}

TEST_F(Handlers, TheChainIsBadPixelsThenExposureModeThenClockThenTheHosts) {
    makeReadyBoard();
    tcAbstractHandler* const first = board().getCustomHandlers(&m_last, &m_handlers);
    own(first, m_handlers);
    EXPECT_EQ(ask(*first, "GBPR"), "<ack ^1>");
    EXPECT_EQ(ask(*first, "EXPM"), "<ack>^0");
    EXPECT_EQ(ask(*first, "CLKS"), "<ack ^1>");
    EXPECT_EQ(ask(*first, "HELP", "me"), "last: 'HELP' 'me'");
    EXPECT_EQ(first->forward(4), 5);
    // Each passes on what stands before it.
    EXPECT_EQ(ask(*m_handlers.at("EXPM"), "GBPR"), "last: 'GBPR' ''");
    EXPECT_EQ(ask(*m_handlers.at("CLKS"), "EXPM"), "last: 'EXPM' ''");
}

TEST_F(Handlers, WithoutATableTheChainIsTheSame) {
    makeReadyBoard();
    tcAbstractHandler* const withoutTable = board().getCustomHandlers(nullptr, nullptr);
    ASSERT_NE(withoutTable, nullptr);
    EXPECT_EQ(ask(*withoutTable, "GBPRM"), "<ack ^0>");
    EXPECT_EQ(ask(*withoutTable, "EXPM"), "<ack>^0");
    EXPECT_EQ(ask(*withoutTable, "CLKS"), "<ack ^1>");
    EXPECT_EQ(ask(*withoutTable, "HELP"), "<nack 1>");
    EXPECT_EQ(withoutTable->forward(4), 0);
    // A host without a table cannot reach the two behind the first; this one looks behind.
    tcAbstractHandler* const exposureMode = tcLook::nextOf(*withoutTable);
    m_owned.emplace_back(tcLook::nextOf(*exposureMode));
    m_owned.emplace_back(exposureMode);
    m_owned.emplace_back(withoutTable);
}

TEST_F(Handlers, TheBadPixelHandlerHasNoBoard) {
    makeBoard();
    tcAbstractHandler* const first = board().getCustomHandlers(&m_last, &m_handlers);
    own(first, m_handlers);
    // It reaches the hardware through the core alone.
    EXPECT_EQ(tcLook::boardOf(*first), nullptr);
    EXPECT_EQ(tcLook::boardOf(*m_handlers.at("EXPM")), &board());
    EXPECT_EQ(tcLook::boardOf(*m_handlers.at("CLKS")), &board());
    EXPECT_EQ(tcLook::nextOf(*first), m_handlers.at("EXPM"));
    EXPECT_EQ(tcLook::nextOf(*m_handlers.at("EXPM")), m_handlers.at("CLKS"));
    EXPECT_EQ(tcLook::nextOf(*m_handlers.at("CLKS")), &m_last);
}

TEST_F(Handlers, EveryCallMakesNewHandlers) {
    makeBoard();
    tcAbstractHandler* const first = board().getCustomHandlers(nullptr, &m_handlers);
    own(first, m_handlers);
    tcAbstractHandler* const second = board().getCustomHandlers(nullptr, &m_handlers);
    own(second, m_handlers);
    EXPECT_NE(first, second);
    EXPECT_EQ(m_handlers.at("SBPR"), second);
}

// Handlers enter themselves into the host's table while they are built.
TEST_F(Handlers, AFailureLeavesTheHostsTableAsItWas) {
    makeBoard();
    tcLast other;
    const std::map<std::string, tcAbstractHandler*> before{
        {"AAAA", &other}, {"EXPM", &other}, {"SBPR", nullptr}, {"ZZZZ", &other}};
    for (const auto& table : {std::map<std::string, tcAbstractHandler*>(), before}) {
        int failures = 0;
        tcAbstractHandler* first = nullptr;
        while (first == nullptr && failures < 100) {
            m_handlers = table;
            const auto entry = m_handlers.find("SBPR");
            allocationsUntilFailure = failures + 1;
            try {
                first = board().getCustomHandlers(&m_last, &m_handlers);
                allocationsUntilFailure = 0;
            } catch (const std::bad_alloc&) {
                ++failures;
                EXPECT_EQ(m_handlers, table) << failures;
                EXPECT_TRUE(entry == m_handlers.find("SBPR")); // the host may keep what it found
            }
        }
        // Each handler, each new entry, and what the table holds, kept to give it back.
        EXPECT_GE(failures, 3 + 6 - static_cast<int>(table.size() / 2));
        ASSERT_NE(first, nullptr);
        EXPECT_EQ(m_handlers.at("GBPRM"), first);
        own(first, m_handlers);
    }
}

TEST_F(Handlers, HandlersMayOutliveTheBoard) {
    makeBoard();
    own(board().getCustomHandlers(nullptr, &m_handlers), m_handlers);
    destroyBoard();
    m_owned.clear(); // touches nothing of the board
}

TEST_F(Handlers, ExposureModeCommandDrivesTheBoard) {
    makeReadyBoard();
    tcAbstractHandler* const first = board().getCustomHandlers(nullptr, &m_handlers);
    own(first, m_handlers);
    ASSERT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0);
    EXPECT_EQ(seen([&] { EXPECT_EQ(ask(*first, "EXPM", "2 5"), "<nack 0>"); }),
              text({
                  printed("Setting internal mode: 0\n"),
                  level("EXT_TRIG_EN", 1),
                  spi(0x10, 0x100),
                  status(6, "setExposure 30000 uS"),
                  spi(0x12, 1086),
                  spi(0x14, 100),
                  spi(0x15, 0),
                  spi(0x16, 0),
                  word(0x3A004, 30000),
                  status(6, "setExposure updated to 30000 uS"),
              }));
    EXPECT_EQ(seen([&] { EXPECT_EQ(ask(*first, "EXPM"), "<ack>^1"); }), "");
    EXPECT_EQ(ask(*first, "EXPM", "0"), "<nack 0>");
    EXPECT_TRUE(board().getInternalExposureMode());
    EXPECT_EQ(head().sensorState().frameControlMode, 3U);
}

TEST_F(Handlers, ExposureModeWordDrivesTheBoard) {
    makeReadyBoard();
    own(board().getCustomHandlers(nullptr, &m_handlers), m_handlers);
    registerFile().observable().registerObserver(*m_handlers.at("EXPM"));
    EXPECT_TRUE(registerFile().write_word(0x3A200, 0).handled);
    EXPECT_FALSE(board().getInternalExposureMode());
    EXPECT_TRUE(registerFile().write_word(0x3A200, 1).handled);
    EXPECT_TRUE(board().getInternalExposureMode());
}

TEST_F(Handlers, ClockCommandDrivesTheBoard) {
    makeReadyBoard();
    tcAbstractHandler* const first = board().getCustomHandlers(nullptr, &m_handlers);
    own(first, m_handlers);
    EXPECT_EQ(ask(*first, "CLKS", "0"), "<ack>");
    EXPECT_EQ(ask(*first, "CLKS"), "<ack ^0>");
    EXPECT_EQ(ask(*first, "CLKS", "2"), "<nack 3>");
}
