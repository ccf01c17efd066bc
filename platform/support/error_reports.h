/// \file
/// How the platform libraries report errors of the kernel.
#pragma once

#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <tuple>
#include <utility>

namespace platform {

/// \param error an errno
/// \return its text, for example "Input/output error"
inline std::string errorText(int error) {
    char buffer[128];
    return ::strerror_r(error, buffer, sizeof buffer); // the variant that returns the text
}

/// Reports errors on standard error, each device, operation and errno once: a line that fails at
/// every frame must not flood the host's log. May be called from several threads.
class tcErrorReports {
public:
    /// \param who the class that reports
    explicit tcErrorReports(std::string who) : m_who(std::move(who)) {}

    /// Prints "WHO: DEVICE: OPERATION: TEXT (errno N)", unless that was printed already.
    void report(const std::string& device, const std::string& operation, int error) {
        const std::lock_guard lock(m_lock);
        if (!m_reported.emplace(device, operation, error).second)
            return;
        std::cerr << m_who + ": " + device + ": " + operation + ": " + errorText(error) +
                         " (errno " + std::to_string(error) + ")\n";
    }

private:
    std::mutex m_lock;
    std::string m_who;
    std::set<std::tuple<std::string, std::string, int>> m_reported;
};

} // namespace platform
