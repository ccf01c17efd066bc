#include <varnox/clock_handler.h>

#include <gtest/gtest.h>

#include <varnox/sensor_board.h>

namespace {

/// A board with the clock settings 0 and 1.
class tcClockBoard : public Varnox::tcSensorBoard {
public:
    tcClockBoard() : tcSensorBoard(0, 0, 0, 0, nullptr) {}

    int setClockSetting(int index) override {
        ++calls;
        if (index != 0 && index != 1)
            return 3;
        m_index = index;
        return 0;
    }
    int getClockSetting(int& index) override {
        index = m_index;
        return readResult;
    }

    int calls = 0;
    int readResult = 0;

private:
    int m_index = 1;
};

std::string ask(Varnox::tcAbstractHandler& handler, std::string command, std::string arguments) {
    return handler.execute(command, arguments);
}

} // namespace

TEST(ClockHandler, EntersItselfIntoTheTable) {
    std::map<std::string, Varnox::tcAbstractHandler*> handlers;
    Varnox::tcClockHandler handler(nullptr, nullptr, &handlers);
    ASSERT_EQ(handlers.size(), 1U);
    EXPECT_EQ(handlers["CLKS"], &handler);
}

TEST(ClockHandler, ReplacesAnOlderEntry) {
    Varnox::tcAbstractHandler older(nullptr, nullptr);
    std::map<std::string, Varnox::tcAbstractHandler*> handlers{{"CLKS", &older}};
    Varnox::tcClockHandler handler(nullptr, nullptr, &handlers);
    EXPECT_EQ(handlers.size(), 1U);
    EXPECT_EQ(handlers["CLKS"], &handler);
}

TEST(ClockHandler, AnswersTheSetting) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", ""), "<ack ^1>");
    EXPECT_EQ(ask(handler, "CLKS", "   "), "<ack ^1>");
    EXPECT_EQ(board.calls, 0);
}

TEST(ClockHandler, SetsTheSetting) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", "0"), "<ack>");
    EXPECT_EQ(ask(handler, "CLKS", ""), "<ack ^0>");
    EXPECT_EQ(board.calls, 1);
}

TEST(ClockHandler, TakesTheFirstNumberOnly) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", "0x0 1"), "<ack>");
    EXPECT_EQ(ask(handler, "CLKS", ""), "<ack ^0>");
}

TEST(ClockHandler, AnswersTheBoardsRefusal) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", "2"), "<nack 3>");
    board.readResult = 6;
    EXPECT_EQ(ask(handler, "CLKS", ""), "<nack 6>");
}

TEST(ClockHandler, RefusesWhatIsNoNumberWithoutAskingTheBoard) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", "fast"), "<nack 3>");
    EXPECT_EQ(ask(handler, "CLKS", "1x"), "<nack 3>");
    EXPECT_EQ(board.calls, 0);
}

TEST(ClockHandler, AnswersThatThereIsNothingOfTheKindWithoutABoard) {
    Varnox::tcClockHandler handler(nullptr, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "CLKS", ""), "<nack 7>");
    EXPECT_EQ(ask(handler, "CLKS", "1"), "<nack 7>");
    EXPECT_EQ(ask(handler, "CLKS", "fast"), "<nack 7>");
}

TEST(ClockHandler, PassesOtherKeywordsOn) {
    tcClockBoard board;
    Varnox::tcClockHandler handler(&board, nullptr, nullptr);
    EXPECT_EQ(ask(handler, "clks", "0"), "<nack 1>");
    EXPECT_EQ(ask(handler, "CLKS2", "0"), "<nack 1>");
    EXPECT_EQ(ask(handler, "", "0"), "<nack 1>");
    EXPECT_EQ(board.calls, 0);
}
