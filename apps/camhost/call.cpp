#include "apps/camhost/call.h"

#include <cstddef>
#include <iomanip>
#include <sstream>

#include "apps/camhost/interrupt.h"

namespace camhost {

namespace {

/// Unlocks for as long as it lives.
class tcUnlocked {
public:
    explicit tcUnlocked(std::unique_lock<std::mutex>& lock) : m_lock(lock) { m_lock.unlock(); }
    tcUnlocked(const tcUnlocked&) = delete;
    tcUnlocked& operator=(const tcUnlocked&) = delete;
    ~tcUnlocked() { m_lock.lock(); }

private:
    std::unique_lock<std::mutex>& m_lock;
};

std::string seconds(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << static_cast<double>(time.count()) / 1000.0
         << " s";
    return text.str();
}

/// \return for example "capture [#####     ] 2.5 s of 5.0 s"
std::string progressLine(const std::string& what, std::chrono::milliseconds done,
                         std::chrono::milliseconds all) {
    constexpr int kWidth = 30;
    const auto full = static_cast<std::size_t>(kWidth * done.count() / all.count());
    return what + " [" + std::string(full, '#') + std::string(kWidth - full, ' ') + "] " +
           seconds(done) + " of " + seconds(all);
}

} // namespace

bool tcCall::wait(std::chrono::milliseconds duration, const std::string& what) {
    const tcUnlocked unlocked(m_lock);
    const bool whole = tcInterrupt::sleep(duration, [&](std::chrono::milliseconds slept) {
        m_caller.progress(progressLine(what, slept, duration));
        return isWaitedFor();
    });
    m_caller.progress("");
    return whole;
}

bool tcCall::pause(std::chrono::milliseconds duration) {
    const tcUnlocked unlocked(m_lock);
    return tcInterrupt::sleep(duration,
                              [this](std::chrono::milliseconds) { return isWaitedFor(); });
}

} // namespace camhost
