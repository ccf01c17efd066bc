#include "sim/boundary/preload.h"

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>

#include "sim/base/export.h"
#include "sim/base/launch.h"
#include "sim/base/own_descriptor.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/descriptors.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/live.h"
#include "sim/boundary/mmio.h"
#include "sim/head/summary.h"
#include "sim/scenario/scenario.h"

namespace sim {

namespace {

constexpr mode_t kFileMode = 0644;

// Lives until the process is gone: the program's last destructors may still touch the head.
tcModel* s_model = nullptr;
pid_t s_owner = 0;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Every process has files of its own, and writes them anew each time.
void writeFile(const std::string& path, const std::string& text) {
    if (path.empty()) {
        return;
    }
    const std::string own = path + "." + std::to_string(::getpid());
    const int file = real::open(own.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
    if (file < 0) {
        return;
    }
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = real::write(file, text.data() + done, text.size() - done);
        if (written <= 0) {
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    real::close(file);
}

void openLog(tcModel& model) {
    const std::string path = variable(launch::kLog);
    int file = -1;
    if (!path.empty()) {
        const int low =
            real::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kFileMode);
        file = outOfTheWay(low);
    }
    model.journal.log.streamTo(file);
}

// As the log, with what the head does by itself; one file a process.
void openTrace(tcModel& model) {
    const std::string path = variable(launch::kTrace);
    if (!path.empty()) {
        const std::string own = path + "." + std::to_string(::getpid());
        const int low =
            real::open(own.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode);
        model.journal.log.traceTo(outOfTheWay(low));
    }
}

// The launcher's own child reports in any case; what it starts in its turn, a shell's commands for
// example, reports when it used the head.
bool worthReporting() {
    return s_model->devices.used() || s_model->tape.started() ||
           variable(launch::kPreloaded) == std::to_string(::getpid());
}

void report() {
    if (s_model == nullptr || s_owner != ::getpid()) {
        return;
    }
    const tcHeadAccess head{tsPastStop{}};
    if (!worthReporting()) {
        return;
    }
    // What happened since the last call.
    s_model->recordFrames();
    s_model->lookAround();
    s_model->faults.tellWhatNeverStruck();
    s_model->journal.state(s_model->journal.clock.now(), "END");
    writeFile(variable(launch::kReport), sim::report(*s_model));
    writeFile(variable(launch::kDelivered), std::to_string(s_model->frameWatch.delivered()) + "\n");
    writeFile(variable(launch::kSilences), sim::silences(*s_model));
    writeFile(variable(launch::kFrames), s_model->recorder.bytes());
    const std::uint64_t differences = s_model->tape.rest().empty() ? 0 : 1;
    writeFile(variable(launch::kVerdict),
              std::to_string(s_model->journal.checker.count() + differences) + "\n");
}

[[gnu::constructor]] void start() {
    real::resolveAll();
    if (variable(launch::kPreloaded).empty()) {
        return;
    }
    tsHeadOptions options;
    try {
        const std::string scenario = variable(launch::kScenario);
        if (!scenario.empty()) {
            applyScenario(scenario, options);
        }
    } catch (const std::exception& error) {
        stopProgram(std::string("virtual head: ") + error.what() + "\n");
    }
    const std::string time = variable(launch::kTime);
    if (!time.empty()) {
        options.realTime = time == "real";
    }
    options.recording = variable(launch::kRecord);
    options.replayed = variable(launch::kReplay);
    options.claims = variable(launch::kClaims);
    options.hardware = !variable(launch::kHardware).empty();
    options.realTime = options.realTime || options.hardware;
    const std::string folder = variable(launch::kLive);
    options.stateEvents = !variable(launch::kTrace).empty() || !folder.empty();
    if (!variable(launch::kFrames).empty()) {
        options.recordedFrames = std::strtoul(variable(launch::kMaxFrames).c_str(), nullptr, 10);
    }
    options.logCapacity = 4096; // records: only the event at hand is kept
    s_model = new tcModel(options);
    openLog(*s_model);
    openTrace(*s_model);
    survivesFork();
    s_owner = ::getpid();
    g_head.store(s_model, std::memory_order_release);
    if (!folder.empty()) {
        live::prepare(folder, !options.realTime && !variable(launch::kStopped).empty());
    }
}

[[gnu::destructor]] void end() {
    report();
}

} // namespace

void programMayDie() {
    if (!g_headLock.mine()) {
        report();
    }
}

} // namespace sim

extern "C" {

// Ways to end a program past its exit handlers.
SIM_API void abort() noexcept {
    sim::programMayDie();
    sim::real::abort();
}

SIM_API void _exit(int status) {
    sim::programMayDie();
    sim::real::exitNow(status);
}

SIM_API void _Exit(int status) noexcept {
    sim::programMayDie();
    sim::real::exitNow(status);
}

} // extern "C"
