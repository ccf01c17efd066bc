#include "sim/boundary/live.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "sim/base/launch.h"
#include "sim/base/own_descriptor.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/head_access.h"
#include "sim/scenario/fault_plan.h"

namespace sim::live {

namespace {

constexpr std::size_t kLongestOrder = 4096; // bytes
constexpr std::size_t kThreadStack = std::size_t{256} * 1024;
constexpr time_t kPatienceSeconds = 5; // with somebody who looks and does not answer
constexpr int kMostFaults = 1000;      // of one head; a vector of them is copied for each new one

tcLiveRing* s_ring = nullptr; // as long as the process
std::string* s_folder = nullptr;
std::string* s_memory = nullptr;
constinit std::atomic<bool> s_asked{false};
int s_socket = -1;

std::vector<std::string> fieldsOf(std::string_view order) {
    std::vector<std::string> fields;
    while (true) {
        const std::size_t end = order.find('\n');
        fields.emplace_back(order.substr(0, end));
        if (end == std::string_view::npos) {
            return fields;
        }
        order.remove_prefix(end + 1);
    }
}

// What the head did by itself since the last event.
void look() {
    const tcHeadAccess head{tsPastStop{}};
    head->recordFrames();
    head->lookAround();
}

std::string addFault(const std::vector<std::string>& fields) {
    tsFaultError error;
    const std::optional<tsPlannedFault> planned =
        plannedFault({fields[1], fields[2], fields[3], fields[4], fields[5], fields[6]}, error);
    if (!planned) {
        return "error " + error.key + (error.value.empty() ? "" : " \"" + error.value + "\"") +
               ": " + error.why;
    }
    for (;;) {
        std::size_t present = 0;
        {
            const tcHeadAccess head{tsPastStop{}};
            present = head->faults.count();
        }
        if (present >= kMostFaults) {
            return "error this head has had " + std::to_string(kMostFaults) +
                   " faults; no more fit: start the program anew";
        }
        tcFaults::tcRoom room(*planned, present); // memory is taken and given back without the lock
        const tcHeadAccess head{tsPastStop{}};
        if (head->addFault(room)) {
            return "ok";
        }
    }
}

std::string endFault(const std::string& name) {
    const tcHeadAccess head{tsPastStop{}};
    return head->endFault(name) ? "ok" : "error no fault of that name waits or lasts";
}

std::string obey(const std::vector<std::string>& fields) {
    constexpr std::size_t faultFields = 7;
    if (fields[0] == "go" && fields.size() == 1) {
        return "ok";
    }
    if (fields[0] == "look" && fields.size() == 1) {
        look();
        return "ok";
    }
    if (fields[0] == "fault" && fields.size() == faultFields) {
        return addFault(fields);
    }
    if (fields[0] == "end" && fields.size() == 2) {
        return endFault(fields[1]);
    }
    return "error unknown order";
}

// \return false when nobody is there any more
bool answer(const std::string& text) {
    return ::send(s_socket, text.data(), text.size(), MSG_NOSIGNAL) >= 0;
}

// \return the next order; empty when nobody is there any more, or nobody says anything in time
std::optional<std::string> nextOrder() {
    std::string order(kLongestOrder, '\0');
    ssize_t length = 0;
    do {
        length = ::recv(s_socket, order.data(), order.size(), 0);
    } while (length < 0 && errno == EINTR);
    if (length <= 0) {
        return std::nullopt;
    }
    order.resize(static_cast<std::size_t>(length));
    return order;
}

// An order is "look" alone, which needs no answer, or a number and the order, which is answered
// with the number. \param last the order that ends it; empty: none does
// \return false when nobody is there any more
bool obeyAll(std::string_view last) {
    for (;;) {
        const std::optional<std::string> order = nextOrder();
        if (!order) {
            return false;
        }
        const std::size_t end = order->find('\n');
        if (end == std::string::npos) {
            look();
            continue;
        }
        const std::vector<std::string> fields = fieldsOf(std::string_view(*order).substr(end + 1));
        if (!answer(order->substr(0, end) + "\n" + obey(fields))) {
            return false;
        }
        if (fields[0] == last) {
            return true;
        }
    }
}

void setPatience(time_t seconds) {
    timeval patience{};
    patience.tv_sec = seconds;
    ::setsockopt(s_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

// The program goes on as if nobody had ever looked.
void letGo() {
    s_ring->letGo();
    const tcHeadAccess head{tsPastStop{}};
    g_live = nullptr;
    if (head) {
        head->showTo(nullptr);
    }
}

void* work(void* /*unused*/) {
    obeyAll("");
    letGo();
    return nullptr;
}

bool connectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    std::copy(path.begin(), path.end(), std::begin(address.sun_path));
    const int low = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (low < 0) {
        return false;
    }
    s_socket = outOfTheWay(low);
    const void* start = &address;
    if (::connect(s_socket, static_cast<const sockaddr*>(start), sizeof address) == 0) {
        return true;
    }
    real::close(s_socket);
    return false;
}

bool startThread() {
    sigset_t all{};
    sigset_t before{};
    sigfillset(&all);
    real::pthreadSigmask(SIG_SETMASK, &all, &before);
    pthread_attr_t attributes{};
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kThreadStack);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, work, nullptr);
    pthread_attr_destroy(&attributes);
    real::pthreadSigmask(SIG_SETMASK, &before, nullptr);
    return error == 0;
}

std::string hello() {
    const tcHeadAccess head{tsPastStop{}};
    const bool isReal = head->journal.clock.isReal();
    return "hello\n" + std::to_string(::getpid()) + "\n" + (isReal ? "real" : "virtual") + "\n" +
           *s_memory;
}

} // namespace

void prepare(const std::string& folder, bool stopped) {
    // A process can become one program after another, each with a head of its own.
    std::string path;
    unsigned number = 0;
    do {
        ++number;
        path = folder + "/live." + std::to_string(::getpid()) + "." + std::to_string(number);
    } while (real::access(path.c_str(), F_OK) == 0);
    try {
        s_ring = new tcLiveRing(path, stopped);
    } catch (const std::runtime_error& error) {
        writeError(std::string("virtual head: the run is not shown: ") + error.what() + "\n");
        return;
    }
    s_folder = new std::string(folder);
    s_memory = new std::string(path);
    const tcHeadAccess head{tsPastStop{}};
    head->showTo(s_ring);
}

void forget() {
    if (s_socket >= 0) { // the program has ended when the one that is shown has
        real::close(s_socket);
        s_socket = -1;
    }
    s_ring = nullptr;
    g_live = nullptr;
    if (tcModel* const head = g_head.load(std::memory_order_relaxed); head != nullptr) {
        head->showTo(nullptr);
    }
}

void firstUse() {
    if (s_ring == nullptr || s_asked.exchange(true, std::memory_order_relaxed)) {
        return;
    }
    const int error = errno;
    if (connectTo(*s_folder + launch::kOrders)) {
        setPatience(kPatienceSeconds);
        const bool known = answer(hello()) && obeyAll("go");
        setPatience(0);
        if (known) {
            const tcHeadAccess head{tsPastStop{}};
            g_live = s_ring;
        }
        if (known && startThread()) {
            errno = error;
            return;
        }
        real::close(s_socket);
    }
    letGo();
    errno = error;
}

} // namespace sim::live
