// Text and register-file access to the bad-pixel replacement.

#include <memory>
#include <thread>

#include "plugin/bad_pixel_handler.h"
#include "tests/plugin/core_faults.h"
#include "tests/plugin/handler_test.h"
#include "tests/plugin/plugin_test.h"

using testing::ElementsAre;
using testing::IsEmpty;
using Varnox::tcAbstractHandler;
using Varnox::tcBadPixelHandler;
using Varnox::tsUpdate;

namespace {

/// Writes down what the handler does with its core.
class tcCoreSpy {
public:
    bool mapState() {
        calls.push_back("mapState");
        return map;
    }
    void setMapState(bool apply) {
        calls.push_back(apply ? "setMapState true" : "setMapState false");
        map = apply;
    }
    bool onState() {
        calls.push_back("onState");
        return on;
    }
    std::string defaultData() {
        calls.push_back("defaultData");
        return "the default";
    }
    bool setData(const std::string& data) {
        calls.push_back("setData '" + data + "'");
        return false; // nobody asks
    }

    std::vector<std::string> calls;
    bool map = true;
    bool on = true;
};

class BadPixelHandler : public testing::Test {
protected:
    std::string execute(const std::string& command, const std::string& arguments = "") {
        m_core.calls.clear();
        return ask(m_handler, command, arguments);
    }
    tsUpdate update(std::uint32_t address, std::uint32_t value, int kind = 1) {
        m_core.calls.clear();
        return sendUpdate(m_handler, address, value, kind);
    }

    tcCoreSpy m_core;
    tcLast m_last;
    tcBadPixelHandler<tcCoreSpy> m_handler{nullptr, &m_last, m_core};
};

} // namespace

TEST_F(BadPixelHandler, AsksForTheMapState) {
    EXPECT_EQ(execute("GBPRM"), "<ack ^1>");
    EXPECT_THAT(m_core.calls, ElementsAre("mapState"));
    m_core.map = false;
    EXPECT_EQ(execute("GBPRM"), "<ack ^0>");
    EXPECT_EQ(execute("GBPRM", "1 2"), "<ack ^0>");
    EXPECT_THAT(m_core.calls, ElementsAre("mapState"));
}

TEST_F(BadPixelHandler, AsksForTheOnState) {
    EXPECT_EQ(execute("GBPR"), "<ack ^1>");
    EXPECT_THAT(m_core.calls, ElementsAre("onState"));
    m_core.on = false;
    EXPECT_EQ(execute("GBPR", "x"), "<ack ^0>");
    EXPECT_THAT(m_core.calls, ElementsAre("onState"));
}

TEST_F(BadPixelHandler, SetsTheMapState) {
    EXPECT_EQ(execute("SBPRM", "0"), "<ack>");
    EXPECT_THAT(m_core.calls, ElementsAre("setMapState false"));
    EXPECT_EQ(execute("GBPRM"), "<ack ^0>");
    for (const char* number : {"1", "-1", "256", "0x100", "4294967295", "  2", "7 0 x"}) {
        EXPECT_EQ(execute("SBPRM", number), "<ack>");
        EXPECT_THAT(m_core.calls, ElementsAre("setMapState true")) << number;
    }
}

TEST_F(BadPixelHandler, LoadsTheDefaultMapOrClearsTheMap) {
    EXPECT_EQ(execute("SBPR", "0"), "<ack>");
    EXPECT_THAT(m_core.calls, ElementsAre("setData ''"));
    EXPECT_EQ(execute("SBPR", "1"), "<ack>");
    EXPECT_THAT(m_core.calls, ElementsAre("defaultData", "setData 'the default'"));
    EXPECT_EQ(execute("SBPR", "-5 0"), "<ack>");
    EXPECT_THAT(m_core.calls, ElementsAre("defaultData", "setData 'the default'"));
}

TEST_F(BadPixelHandler, SetsWithoutAnArgumentAreRefused) {
    for (const char* keyword : {"SBPR", "SBPRM"}) {
        EXPECT_EQ(execute(keyword, ""), "<nack 2>");
        EXPECT_EQ(execute(keyword, "   "), "<nack 2>");
        EXPECT_THAT(m_core.calls, IsEmpty());
    }
}

TEST_F(BadPixelHandler, SetsWithoutANumberAreRefused) {
    for (const char* keyword : {"SBPR", "SBPRM"}) {
        for (const char* word : {"x", "1x", "on", "--1", "4294967296", "x 1"}) {
            EXPECT_EQ(execute(keyword, word), "<nack 3>") << word;
            EXPECT_THAT(m_core.calls, IsEmpty());
        }
    }
}

TEST_F(BadPixelHandler, OtherKeywordsGoToTheNextHandler) {
    for (const char* keyword :
         {"sbpr", "SBP", "SBPRX", "SBPRMM", "GBPRm", "", " SBPR", "SBPR ", "EXPM"}) {
        EXPECT_EQ(execute(keyword, "1 2"), "last: '" + std::string(keyword) + "' '1 2'");
        EXPECT_THAT(m_core.calls, IsEmpty());
    }
}

TEST_F(BadPixelHandler, OtherKeywordsWithoutANextHandlerAreUnknown) {
    tcBadPixelHandler<tcCoreSpy> alone(nullptr, nullptr, m_core);
    std::string command = "EXPM";
    std::string arguments;
    EXPECT_EQ(alone.execute(command, arguments), "<nack 1>");
    EXPECT_EQ(alone.forward(4), 0);
}

TEST_F(BadPixelHandler, EventsAreForwarded) {
    EXPECT_EQ(m_handler.forward(4), 5);
}

TEST_F(BadPixelHandler, TheOperationDoesTheWorkAndReturnsZero) {
    int value = 5;
    EXPECT_EQ(m_handler.operate(0, value), 0);
    EXPECT_EQ(value, 1);
    m_core.on = false;
    EXPECT_EQ(m_handler.operate(2, value), 0);
    EXPECT_EQ(value, 0);
    m_core.calls.clear();
    value = -3;
    EXPECT_EQ(m_handler.operate(1, value), 0);
    EXPECT_EQ(m_handler.operate(3, value), 0);
    EXPECT_EQ(value, -3);
    value = 0;
    EXPECT_EQ(m_handler.operate(1, value), 0);
    EXPECT_EQ(m_handler.operate(3, value), 0);
    EXPECT_THAT(m_core.calls,
                ElementsAre("setMapState true", "defaultData", "setData 'the default'",
                            "setMapState false", "setData ''"));
    m_core.calls.clear();
    value = 7;
    for (const int op : {-1, 4, 100}) {
        EXPECT_EQ(m_handler.operate(op, value), 0);
    }
    EXPECT_EQ(value, 7);
    EXPECT_THAT(m_core.calls, IsEmpty());
}

TEST_F(BadPixelHandler, ADerivedOperationsRefusalReachesTheClient) {
    class tcRefusing : public tcBadPixelHandler<tcCoreSpy> {
    public:
        using tcBadPixelHandler<tcCoreSpy>::tcBadPixelHandler;
        int operate(int op, int& /*value*/) override { return 10 + op; }
    };
    tcRefusing refusing(nullptr, nullptr, m_core);
    std::string arguments = "1";
    std::string command = "GBPRM";
    EXPECT_EQ(refusing.execute(command, arguments), "<nack 10>");
    command = "SBPRM";
    EXPECT_EQ(refusing.execute(command, arguments), "<nack 11>");
    command = "GBPR";
    EXPECT_EQ(refusing.execute(command, arguments), "<nack 12>");
    command = "SBPR";
    EXPECT_EQ(refusing.execute(command, arguments), "<nack 13>");
}

TEST_F(BadPixelHandler, WordWritesLoadAndClearTheMap) {
    tsUpdate marked = update(0x3A070, 0);
    EXPECT_TRUE(marked.handled);
    EXPECT_EQ(marked.status, 0);
    EXPECT_THAT(m_core.calls, ElementsAre("setData ''"));
    for (const std::uint32_t value : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        marked = update(0x3A070, value);
        EXPECT_TRUE(marked.handled);
        EXPECT_EQ(marked.value, value);
        EXPECT_THAT(m_core.calls, ElementsAre("defaultData", "setData 'the default'"));
    }
}

TEST_F(BadPixelHandler, WordWritesSwitchTheMap) {
    EXPECT_TRUE(update(0x3A074, 0).handled);
    EXPECT_THAT(m_core.calls, ElementsAre("setMapState false"));
    for (const std::uint32_t value : {1U, 0x100U, 0x80000000U}) {
        EXPECT_TRUE(update(0x3A074, value).handled);
        EXPECT_THAT(m_core.calls, ElementsAre("setMapState true"));
    }
}

TEST_F(BadPixelHandler, OtherWordsAndKindsAreLeftUnmarked) {
    for (const std::uint32_t address : {0U, 0x3A06CU, 0x3A071U, 0x3A078U, 0x3A200U, 0x3D004U}) {
        EXPECT_FALSE(update(address, 1).handled);
    }
    for (const int kind : {0, 2, -1}) {
        EXPECT_FALSE(update(0x3A070, 1, kind).handled);
        EXPECT_FALSE(update(0x3A074, 1, kind).handled);
    }
    EXPECT_THAT(m_core.calls, IsEmpty());
}

TEST_F(BadPixelHandler, ACoreThatThrowsIsARefusal) {
    class tcThrowing : public tcCoreSpy {
    public:
        bool mapState() { throw std::runtime_error("no core"); }
        void setMapState(bool /*apply*/) { throw std::runtime_error("no core"); }
    };
    tcThrowing core;
    tcBadPixelHandler<tcThrowing> handler(nullptr, &m_last, core);
    std::string command = "GBPRM";
    std::string arguments = "1";
    EXPECT_EQ(handler.execute(command, arguments), "<nack 6>");
    command = "SBPRM";
    EXPECT_EQ(handler.execute(command, arguments), "<nack 6>");
    tsUpdate update{1, 0x3A074, 1, false, 0};
    handler.update(update);
    EXPECT_TRUE(update.handled);
    EXPECT_EQ(update.status, 0x8FFF);
}

// ---- On the board's own core

namespace {

class BadPixelCommands : public tcPluginTest {
protected:
    ~BadPixelCommands() override { healCores(); }

    void makeHandlers() {
        m_first.reset(board().getCustomHandlers(nullptr, &m_handlers));
        m_exposureMode.reset(m_handlers.at("EXPM"));
        m_clock.reset(m_handlers.at("CLKS"));
    }
    std::string execute(std::string command, std::string arguments = "") {
        return m_handlers.at(command)->execute(command, arguments);
    }

    std::map<std::string, tcAbstractHandler*> m_handlers;
    std::unique_ptr<tcAbstractHandler> m_clock;
    std::unique_ptr<tcAbstractHandler> m_exposureMode;
    std::unique_ptr<tcAbstractHandler> m_first;
};

} // namespace

TEST_F(BadPixelCommands, TheMapIsSwitchedInTheCore) {
    makeReadyBoard();
    makeHandlers();
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("SBPRM", "1"), "<ack>"); }),
              text({load(0xFF215000, 0x1), store(0xFF215000, 0x3)}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("GBPRM"), "<ack ^1>"); }),
              text({load(0xFF215000, 0x3)}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("SBPRM", "0"), "<ack>"); }),
              text({load(0xFF215000, 0x3), store(0xFF215000, 0x1)}));
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("GBPRM"), "<ack ^0>"); }),
              text({load(0xFF215000, 0x1)}));
}

TEST_F(BadPixelCommands, TheCoresOnStateFollowsThePipeline) {
    makeReadyBoard();
    makeHandlers();
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("GBPR"), "<ack ^1>"); }), text({load(0xFF215004, 0x1)}));
    board().resetFpga();
    EXPECT_EQ(execute("GBPR"), "<ack ^0>");
}

TEST_F(BadPixelCommands, TheMapIsClearedAndLoaded) {
    makeReadyBoard();
    makeHandlers();
    EXPECT_EQ(head().fpgaWord(0xFF215010), 3U); // of bad_pixel_map.txt
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("SBPR", "0"), "<ack>"); }),
              text({store(0xFF215010, 0), store(0xFF212000, 1)}));
    // The default map lists no pixel.
    EXPECT_EQ(seen([&] { EXPECT_EQ(execute("SBPR", "1"), "<ack>"); }),
              text({store(0xFF215010, 0), store(0xFF212000, 1)}));
}

TEST_F(BadPixelCommands, AMissingCoreAnswersOff) {
    useHead(aQuickHead().withSilentCore(sim::teCore::badPixel));
    makeBoard();
    makeHandlers();
    EXPECT_EQ(execute("GBPRM"), "<ack ^0>");
    EXPECT_EQ(execute("GBPR"), "<ack ^0>");
    EXPECT_EQ(execute("SBPRM", "1"), "<ack>");
}

TEST_F(BadPixelCommands, ACoreThatThrowsAnswersNack) {
    makeReadyBoard();
    makeHandlers();
    failCore("tcBadPixelReplacement::mapState", "no answer");
    failCore("tcBadPixelReplacement::setData", "no answer");
    EXPECT_EQ(execute("GBPRM"), "<nack 6>");
    EXPECT_EQ(execute("SBPR", "1"), "<nack 6>");
    EXPECT_EQ(execute("GBPR"), "<ack ^1>");
    failCoreStrangely("tcBadPixelReplacement::setData");
    EXPECT_EQ(execute("SBPR", "1"), "<nack 6>");
    endThreadInCore("tcBadPixelReplacement::setData");
    std::thread host([this] {
        execute("SBPR", "1");
        ADD_FAILURE() << "the thread went on";
    });
    host.join();
}
