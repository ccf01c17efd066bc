#include "apps/camhost/line_server.h"

#include <poll.h>

#include <array>
#include <thread>

#include <gmock/gmock.h>

#include <asio.hpp>

#include "apps/camhost/interrupt.h"
#include "apps/camhost/listen_address.h"
#include "tests/apps/camhost_fixture.h"
#include "tests/apps/process.h"
#include "tests/support/patience.h"

using asio::ip::tcp;
using camhost::parseAddress;
using camhost::tcFatalError;
using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// A client that sends and fetches.
class tcPeer {
public:
    explicit tcPeer(const std::string& address) : m_socket(m_context) {
        const camhost::tsAddress parsed = parseAddress(address);
        m_socket.connect({asio::ip::make_address(parsed.host), parsed.port});
    }

    tcPeer& send(const std::string& text) {
        asio::error_code ignored; // it may have been refused already
        asio::write(m_socket, asio::buffer(text), ignored);
        return *this;
    }

    void sendNoMore() {
        asio::error_code ignored;
        m_socket.shutdown(tcp::socket::shutdown_send, ignored);
    }
    void close() { m_socket.close(); }
    void reset() {
        m_socket.set_option(asio::socket_base::linger(true, 0));
        m_socket.close();
    }

    /// Fetches nothing and waits. \return whether the server ends the connection meanwhile
    bool seesTheEnd() {
        pollfd connection{m_socket.native_handle(), POLLRDHUP, 0};
        return poll(&connection, 1, kPatienceMs) == 1;
    }

    /// \return everything up to the end of the connection
    std::string rest() {
        std::string text;
        while (fetch(text)) {
        }
        return text;
    }

    /// \return the next line without its end; "<end>" where there is none in time
    std::string line() {
        auto end = m_got.find('\n');
        while (end == std::string::npos) {
            if (!fetch(m_got))
                return "<end>";
            end = m_got.find('\n');
        }
        std::string text = m_got.substr(0, end);
        m_got.erase(0, end + 1);
        return text;
    }

    /// \return a reply with its lines; events before it are left out
    std::string reply() {
        std::string text = line();
        while (text.starts_with("* "))
            text = line();
        const auto blank = text.find(' ');
        const int count = blank == std::string::npos ? 0 : std::stoi(text.substr(blank + 1));
        for (int i = 0; i < count; ++i)
            text += "|" + line();
        return text;
    }

private:
    bool fetch(std::string& text) {
        std::array<char, 4096> chunk{};
        asio::error_code result;
        std::size_t count = 0;
        bool done = false;
        m_socket.async_read_some(asio::buffer(chunk),
                                 [&](const asio::error_code& error, std::size_t size) {
                                     result = error;
                                     count = size;
                                     done = true;
                                 });
        m_context.restart();
        m_context.run_for(kPatience);
        if (!done) {
            m_socket.cancel();
            m_context.restart();
            m_context.run();
            ADD_FAILURE() << "nothing came";
            return false;
        }
        text.append(chunk.data(), count);
        return !result;
    }

    asio::io_context m_context;
    tcp::socket m_socket;
    std::string m_got;
};

class LineServerTest : public CamhostTest {
protected:
    explicit LineServerTest(const camhost::tsServerLimits& limits = {3, 64, 100000})
        : server(std::make_unique<camhost::tcLineServer>(*executor, parseAddress("0"), limits)) {
        server->start();
    }
    ~LineServerTest() override { server.reset(); }

    [[nodiscard]] tcPeer peer() const { return tcPeer(server->address()); }

    /// Waits until the server has room again.
    void waitForRoom() {
        waitUntil([this] { return peer().send("clock\n").reply() == "OK 1|clock 1"; });
    }

    std::unique_ptr<camhost::tcLineServer> server;
};

/// \return "ADDRESS PORT", or the text of the refusal
std::string parsed(const std::string& text) {
    try {
        const camhost::tsAddress address = parseAddress(text);
        return address.host + " " + std::to_string(address.port);
    } catch (const tcFatalError& error) {
        EXPECT_EQ(error.status(), camhost::teExit::eListen);
        return error.what();
    }
}

} // namespace

TEST(LineServerAddress, IsLoopbackUnlessOneIsGiven) {
    EXPECT_EQ(parsed("4711"), "127.0.0.1 4711");
    EXPECT_EQ(parsed(":4711"), "127.0.0.1 4711");
    EXPECT_EQ(parsed("0.0.0.0:4711"), "0.0.0.0 4711");
    EXPECT_EQ(parsed("[::1]:0"), "::1 0");
    EXPECT_EQ(parsed("127.0.0.2:65535"), "127.0.0.2 65535");
}

TEST(LineServerAddress, NeedsAPort) {
    for (const char* text : {"", "host", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "1:2:x"})
        EXPECT_EQ(parsed(text),
                  std::string("address \"") + text +
                      "\" not understood: the port is no number from 0 to 65535. Give "
                      "ADDRESS:PORT with --listen.");
}

TEST_F(LineServerTest, AnswersLineByLine) {
    tcPeer client = peer();
    client.send("exposure 2004\nexposure\n\nmirror\n");
    EXPECT_EQ(client.reply(), "OK 1|exposure: asked 2004 us, applied 2000 us (result 0: success)");
    EXPECT_EQ(client.reply(), "OK 1|exposure 2000 us");
    EXPECT_EQ(client.reply(), "OK 0");
    EXPECT_EQ(client.reply(), "OK 2|mirror h off|mirror v off");
}

TEST_F(LineServerTest, AnswersErrorsAndGoesOn) {
    tcPeer client = peer();
    client.send("exposure x\nFAKE2 1\nexposure\r\n");
    EXPECT_EQ(client.reply(),
              "ERR 1|exposure: MICROSECONDS \"x\" is not a number, decimal or after "
              "0x hexadecimal; usage: exposure [MICROSECONDS]");
    EXPECT_EQ(client.reply(), "ERR 1|<nack 3>");
    EXPECT_EQ(client.reply(), "OK 1|exposure 30000 us");
}

// The whole of it comes as lines before the reply, and the reply is the verdict.
TEST_F(LineServerTest, ShowsADiagnosisAndAnswersItsVerdict) {
    head->comesFrom({"/lib/board.so", "x", "there is no table"});
    tcPeer client = peer();
    client.send("diagnose\nexposure\n");
    EXPECT_THAT(client.line(), StartsWith("* head on x, by board.so, settings in "));
    EXPECT_THAT(client.line(), StartsWith("* |-- left out: device files, GPIO lines, "));
    EXPECT_EQ(client.reply(), "ERR 1|diagnose: this head cannot be examined: there is no table");
    EXPECT_EQ(client.reply(), "OK 1|exposure 30000 us");
}

TEST_F(LineServerTest, ADiagnosisWithoutAFindingIsTheReply) {
    const tcFolder folder;
    head->knowFailures(failures::tcFailureTable(
        folder.file("t", R"({"format": 1, "lanes": 1, "blocks": {}, "supplies": {}, "failures": [],
                            "head": {"devices": [], "lines": []}})")));
    tcPeer client = peer();
    client.send("diagnose power\ndiagnose --json\n");
    const std::string tree = client.reply();
    EXPECT_THAT(tree, StartsWith("OK "));
    EXPECT_THAT(tree, HasSubstr("||-- supplies: good||   `-- VFAKE  3.25 V|"));
    EXPECT_THAT(tree, HasSubstr("|`-- verdict: nothing is wrong with this head"));
    EXPECT_THAT(tree, testing::Not(HasSubstr("\033")));
    EXPECT_THAT(client.reply(), StartsWith("OK 1|{\"command\":\"diagnose\",\"ok\":true,"));
}

TEST_F(LineServerTest, EndsTheConnectionThatWantsNoMore) {
    tcPeer client = peer();
    EXPECT_EQ(client.send("exposure\nquit\nexposure\n").rest(), "OK 1\nexposure 30000 us\nOK 0\n");
}

TEST_F(LineServerTest, AnswersEverythingToAClientThatSendsNoMore) {
    tcPeer client = peer();
    client.send("wait 100\nexposure"); // the last line needs no end
    client.sendNoMore();
    EXPECT_EQ(client.rest(), "OK 1\nwait: 100 ms\nOK 1\nexposure 30000 us\n");
}

TEST_F(LineServerTest, ShowsWhatACommandShowsBeforeItsReply) {
    Varnox::tcRegisterFile::getInstance(nullptr, true)->update_word(0x60020, 9);
    tcPeer client = peer();
    client.send("watch 0 0x60020\nquit\n");
    EXPECT_EQ(client.rest(), "* [    0.000 s] 0x60020: 9\nOK 1\nwatch: 0 changes in 0 ms\nOK 0\n");
}

TEST_F(LineServerTest, ShowsTheProgressOfALongStep) {
    tcPeer client = peer();
    client.send("wait 1500\n");
    EXPECT_THAT(client.line(), StartsWith("* wait [####"));
    EXPECT_EQ(client.reply(), "OK 1|wait: 1500 ms");
}

TEST_F(LineServerTest, ServesSeveralClientsAtOnce) {
    tcPeer slow = peer();
    tcPeer quick = peer();
    slow.send("wait 3600000\n");
    EXPECT_THAT(slow.line(), StartsWith("* wait "));
    EXPECT_EQ(quick.send("exposure\n").reply(), "OK 1|exposure 30000 us");
}

TEST_F(LineServerTest, RefusesOneClientTooMany) {
    std::array<tcPeer, 3> clients = {peer(), peer(), peer()};
    for (tcPeer& client : clients)
        EXPECT_EQ(client.send("clock\n").reply(), "OK 1|clock 1");
    EXPECT_EQ(peer().rest(), "ERR 1\nthere are 3 clients already; try again when one is gone\n");
    EXPECT_EQ(clients[0].send("clock\n").reply(), "OK 1|clock 1");
    clients[1].close();
    waitForRoom();
}

TEST_F(LineServerTest, RefusesALineThatIsTooLong) {
    const std::string refusal = "ERR 1\nthe line is longer than 64 bytes; send shorter ones\n";
    EXPECT_EQ(peer().send(std::string(65, 'x') + "\n").rest(), refusal);
    EXPECT_EQ(peer().send(std::string(65, 'x')).rest(), refusal);
    EXPECT_EQ(peer().send(std::string(300000, 'x') + "\nclock\n").rest(), refusal);
    tcPeer fits = peer();
    EXPECT_EQ(fits.send("clock" + std::string(59, ' ') + "\n").reply(), "OK 1|clock 1");
}

TEST_F(LineServerTest, TakesMoreLinesThanItKeepsUnread) {
    tcPeer client = peer();
    std::string many;
    for (int i = 0; i < 200; ++i)
        many += "clock\n";
    client.send(many);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(client.reply(), "OK 1|clock 1");
}

TEST_F(LineServerTest, LetsNoClientDisturbAnother) {
    tcPeer good = peer();
    EXPECT_EQ(good.send("clock\n").reply(), "OK 1|clock 1");
    for (const std::string& nonsense :
         {std::string("\0\xff\xfe\n\x01\x02\n", 7), std::string("GET / HTTP/1.1\r\n\r\n"),
          std::string(100000, '\n'), std::string("quit\nquit\n"), std::string()}) {
        tcPeer bad = peer();
        bad.send(nonsense);
        bad.reset();
        EXPECT_EQ(good.send("clock\n").reply(), "OK 1|clock 1");
    }
}

TEST_F(LineServerTest, GivesTheCaptureUpOfAClientThatIsGone) {
    {
        tcPeer client = peer();
        client.send("capture 3600000\n");
        waitUntil([this] { return executor->isCapturing(); });
        client.reset();
    }
    waitUntil([this] { return !executor->isCapturing(); });
}

TEST_F(LineServerTest, EndsWhileCommandsWait) {
    tcPeer client = peer();
    client.send("wait 3600000\n");
    EXPECT_THAT(client.line(), StartsWith("* wait "));
    const auto begin = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
}

TEST_F(LineServerTest, NamesFilesToNobody) {
    tcPeer client = peer();
    EXPECT_THAT(client.send("load /etc/passwd\n").reply(),
                StartsWith("ERR 1|load is not served over the network"));
}

TEST_F(LineServerTest, DoesNotShareItsAddress) {
    try {
        const camhost::tcLineServer second(*executor, parseAddress(server->address()), {});
        ADD_FAILURE() << "bound twice";
    } catch (const tcFatalError& error) {
        EXPECT_EQ(error.status(), camhost::teExit::eListen);
        EXPECT_EQ(std::string(error.what()),
                  "not listening on " + server->address() +
                      ": Address already in use. Give a free ADDRESS:PORT of this machine with "
                      "--listen.");
    }
}

TEST_F(LineServerTest, NeedsAnAddressInNumbers) {
    EXPECT_THROW(camhost::tcLineServer(*executor, {"localhost.", 0}, {}), tcFatalError);
    EXPECT_THROW(camhost::tcLineServer(*executor, {"300.0.0.1", 0}, {}), tcFatalError);
}

namespace {

class StingyServerTest : public LineServerTest {
protected:
    StingyServerTest() : LineServerTest({3, 64, 20000}) {}
};

} // namespace

TEST_F(StingyServerTest, EndsTheConnectionOfAClientThatDoesNotFetch) {
    tcPeer lazy = peer();
    constexpr int kLines = 20000; // of replies that no buffer holds
    for (int i = 0; i < kLines; ++i)
        lazy.send("help\n");
    EXPECT_TRUE(lazy.seesTheEnd());
    EXPECT_LT(lazy.rest().size(), kLines * reply("help").size());
    tcPeer good = peer();
    EXPECT_EQ(good.send("clock\n").reply(), "OK 1|clock 1");
}
