// The line server's protocol over a connection on loopback: whatever bytes a client sends, it gets
// one framed reply for each of its lines, and the next client is served.

#include <algorithm>
#include <array>
#include <charconv>
#include <iostream>
#include <memory>
#include <mutex>
#include <vector>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "apps/camhost/line_server.h"
#include "tests/apps/fake_board.h"
#include "tests/fuzz/command_line.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::size_t kLineBytes = 64;
constexpr std::size_t kPiece = 16; // of what is sent: also after the server's last reply
constexpr int kSoon = 300'000;     // ms: a hang, also on a busy machine
constexpr std::array<std::string_view, 3> kWaiting{"wait", "watch", "capture"};
constexpr std::array<std::string_view, 2> kEnding{"quit", "exit"};

/// A host that listens.
struct tsHost {
    camhost::tcOutput output;
    camhost::tcCommandTable table = camhost::makeCommandTable();
    camhost::tcHead head{42, [] { return std::make_unique<tcFakeBoard>("x"); }, output};
    camhost::tcExecutor executor{head, table, output};
    camhost::tcLineServer server{executor, {"127.0.0.1", 0}, {4, kLineBytes, 1'000'000}};
};

int connectTo(const std::string& address) {
    const auto colon = address.find(':');
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(static_cast<std::uint16_t>(std::stoi(address.substr(colon + 1))));
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const void* const generic = &peer;
    fuzz::require(connection >= 0 && ::connect(connection, static_cast<const sockaddr*>(generic),
                                               sizeof peer) == 0,
                  "the server takes a connection");
    return connection;
}

/// Asks twice: while the machine was suspended, time passed and nobody worked.
bool isSoonReady(pollfd& connection) {
    return ::poll(&connection, 1, kSoon) == 1 || ::poll(&connection, 1, kSoon) == 1;
}

/// Sends everything and fetches everything, both at the same time.
std::string converse(const std::string& address, std::string_view sent) {
    const int connection = connectTo(address);
    std::string got;
    bool sending = true;
    while (true) {
        if (sending && sent.empty()) {
            ::shutdown(connection, SHUT_WR);
            sending = false;
        }
        pollfd ready{connection, static_cast<short>(sending ? POLLIN | POLLOUT : POLLIN), 0};
        fuzz::require(isSoonReady(ready), "an answer comes in time");
        if ((ready.revents & POLLOUT) != 0) {
            const ssize_t count = ::send(connection, sent.data(), std::min(sent.size(), kPiece),
                                         MSG_NOSIGNAL | MSG_DONTWAIT);
            sent.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : sent.size());
        }
        if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            char chunk[4096];
            const ssize_t count = ::recv(connection, chunk, sizeof chunk, MSG_DONTWAIT);
            fuzz::require(count >= 0, "the connection ends with the last reply, not with an error");
            if (count == 0)
                break;
            got.append(chunk, static_cast<std::size_t>(count));
        }
    }
    // No port of the machine waits for stragglers.
    const linger now{1, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    ::close(connection);
    return got;
}

std::string takeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    fuzz::require(end != std::string_view::npos, "every line has an end");
    const std::string line(text.substr(0, end));
    text.remove_prefix(end + 1);
    return line;
}

/// \return the replies' kinds in order: "OK 0", "OK" or "ERR"
std::vector<std::string> repliesIn(std::string_view text) {
    std::vector<std::string> replies;
    while (!text.empty()) {
        const std::string head = takeLine(text);
        if (head.starts_with("* "))
            continue;
        const bool ok = head.starts_with("OK ");
        const std::size_t skip = ok ? 3 : 4;
        fuzz::require(ok || head.starts_with("ERR "), "a reply begins with OK or ERR");
        std::size_t lines = 0;
        const char* const end = head.data() + head.size();
        const auto [stop, error] = std::from_chars(head.data() + skip, end, lines);
        fuzz::require(error == std::errc() && stop == end, "a reply says how many lines follow");
        fuzz::require(ok || lines > 0, "a refusal says why");
        for (std::size_t i = 0; i < lines; ++i)
            takeLine(text);
        replies.emplace_back(!ok ? "ERR" : lines == 0 ? "OK 0" : "OK");
    }
    return replies;
}

bool ends(const std::string& command) {
    return std::find(kEnding.begin(), kEnding.end(), command) != kEnding.end();
}

/// What a client is to get for a line; "any" where that is the board's business.
std::string expectedReply(const fuzz::tsCommandLine& line) {
    if (!line.good)
        return "ERR";
    if (line.words.empty())
        return "OK 0";
    const std::string& command = line.words.front();
    if (ends(command))
        return line.words.size() == 1 ? "OK 0" : "ERR";
    if (command == "version" && line.words.size() == 1)
        return "OK";
    if (command == "save" || command == "load" || command == "diff" || command.empty())
        return "ERR"; // they name files of the machine; and a command has a name
    return "any";
}

/// \return a client's replies in order
std::vector<std::string> expectedReplies(std::string_view sent) {
    std::vector<std::string> replies;
    while (!sent.empty()) {
        const std::string line(sent.substr(0, sent.find('\n')));
        sent.remove_prefix(std::min(line.size() + 1, sent.size()));
        if (line.size() > kLineBytes) {
            replies.emplace_back("ERR"); // and the connection ends
            break;
        }
        const fuzz::tsCommandLine read = fuzz::readCommandLine(line);
        replies.push_back(expectedReply(read));
        if (read.good && read.words.size() == 1 && ends(read.words.front()))
            break;
    }
    return replies;
}

void checkReplies(const std::vector<std::string>& expected,
                  const std::vector<std::string>& replies) {
    fuzz::requireEqual("number of replies", std::to_string(expected.size()),
                       std::to_string(replies.size()));
    for (std::size_t i = 0; i < replies.size(); ++i) {
        if (expected[i] != "any")
            fuzz::requireEqual("reply " + std::to_string(i + 1), expected[i], replies[i]);
    }
}

/// Commands that wait would make the run wait.
/// \return whether to leave the input out
bool waits(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::string line = text.substr(at, text.find('\n', at) - at);
        at += line.size() + 1;
        const fuzz::tsCommandLine read = fuzz::readCommandLine(line);
        if (!read.words.empty() &&
            std::find(kWaiting.begin(), kWaiting.end(), read.words.front()) != kWaiting.end())
            return true;
        // Whether a session ends hangs on quotes around this word, which are gone here.
        if (read.words.size() > 1 && ends(read.words.front()) && read.words.back() == "--json")
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    std::cout.setstate(std::ios::failbit);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static tsHost host;
    static std::once_flag started;
    std::call_once(started, [] { host.server.start(); });

    const std::string text = fuzz::text({data, size});
    if (waits(text))
        return 0;
    const std::string got = converse(host.server.address(), text);
    checkReplies(expectedReplies(text), repliesIn(got));
    return 0;
}
