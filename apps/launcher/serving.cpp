#include "apps/launcher/serving.h"

#include <charconv>
#include <chrono>
#include <csignal>
#include <iostream>
#include <stdexcept>

#include "apps/launcher/files.h"
#include "apps/launcher/usage_error.h"
#include "sim/scenario/scenario_pictures.h"

namespace {

constexpr const char* kForm =
    "; allowed is [ADDRESS:]PORT with a port from 0 to 65535, for example "
    "8080, 127.0.0.1:0 or [::1]:8080";

// Signals of a thread, blocked for as long as the object is there; threads that begin meanwhile
// keep them blocked.
class tcBlockedSignals {
public:
    tcBlockedSignals() {
        sigset_t all{};
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    tcBlockedSignals(const tcBlockedSignals&) = delete;
    tcBlockedSignals& operator=(const tcBlockedSignals&) = delete;
    ~tcBlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

sigset_t wishesToEnd() {
    sigset_t ends{};
    sigemptyset(&ends);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&ends, number);
    }
    return ends;
}

// For the rest of this process. A blocked signal waits for who takes it, also where it was ignored
// before.
void block(const sigset_t& signals) {
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

// "8080", "127.0.0.1:8080", "[::1]:8080"
void readAddress(const std::string& text, live::tsLiveOptions& options) {
    const std::size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? options.host : text.substr(0, colon);
    const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    } else if (host.find(':') != std::string::npos) {
        host.clear(); // which colon stands before the port?
    }
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), options.port);
    if (host.empty() || port.empty() || error != std::errc{} || end != port.data() + port.size()) {
        throw tcUsageError("--serve " + text + kForm);
    }
    options.host = host;
}

// A page that finds another run at the address that it knows must notice.
std::string nameOfRun() {
    using std::chrono::nanoseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<nanoseconds>(now).count());
}

live::tsLiveOptions optionsFor(const tsArguments& arguments, const tcPreparation& preparation) {
    live::tsLiveOptions options;
    readAddress(arguments.serve, options);
    if (arguments.stopped && arguments.time == "real") {
        throw tcUsageError("--stopped needs virtual time; real time cannot be stopped");
    }
    options.folder = preparation.leftovers();
    options.about = {arguments.program, HEAD_VERSION, arguments.scenario, nameOfRun()};
    options.scenarioText = arguments.scenario.empty() ? "" : contentOf(arguments.scenario);
    return options;
}

} // namespace

tcServing::tcServing(const tsArguments& arguments, const tcPreparation& preparation)
    : m_keep(arguments.keepServing) {
    if (arguments.serve.empty()) {
        return;
    }
    const live::tsLiveOptions options = optionsFor(arguments, preparation);
    const tcBlockedSignals blocked; // the bench's threads take none
    try {
        m_run.emplace(options, sim::frameWriter(arguments.scenario, arguments.scene));
    } catch (const std::runtime_error& error) {
        throw tcUsageError(error.what());
    }
    std::cerr << "virtual-head: bench at " << m_run->address() << std::endl;
}

void tcServing::programEnded(int status) {
    if (!m_run) {
        return;
    }
    if (m_keep) {
        block(wishesToEnd());
    }
    m_run->programEnded(status);
}

void tcServing::waitForUser() const {
    if (!m_run || !m_keep) {
        return;
    }
    std::cerr << "virtual-head: the program has ended; the bench stays at " << m_run->address()
              << " until Ctrl-C" << std::endl;
    const sigset_t ends = wishesToEnd();
    int number = 0;
    sigwait(&ends, &number);
}
