// The live view: events as a program may make them, and the bytes of one connection. Whatever
// comes, the next client gets its answer; every answer has a status that is documented and a body
// that says what it is; and the state at an event is the one that its events make, read anew from
// the first.
//
// An input: events, a line each, up to a line "---"; the rest goes over the wire. "@HOST" there is
// where the bench listens.

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "apps/live/http_service.h"
#include "apps/live/interface.h"
#include "apps/live/state_json.h"
#include "sim/after/head_state.h"
#include "sim/scenario/scenario_pictures.h"
#include "tests/fuzz/support.h"

namespace {

constexpr std::string_view kHost = "@HOST";
constexpr std::string_view kRest = "---\n";
constexpr std::size_t kMostEvents = 200;
constexpr int kShortly = 100;     // ms
constexpr int kPatient = 600'000; // ms

class tcFolder {
public:
    tcFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "live-fuzz-XXXXXX").string();
        fuzz::require(mkdtemp(name.data()) != nullptr, "a folder");
        m_path = name;
    }
    tcFolder(const tcFolder&) = delete;
    tcFolder& operator=(const tcFolder&) = delete;
    ~tcFolder() { std::filesystem::remove_all(m_path); }
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

// A bench without a program; one for all inputs, its events go on and on.
struct tsBench {
    tcFolder folder;
    live::tcTimeLine timeLine{std::size_t{256} * 1024}; // small: events are let go
    live::tcPrograms programs{folder.path(), timeLine};
    live::tcFaultSession faults{"", timeLine};
    sim::tcFrameWriter pictures{sim::frameWriter("", "")};
    live::tcInterface interface {
        {{"program"}, "0", "", "1"}, timeLine, programs, faults, pictures
    };
    live::tcHttpService service{interface, "127.0.0.1", 0};

    [[nodiscard]] std::uint16_t port() const {
        const std::string address = service.address();
        const std::size_t colon = address.rfind(':');
        std::uint16_t port = 0;
        std::from_chars(address.data() + colon + 1, address.data() + address.size(), port);
        return port;
    }
};

int connected(std::uint16_t port) {
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const void* start = &address;
    fuzz::require(connect(client, static_cast<const sockaddr*>(start), sizeof address) == 0,
                  "the bench takes connections");
    return client;
}

// \return whether the first answer has come whole; of a stream, its beginning
bool whole(const std::string& answer) {
    const std::size_t head = answer.find("\r\n\r\n");
    if (head == std::string::npos) {
        return false;
    }
    const std::size_t length = answer.find("Content-Length: ");
    std::size_t bytes = 0;
    if (length < head) {
        std::from_chars(answer.data() + length + 16, answer.data() + head, bytes);
    }
    return answer.size() >= head + 4 + bytes;
}

// \param patienceMs for what may be no whole request
std::string exchange(std::uint16_t port, const std::string& bytes, int patienceMs) {
    const int client = connected(port);
    send(client, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    shutdown(client, SHUT_WR);
    std::string answer;
    std::array<char, 65536> some{};
    pollfd wanted{client, POLLIN, 0};
    while (!whole(answer) && poll(&wanted, 1, patienceMs) > 0) {
        const ssize_t count = recv(client, some.data(), some.size(), 0);
        if (count <= 0) {
            break;
        }
        answer.append(some.data(), static_cast<std::size_t>(count));
    }
    close(client);
    return answer;
}

// The first answer; what follows it on the connection belongs to further requests.
void checkAnswer(const std::string& answer) {
    if (answer.empty()) {
        return; // no request
    }
    static const std::set<std::string> known{"100", "200", "201", "400", "403", "404",
                                             "405", "408", "409", "413", "414", "415",
                                             "429", "431", "501", "505"};
    fuzz::require(answer.starts_with("HTTP/1."), "an answer is HTTP");
    fuzz::require(known.contains(answer.substr(9, 3)), "a status is documented");
    const std::size_t head = answer.find("\r\n\r\n");
    const std::size_t length = answer.find("Content-Length: ");
    if (head == std::string::npos || length == std::string::npos || length > head ||
        answer.substr(0, head).find("application/json") == std::string::npos) {
        return;
    }
    std::size_t bytes = 0;
    std::from_chars(answer.data() + length + 16, answer.data() + head, bytes);
    const std::string body = answer.substr(head + 4, bytes);
    if (body.size() == bytes && bytes != 0) {
        const nlohmann::json json = nlohmann::json::parse(body, nullptr, false);
        fuzz::require(!json.is_discarded(), "a body of JSON is JSON");
        fuzz::require(answer[9] != '4' || json.contains("error"), "a refusal says why");
    }
}

void checkStates(const live::tcTimeLine& timeLine, std::uint64_t begin) {
    sim::tcHeadState anew;
    for (const live::tsShownEvent& event : timeLine.events(begin, kMostEvents)) {
        anew.take(event.number, event.timeNs, event.text);
        const auto kept = timeLine.stateAt(event.number);
        fuzz::require(kept.has_value(), "an event that is kept has a state");
        fuzz::require(live::stateJson(*kept) == live::stateJson(anew),
                      "the state at an event is that of its events");
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto bench = std::make_unique<tsBench>();
    const void* start = data;
    std::string input(static_cast<const char*>(start), size);
    const std::size_t split = input.find(kRest);
    std::string events = input.substr(0, split);
    std::string wire = split == std::string::npos ? "" : input.substr(split + kRest.size());

    bench->timeLine.begin(1);
    const std::uint64_t begin = bench->timeLine.next();
    std::uint64_t timeNs = 0;
    for (std::size_t count = 0; !events.empty() && count < kMostEvents; ++count) {
        const std::size_t end = std::min(events.find('\n'), events.size());
        bench->timeLine.add(timeNs += 1000, events.substr(0, end));
        events.erase(0, end + 1);
    }
    checkStates(bench->timeLine, begin);

    const std::string here = "127.0.0.1:" + std::to_string(bench->port());
    for (std::size_t at = wire.find(kHost); at != std::string::npos; at = wire.find(kHost, at)) {
        wire.replace(at, kHost.size(), here);
    }
    if (!wire.empty()) {
        checkAnswer(exchange(bench->port(), wire, kShortly));
    }
    const std::string next = exchange(
        bench->port(), "GET /v1/state HTTP/1.1\r\nHost: " + here + "\r\nConnection: close\r\n\r\n",
        kPatient);
    fuzz::require(next.starts_with("HTTP/1.1 200") || next.starts_with("HTTP/1.1 429"),
                  "the next client gets its answer");
    checkAnswer(next);
    return 0;
}
