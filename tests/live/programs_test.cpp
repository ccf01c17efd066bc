// What the bench says to a program, and what it makes of the answers: the program's side is played
// here.

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "apps/live/programs.h"
#include "apps/live/time_line.h"
#include "sim/base/launch.h"
#include "sim/journal/live_ring.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_directory.h"

namespace {

using live::tcPrograms;
using live::tcTimeLine;

// A program that has begun to use its head.
class tcPlayed {
public:
    explicit tcPlayed(const std::string& folder)
        : m_ring(folder + "/memory", false), m_socket(::socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = folder + sim::launch::kOrders;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        const void* start = &address;
        EXPECT_EQ(connect(m_socket, static_cast<const sockaddr*>(start), sizeof address), 0);
        say("hello\n4711\nreal\n" + folder + "/memory");
        EXPECT_EQ(heard(), "1\ngo");
        say("1\nok");
    }
    tcPlayed(const tcPlayed&) = delete;
    tcPlayed& operator=(const tcPlayed&) = delete;
    ~tcPlayed() { close(); }

    void say(const std::string& text) const {
        EXPECT_EQ(send(m_socket, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }
    [[nodiscard]] std::string heard() const {
        std::string text(4096, '\0');
        const ssize_t length = recv(m_socket, text.data(), text.size(), 0);
        text.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        return text;
    }
    void tell(const std::string& text) {
        const void* start = text.data();
        m_ring.append({1000,
                       sim::teLine::state,
                       0,
                       0,
                       0,
                       {static_cast<const std::uint8_t*>(start), text.size()}});
    }
    [[nodiscard]] int socket() const { return m_socket; }
    void close() {
        if (m_socket >= 0) {
            ::close(m_socket);
            m_socket = -1;
        }
    }

private:
    sim::tcLiveRing m_ring;
    int m_socket;
};

class Programs : public testing::Test {
protected:
    Programs() {
        m_programs.begin([this](bool news) {
            if (news) {
                ++m_news;
            }
        });
    }
    ~Programs() override { m_programs.end(); }
    void awaitNews(int times) const {
        const auto until = std::chrono::steady_clock::now() + kPatience;
        while (m_news < times && std::chrono::steady_clock::now() < until) {
            std::this_thread::yield();
        }
        EXPECT_EQ(m_news, times);
    }

    tcTemporaryDirectory m_folder;
    tcTimeLine m_timeLine{std::size_t{1} << 20};
    tcPrograms m_programs{m_folder.path(), m_timeLine};
    std::atomic<int> m_news{0}; // times that who follows was told of something
};

TEST_F(Programs, LookWaitsForWhatTheHeadDidByItself) {
    EXPECT_NO_THROW(m_programs.look()); // at nothing
    EXPECT_EQ(m_timeLine.next(), 0U);
    tcPlayed program(m_folder.path());
    awaitNews(1); // that the program has begun
    std::thread head([&program] {
        EXPECT_EQ(program.heard(), "2\nlook");
        program.tell("LANE3-LOCK 0");
        program.say("2\nok");
    });
    m_programs.look();
    EXPECT_EQ(m_timeLine.next(), 1U);
    EXPECT_EQ(m_timeLine.events(0, 1).at(0).text, "STATE LANE3-LOCK 0");
    head.join();
    awaitNews(2); // what another thread than the one that tells it has taken in
}

TEST_F(Programs, LookTakesInWhatAProgramSaidThatEndsMeanwhile) {
    tcPlayed program(m_folder.path());
    std::thread head([&program] {
        EXPECT_EQ(program.heard(), "2\nlook");
        program.tell("ALIGNED 0");
        program.close();
    });
    EXPECT_NO_THROW(m_programs.look());
    EXPECT_EQ(m_timeLine.next(), 1U);
    head.join();
}

// A program that a debugger holds.
TEST_F(Programs, WhoDoesNotListenIsAskedOnce) {
    const tcPlayed program(m_folder.path());
    m_programs.watched(true);
    std::this_thread::sleep_for(
        std::chrono::milliseconds(500)); // ten times as long as it takes to ask again
    m_programs.watched(false);
    EXPECT_EQ(program.heard(), "look");
    std::array<char, 16> more{};
    EXPECT_EQ(recv(program.socket(), more.data(), more.size(), MSG_DONTWAIT), -1);
}

TEST_F(Programs, LookTellsThatAHeadRefuses) {
    tcPlayed program(m_folder.path());
    std::thread head([&program] {
        EXPECT_EQ(program.heard(), "2\nlook");
        program.say("2\nerror unknown order");
    });
    EXPECT_THROW(m_programs.look(), live::tcRefused);
    head.join();
}

} // namespace
