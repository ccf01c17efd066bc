/// \file
/// How the launcher tells the preloaded library what to do, and where each finds the other's files.
#pragma once

#include <string>

namespace sim::launch {

inline constexpr const char* kPreloaded = "VIRTUAL_HEAD_PRELOADED"; ///< process id of the program
inline constexpr const char* kScenario = "VIRTUAL_HEAD_SCENARIO";   ///< file; unset: healthy
inline constexpr const char* kTime = "VIRTUAL_HEAD_TIME";           ///< "virtual" or "real"
inline constexpr const char* kLog = "VIRTUAL_HEAD_LOG";             ///< file; unset: no log
inline constexpr const char* kTrace =
    "VIRTUAL_HEAD_TRACE"; ///< file for every event and what the head does by itself, plus ".PID"
inline constexpr const char* kFrames =
    "VIRTUAL_HEAD_FRAMES"; ///< file for recorded frames, plus ".PID"; unset: none
inline constexpr const char* kMaxFrames = "VIRTUAL_HEAD_MAX_FRAMES"; ///< how many, in decimal
inline constexpr const char* kRecord =
    "VIRTUAL_HEAD_RECORD"; ///< file that keeps the calls; FILE.2, ... for further processes
inline constexpr const char* kReplay =
    "VIRTUAL_HEAD_REPLAY"; ///< recording that answers; FILE.2, ... for further processes
inline constexpr const char* kClaims =
    "VIRTUAL_HEAD_CLAIMS"; ///< file made by each process that plays a recording; plus ".N"
inline constexpr const char* kHardware =
    "VIRTUAL_HEAD_HARDWARE"; ///< set: the machine's own devices answer
inline constexpr const char* kLive =
    "VIRTUAL_HEAD_LIVE"; ///< folder in which a process shows its head while it runs; unset: none
inline constexpr const char* kStopped =
    "VIRTUAL_HEAD_STOPPED"; ///< set: calls wait from the first event on; needs virtual time
inline constexpr const char* kOrders = "/orders"; ///< in the folder: the socket of who looks
inline constexpr const char* kReport = "VIRTUAL_HEAD_REPORT"; ///< file for the summary, plus ".PID"
inline constexpr const char* kDelivered =
    "VIRTUAL_HEAD_DELIVERED"; ///< file for the number of delivered pictures, plus ".PID"
inline constexpr const char* kSilences =
    "VIRTUAL_HEAD_SILENCES"; ///< file for times without pictures, a line each, plus ".PID"
inline constexpr const char* kVerdict =
    "VIRTUAL_HEAD_VERDICT"; ///< file for the violations' count, plus ".PID"

/// \param process counted from 1
/// \return FILE for the first process of a run that has one, FILE.2 for the second, and so on
inline std::string fileOfProcess(const std::string& file, unsigned process) {
    return process == 1 ? file : file + "." + std::to_string(process);
}

} // namespace sim::launch
