// The line server's protocol over a connection on loopback: whatever bytes a client sends, it gets
// one framed reply for each of its lines, and the next client is served.

#include <algorithm>
#include <charconv>
#include <iostream>
#include <memory>
#include <optional>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "apps/camhost/line_server.h"
#include "tests/apps/fake_board.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::size_t kLineBytes = 64;
constexpr int kSoon = 10'000; // ms
constexpr const char* kWaiting[] = {"wa", "capture"};

/// A host that listens.
struct tsHost {
    camhost::tcOutput output;
    camhost::tcCommandTable table = camhost::makeCommandTable();
    camhost::tcHead head{42, std::make_unique<tcFakeBoard>("x"), output};
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
        fuzz::require(::poll(&ready, 1, kSoon) == 1, "an answer comes in time");
        if ((ready.revents & POLLOUT) != 0) {
            const ssize_t count =
                ::send(connection, sent.data(), sent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            sent.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : sent.size());
        }
        if ((ready.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            char chunk[4096];
            const ssize_t count = ::recv(connection, chunk, sizeof chunk, MSG_DONTWAIT);
            if (count <= 0)
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

/// \return how many replies there are
std::size_t countReplies(std::string_view text) {
    std::size_t replies = 0;
    while (!text.empty()) {
        const std::string head = takeLine(text);
        if (head.starts_with("* "))
            continue;
        const std::size_t skip = head.starts_with("OK ") ? 3 : 4;
        fuzz::require(skip == 3 || head.starts_with("ERR "), "a reply begins with OK or ERR");
        std::size_t lines = 0;
        const char* const end = head.data() + head.size();
        const auto [stop, error] = std::from_chars(head.data() + skip, end, lines);
        fuzz::require(error == std::errc() && stop == end, "a reply says how many lines follow");
        for (std::size_t i = 0; i < lines; ++i)
            takeLine(text);
        ++replies;
    }
    return replies;
}

/// \return how many replies a client is to get
std::size_t expectedReplies(std::string_view sent) {
    std::size_t lines = 0;
    while (!sent.empty()) {
        const std::string line(sent.substr(0, sent.find('\n')));
        sent.remove_prefix(std::min(line.size() + 1, sent.size()));
        ++lines;
        if (line.size() > kLineBytes)
            return lines; // refused, and the connection ends
        try {
            const camhost::tsLine split = camhost::splitLine(line);
            if (split.words.size() == 1 && split.words[0] == "quit")
                return lines;
        } catch (const camhost::tcCommandError&) {
            continue; // answered with a refusal
        }
    }
    return lines;
}

/// Commands that wait would make the run wait.
bool waits(const std::string& text) {
    return std::any_of(std::begin(kWaiting), std::end(kWaiting), [&](const char* command) {
        return text.find(command) != std::string::npos;
    });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    std::cout.setstate(std::ios::failbit);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static tsHost host;
    static const bool started = [] {
        host.server.start();
        return true;
    }();
    fuzz::require(started, "the server runs");

    const std::string text = fuzz::text({data, size});
    if (waits(text))
        return 0;
    const std::string got = converse(host.server.address(), text);
    fuzz::requireEqual("replies", std::to_string(expectedReplies(text)),
                       std::to_string(countReplies(got)));
    return 0;
}
