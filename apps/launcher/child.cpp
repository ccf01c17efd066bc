#include "apps/launcher/child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <iostream>
#include <link.h>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include "apps/launcher/exit_status.h"
#include "sim/base/launch.h"
#include "sim/virtual_head.h"

namespace fs = std::filesystem;

namespace {

constexpr int kKilledBase = 128; // plus the signal

// The head's library, wherever this program was linked to it.
std::string libraryPath() {
    auto* function = &sim::aVirtualHead;
    void* address = nullptr;
    static_assert(sizeof function == sizeof address);
    std::memcpy(&address, &function, sizeof address);
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        throw std::runtime_error("the virtual head's library cannot be found");
    }
    return fs::canonical(info.dli_fname).string();
}

int collectSanitizer(dl_phdr_info* info, std::size_t, void* user) {
    const std::string_view name = info->dlpi_name;
    if (name.find("/libasan.so") != std::string_view::npos ||
        name.find("/libtsan.so") != std::string_view::npos) {
        static_cast<std::vector<std::string>*>(user)->emplace_back(name);
    }
    return 0;
}

volatile std::sig_atomic_t s_child = 0;

void passOn(int number) {
    if (s_child > 0) {
        kill(static_cast<pid_t>(s_child), number);
    }
}

// Ctrl-C reaches the program by itself; other wishes to end are passed on to it.
void leaveSignalsToChild() {
    struct sigaction action {};
    action.sa_handler = passOn;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGQUIT, &action, nullptr);
}

void setVariable(const char* name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name);
    } else {
        setenv(name, value.c_str(), 1);
    }
}

[[noreturn]] void becomeProgram(const std::vector<std::string>& program, const fs::path& folder,
                                const tsOrders& orders, int errorChannel,
                                const tcKeptOutput* output) {
    using namespace sim::launch;
    if (output != nullptr) {
        output->take();
    }
    setVariable(kPreloaded, std::to_string(getpid()));
    setVariable(kScenario, orders.scenario);
    setVariable(kTime, orders.time);
    setVariable(kLog, orders.log);
    setVariable(kFrames, orders.frames);
    setVariable(kMaxFrames, orders.maxFrames);
    setVariable(kRecord, orders.record);
    setVariable(kReplay, orders.replay);
    setVariable(kClaims, orders.claims);
    setVariable(kHardware, orders.hardware ? "1" : "");
    setVariable(kTrace, orders.trace);
    setVariable(kLive, orders.live);
    setVariable(kStopped, orders.stopped ? "1" : "");
    setVariable(kReport, orders.report);
    setVariable(kVerdict, orders.verdict);
    setVariable(kDelivered, orders.delivered);
    setVariable(kSilences, orders.silences);
    setVariable("LD_PRELOAD", orders.preload);
    std::vector<std::string> words = program;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    if (chdir(folder.c_str()) == 0) {
        execvp(arguments[0], arguments.data());
    }
    const int error = errno;
    if (write(errorChannel, &error, sizeof error) != sizeof error) {
        std::cerr << "virtual-head: " << std::strerror(error) << std::endl;
    }
    _exit(kNotStarted);
}

} // namespace

// A sanitizer's runtime must be the first library of a program.
std::string preloadList() {
    std::vector<std::string> libraries;
    dl_iterate_phdr(collectSanitizer, &libraries);
    libraries.push_back(libraryPath());
    if (const char* before = std::getenv("LD_PRELOAD"); before != nullptr && *before != '\0') {
        libraries.emplace_back(before);
    }
    std::string list;
    for (const std::string& library : libraries) {
        list += (list.empty() ? "" : ":") + library;
    }
    return list;
}

int startProgram(const std::vector<std::string>& program, const fs::path& folder,
                 const tsOrders& orders, tcKeptOutput* output, pid_t& child) {
    std::array<int, 2> channel{};
    if (pipe2(channel.data(), O_CLOEXEC) != 0) {
        return errno;
    }
    child = fork();
    if (child < 0) {
        return errno;
    }
    if (child == 0) {
        becomeProgram(program, folder, orders, channel[1], output);
    }
    s_child = child;
    leaveSignalsToChild();
    if (output != nullptr) {
        output->begin(child);
    }
    close(channel[1]);
    int error = 0;
    const bool failed = read(channel[0], &error, sizeof error) == sizeof error;
    close(channel[0]);
    return failed ? error : 0;
}

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    s_child = 0; // its number may be another's from now on
    return WIFEXITED(status) ? WEXITSTATUS(status) : kKilledBase + WTERMSIG(status);
}
