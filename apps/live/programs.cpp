#include "apps/live/programs.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "sim/base/launch.h"
#include "sim/journal/live_ring.h"

namespace live {

namespace {

constexpr int kRoundMs = 10;
constexpr int kAnswerMs = 30'000; // only a program that is held from outside takes so long
constexpr auto kLookEvery = std::chrono::milliseconds(50);
constexpr std::size_t kLongest = 4096; // of an order or answer [bytes]

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (true) {
        const std::size_t end = text.find('\n', from);
        lines.push_back(text.substr(from, end - from));
        if (end == std::string::npos) {
            return lines;
        }
        from = end + 1;
    }
}

std::string orderOf(const sim::tsFault& fault) {
    return "fault\n" + fault.name + "\n" + fault.what + "\n" + fault.at + "\n" + fault.after +
           "\n" + fault.lasts + "\n" + fault.until;
}

// \return empty when nothing comes in time, or nobody is there
std::optional<std::string> received(int socket, int waitMs) {
    pollfd wanted{socket, POLLIN, 0};
    if (::poll(&wanted, 1, waitMs) <= 0) {
        return std::nullopt;
    }
    std::string text(kLongest, '\0');
    const ssize_t length = ::recv(socket, text.data(), text.size(), 0);
    if (length <= 0) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(length));
    return text;
}

} // namespace

// One process.
struct tcPrograms::tsClient {
    explicit tsClient(int descriptor) : socket(descriptor) {}
    tsClient(const tsClient&) = delete;
    tsClient& operator=(const tsClient&) = delete;
    ~tsClient() { ::close(socket); }

    // Asks for what the head does by itself. Nobody waits for it; a program that is held from
    // outside finds one such order when it goes on.
    void look() const {
        int unread = 0;
        if (::ioctl(socket, SIOCOUTQ, &unread) != 0 || unread != 0) {
            return;
        }
        constexpr std::string_view order = "look";
        ::send(socket, order.data(), order.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    [[nodiscard]] bool hungUp() const {
        pollfd other{socket, 0, 0};
        return ::poll(&other, 1, 0) > 0;
    }

    // \throws tcRefused when the head refuses, or does not answer
    void obey(const std::string& order) {
        const std::lock_guard lock(asking);
        const std::string mark = std::to_string(++orders) + "\n";
        const std::string text = mark + order;
        if (gone ||
            (::send(socket, text.data(), text.size(), MSG_NOSIGNAL) < 0 && errno != EAGAIN)) {
            throw tcRefused("the program has ended");
        }
        std::optional<std::string> answer;
        do { // a late answer to an order before is nobody's
            answer = received(socket, kAnswerMs);
        } while (answer && !answer->starts_with(mark));
        if (!answer) {
            throw tcRefused("the program does not answer: it has ended, or is held from outside, "
                            "by a debugger for example");
        }
        constexpr std::string_view failed = "error ";
        answer->erase(0, mark.size());
        if (answer->starts_with(failed)) {
            throw tcRefused(answer->substr(failed.size()));
        }
    }

    int socket;
    std::atomic<bool> greeted{false}; // `reader` is there, and what stands beside it
    std::mutex asking;
    std::uint64_t orders = 0;
    std::atomic<bool> gone{false};
    unsigned number = 0;
    std::int64_t id = 0;
    bool realTime = false;
    std::optional<sim::tcLiveReader> reader; // once it has said hello
    std::chrono::steady_clock::time_point looked;
};

tcPrograms::tcPrograms(std::filesystem::path folder, tcTimeLine& timeLine)
    : m_folder(std::move(folder)), m_timeLine(timeLine) {
    const std::string path = m_folder.string() + sim::launch::kOrders;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error(path + ": too long a path for a socket; set TMPDIR to a shorter "
                                        "folder");
    }
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    m_listening = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const void* start = &address;
    constexpr int backlog = 64;
    if (m_listening < 0 ||
        ::bind(m_listening, static_cast<const sockaddr*>(start), sizeof address) != 0 ||
        ::listen(m_listening, backlog) != 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
}

void tcPrograms::begin(std::function<void(bool)> round) {
    m_round = std::move(round);
    m_thread = std::thread([this] { work(); });
}

tcPrograms::~tcPrograms() {
    end();
    ::close(m_listening);
}

void tcPrograms::end() {
    m_over = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
    for (const std::shared_ptr<tsClient>& client : m_clients) {
        if (client->reader) {
            client->reader->go();
        }
    }
}

void tcPrograms::work() {
    while (!m_over) {
        const bool any = round(kRoundMs);
        m_round(m_news.exchange(false) || any);
    }
}

bool tcPrograms::round(int waitMs) {
    tcClients clients;
    {
        const std::lock_guard lock(m_mutex);
        clients = m_clients;
    }
    std::vector<pollfd> waits{{m_listening, POLLIN, 0}};
    for (const std::shared_ptr<tsClient>& client : clients) {
        // What a greeted one sends is an answer, and belongs to who asked.
        waits.push_back({client->socket, static_cast<short>(client->greeted ? 0 : POLLIN), 0});
    }
    ::poll(waits.data(), waits.size(), waitMs);
    const std::lock_guard reading(m_reading); // not while it waits: somebody may want to look
    bool any = false;
    for (std::size_t at = 0; at < clients.size(); ++at) {
        tsClient& client = *clients[at];
        const bool ended = (waits[at + 1].revents & (POLLHUP | POLLERR)) != 0 || client.gone;
        if (!client.greeted && !client.gone && (waits[at + 1].revents & POLLIN) != 0) {
            greet(client);
            any = true;
        }
        any = takeIn(client) || any;
        if (ended) {
            client.gone = true;
            const std::lock_guard lock(m_mutex);
            std::erase(m_clients, clients[at]);
            any = true;
        }
    }
    if ((waits[0].revents & POLLIN) != 0) {
        accept();
    }
    return any;
}

void tcPrograms::accept() {
    const int socket = ::accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket >= 0) {
        timeval patience{};
        patience.tv_sec = kAnswerMs / 1000;
        ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        const std::lock_guard lock(m_mutex);
        m_clients.push_back(std::make_shared<tsClient>(socket));
    }
}

// "hello", the process, its time, its memory. It waits until it is told to go on.
void tcPrograms::greet(tsClient& client) {
    constexpr std::size_t words = 4;
    const std::vector<std::string> hello = linesOf(received(client.socket, 0).value_or(""));
    try {
        if (hello.size() != words || hello[0] != "hello") {
            throw std::runtime_error("no hello");
        }
        client.id = std::stoll(hello[1]);
        client.realTime = hello[2] == "real";
        client.reader.emplace(hello[3]);
        client.greeted = true;
    } catch (const std::exception&) {
        client.gone = true; // not one of ours; nobody else can reach the folder
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        client.number = ++m_processes;
        m_current = *std::find_if(m_clients.begin(), m_clients.end(),
                                  [&client](const auto& one) { return one.get() == &client; });
    }
    m_timeLine.begin(client.number);
    obeyedBefore(client);
}

// Faults that were ordered before there was a program.
void tcPrograms::obeyedBefore(tsClient& client) {
    std::vector<sim::tsFault> waiting;
    {
        const std::lock_guard lock(m_mutex);
        waiting.swap(m_waiting);
    }
    try {
        for (const sim::tsFault& fault : waiting) {
            client.obey(orderOf(fault));
        }
        client.obey("go");
    } catch (const tcRefused&) {
        client.gone = true;
    }
}

// Events of another process than the one that is shown are let go.
bool tcPrograms::takeIn(tsClient& client) {
    if (!client.greeted) {
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (m_watched && !client.gone && now - client.looked >= kLookEvery) {
        client.looked = now;
        client.look();
    }
    const bool shown = current().get() == &client;
    bool any = false;
    sim::tsLiveEvent event;
    while (client.reader->next(event)) {
        if (const std::uint64_t lost = client.reader->takeLost(); lost != 0 && shown) {
            m_timeLine.lost(lost);
        }
        if (shown) {
            m_timeLine.add(event.event.timeNs, event.text());
            any = true;
        }
    }
    return any;
}

std::shared_ptr<tcPrograms::tsClient> tcPrograms::current() const {
    const std::lock_guard lock(m_mutex);
    return m_current;
}

std::shared_ptr<tcPrograms::tsClient> tcPrograms::currentRunning() const {
    std::shared_ptr<tsClient> client = current();
    if (!client || client->gone) {
        throw tcRefused("no program uses the head at present");
    }
    return client;
}

std::shared_ptr<tcPrograms::tsClient> tcPrograms::currentVirtual() const {
    std::shared_ptr<tsClient> client = currentRunning();
    if (client->realTime) {
        throw tcRefused(
            "time is real and cannot be stopped; start the program with --time virtual");
    }
    return client;
}

tsProcess tcPrograms::process() const {
    const std::shared_ptr<tsClient> client = current();
    if (!client) {
        return {};
    }
    const bool running = !client->gone;
    return {client->number,
            client->id,
            client->realTime,
            running,
            running && client->reader->stopping(),
            client->reader->frames()};
}

std::string tcPrograms::frame() const {
    const std::shared_ptr<tsClient> client = current();
    return client ? client->reader->frame() : "";
}

void tcPrograms::addFault(const sim::tsFault& fault) {
    const std::shared_ptr<tsClient> client = current();
    if (client && !client->gone) {
        client->obey(orderOf(fault));
        return;
    }
    constexpr std::size_t most = 100;
    const std::lock_guard lock(m_mutex);
    if (m_waiting.size() >= most) {
        throw tcRefused("100 faults wait for the next program already; start one");
    }
    m_waiting.push_back(fault);
}

void tcPrograms::endFault(const std::string& name) {
    {
        const std::lock_guard lock(m_mutex);
        const auto found = std::find_if(m_waiting.begin(), m_waiting.end(),
                                        [&name](const auto& one) { return one.name == name; });
        if (found != m_waiting.end()) {
            m_waiting.erase(found);
            return;
        }
    }
    currentRunning()->obey("end\n" + name);
}

void tcPrograms::stop() {
    currentVirtual()->reader->stop();
}

void tcPrograms::step() {
    currentVirtual()->reader->step();
}

void tcPrograms::go() {
    currentVirtual()->reader->go();
}

void tcPrograms::look() {
    const std::shared_ptr<tsClient> client = current();
    if (!client) {
        return;
    }
    if (!client->gone) {
        try {
            client->obey("look");
        } catch (const tcRefused&) {
            if (!client->hungUp()) { // else it has ended meanwhile, and will do nothing any more
                throw;
            }
        }
    }
    const std::lock_guard reading(m_reading);
    if (takeIn(*client)) {
        m_news = true;
    }
}

void tcPrograms::drain() {
    constexpr int enough = 100; // a process that runs on in the background has no last event
    for (int rounds = 0; rounds < enough && round(0); ++rounds) {
    }
}

} // namespace live
