#include <varnox/abstract_handler.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using Varnox::tcAbstractHandler;

namespace {

/// Makes the texts of the replies visible.
class tcReplies : public tcAbstractHandler {
public:
    using tcAbstractHandler::ack;
    using tcAbstractHandler::board;
    using tcAbstractHandler::carrotNumber;
    using tcAbstractHandler::nack;
    using tcAbstractHandler::next;
    using tcAbstractHandler::tcAbstractHandler;
};

/// Answers everything, and remembers what it was.
class tcLast : public tcAbstractHandler {
public:
    tcLast() : tcAbstractHandler(nullptr, nullptr) {}

    std::string execute(std::string& command, std::string& arguments) override {
        asked.push_back(command + "|" + arguments);
        return "<ack last>";
    }
    int forward(int event) override { return event + 1; }

    std::vector<std::string> asked;
};

} // namespace

// Plug-ins are built against it: the next handler and the board lie at its end.
TEST(AbstractHandler, HoldsTheNextHandlerBeforeTheBoard) {
    tcLast last;
    int place = 0; // of no board: it is not looked into
    auto* const board = static_cast<Varnox::tcSensorBoard*>(static_cast<void*>(&place));
    const tcReplies handler(board, &last);
    std::array<const void*, sizeof handler / sizeof(void*)> words{};
    std::memcpy(words.data(), static_cast<const void*>(&handler), sizeof words);
    EXPECT_EQ(words[words.size() - 2], static_cast<const void*>(&last));
    EXPECT_EQ(words[words.size() - 1], static_cast<const void*>(board));
    EXPECT_EQ(handler.next(), &last);
    EXPECT_EQ(handler.board(), board);
}

TEST(AbstractHandler, AcknowledgesWithAndWithoutPayload) {
    EXPECT_EQ(tcReplies::ack(nullptr), "<ack>");
    EXPECT_EQ(tcReplies::ack(""), "<ack >");
    EXPECT_EQ(tcReplies::ack("^1"), "<ack ^1>");
}

TEST(AbstractHandler, RefusesWithACode) {
    EXPECT_EQ(tcReplies::nack(0), "<nack 0>");
    EXPECT_EQ(tcReplies::nack(7), "<nack 7>");
    EXPECT_EQ(tcReplies::nack(-1), "<nack -1>");
}

TEST(AbstractHandler, PutsACarrotBeforeANumber) {
    EXPECT_EQ(tcReplies::carrotNumber(0), "^0");
    EXPECT_EQ(tcReplies::carrotNumber(-5), "^-5");
    EXPECT_EQ(tcReplies::carrotNumber(2147483647), "^2147483647");
}

TEST(AbstractHandler, LastOfTheChainKnowsNoCommand) {
    tcAbstractHandler handler(nullptr, nullptr);
    std::string command = "WHAT";
    std::string arguments = "1 2";
    EXPECT_EQ(handler.execute(command, arguments), "<nack 1>");
    EXPECT_EQ(command, "WHAT");
    EXPECT_EQ(arguments, "1 2");
}

TEST(AbstractHandler, PassesCommandsOnUnchanged) {
    tcLast last;
    tcAbstractHandler middle(nullptr, &last);
    tcAbstractHandler first(nullptr, &middle);
    std::string command = "WHAT";
    std::string arguments = "1 2";
    EXPECT_EQ(first.execute(command, arguments), "<ack last>");
    EXPECT_EQ(last.asked, std::vector<std::string>{"WHAT|1 2"});
}

TEST(AbstractHandler, PassesEventsOnToTheLast) {
    tcLast last;
    tcAbstractHandler middle(nullptr, &last);
    tcAbstractHandler first(nullptr, &middle);
    EXPECT_EQ(first.forward(41), 42);
}

TEST(AbstractHandler, AnswersAnEventWithZeroAtTheEndOfTheChain) {
    tcAbstractHandler handler(nullptr, nullptr);
    EXPECT_EQ(handler.forward(41), 0);
}

TEST(AbstractHandler, LeavesUpdatesUnmarked) {
    tcAbstractHandler handler(nullptr, nullptr);
    Varnox::tsUpdate update{1, 0x3A000, 5, false, 0};
    handler.update(update);
    EXPECT_FALSE(update.handled);
    EXPECT_EQ(update.status, 0);
    EXPECT_EQ(update.value, 5U);
}

TEST(AbstractHandler, KnowsItsBoardAndItsNext) {
    tcReplies last(nullptr, nullptr);
    const tcReplies first(nullptr, &last);
    EXPECT_EQ(first.next(), &last);
    EXPECT_EQ(first.board(), nullptr);
}
