/// \file
/// The bench of a run: everything that --serve brings, put together.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "apps/live/fault_session.h"
#include "apps/live/http_service.h"
#include "apps/live/interface.h"
#include "apps/live/programs.h"
#include "apps/live/time_line.h"

namespace live {

inline constexpr std::size_t kTimeLineBudget = std::size_t{64} * 1024 * 1024; // bytes

/// What a bench is made for.
struct tsLiveOptions {
    std::string host = "127.0.0.1";
    std::uint16_t port = 0;       ///< 0: any that is free
    std::filesystem::path folder; ///< of the run, for its processes
    std::string scenarioText;     ///< content of the scenario's file
    tsRunAbout about;
};

/// Serves a run from before its program begins until the object goes.
class tcLiveRun {
public:
    /// \param pictures paints what the head delivers
    /// \throws std::runtime_error when it cannot listen
    tcLiveRun(const tsLiveOptions& options, sim::tcFrameWriter pictures);
    tcLiveRun(const tcLiveRun&) = delete;
    tcLiveRun& operator=(const tcLiveRun&) = delete;
    ~tcLiveRun() = default;

    /// \return "http://127.0.0.1:8080/"
    [[nodiscard]] std::string address() const { return m_service.address(); }
    /// The program has ended: what its head said last is taken in. \param status as a shell has it
    void programEnded(int status);

private:
    sim::tcFrameWriter m_pictures;
    tcTimeLine m_timeLine{kTimeLineBudget};
    tcPrograms m_programs;
    tcFaultSession m_faults;
    tcInterface m_interface;
    tcHttpService m_service;
    struct tsThread { // ends before anything that it calls goes
        tcPrograms& programs;
        ~tsThread() { programs.end(); }
    } m_thread{m_programs};
};

} // namespace live
