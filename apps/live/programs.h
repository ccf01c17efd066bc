/// \file
/// The processes of a run that use the head: their events come in, orders go out.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "apps/live/time_line.h"
#include "sim/base/fault.h"

namespace live {

/// What is known of the process whose head is shown: the last one that began.
struct tsProcess {
    unsigned number = 0; ///< counted from 1; 0: none has used the head yet
    std::int64_t id = 0; ///< of the process
    bool realTime = false;
    bool running = false; ///< it may use its head further
    bool stopped = false; ///< its calls wait
    std::uint64_t pictures = 0;
};

/// An order that was not carried out. \p what() says why, as a sentence for a person.
class tcRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Takes in what the heads of a run show. One thread of its own reads events, 100 times a second;
/// no program ever waits for it. Any thread may call at any time.
class tcPrograms {
public:
    /// \param folder the run's own; the launcher gives it to the program as `launch::kLive`
    /// \param timeLine gets the events; outlives this object
    /// \throws std::runtime_error when the folder's path is too long for a socket, or it cannot be
    /// made
    tcPrograms(std::filesystem::path folder, tcTimeLine& timeLine);
    tcPrograms(const tcPrograms&) = delete;
    tcPrograms& operator=(const tcPrograms&) = delete;
    ~tcPrograms();
    /// Ends the thread, and lets all programs go on.
    void end();

    /// Starts the thread. To be called once.
    /// \param round called by it after each look, with whether events came, or a process began or
    /// ended
    void begin(std::function<void(bool)> round);

    [[nodiscard]] tsProcess process() const;
    /// \return what the latest picture depends on (`tsFrameSettings`); empty before the first one
    [[nodiscard]] std::string frame() const;
    /// Somebody looks, or not: only then the head is asked what it did by itself.
    void watched(bool by) { m_watched = by; }

    /// \throws tcRefused with the reason; nothing has changed then
    void addFault(const sim::tsFault& fault);
    /// \throws tcRefused
    void endFault(const std::string& name);
    /// Stops the program's calls, lets one more event happen, or lets it go on.
    /// \throws tcRefused when time is real, or no program runs
    void stop();
    void step();
    void go();
    /// Takes in what has happened until now: first the head of the program that runs, if there is
    /// one, looks at what it did by itself. \throws tcRefused when the program does not answer
    void look();
    /// Takes in what is left of a program that has ended.
    void drain();

private:
    struct tsClient;
    using tcClients = std::vector<std::shared_ptr<tsClient>>;
    void work();
    void accept();
    void greet(tsClient& client);
    bool takeIn(tsClient& client);
    [[nodiscard]] bool round(int waitMs);
    [[nodiscard]] std::shared_ptr<tsClient> current() const;
    [[nodiscard]] std::shared_ptr<tsClient> currentRunning() const;
    [[nodiscard]] std::shared_ptr<tsClient> currentVirtual() const;
    void obeyedBefore(tsClient& client);

    std::filesystem::path m_folder;
    tcTimeLine& m_timeLine;
    std::function<void(bool)> m_round;
    int m_listening = -1;
    mutable std::mutex m_mutex; // of what follows
    tcClients m_clients;
    std::shared_ptr<tsClient> m_current;
    std::vector<sim::tsFault> m_waiting; // for the next program
    unsigned m_processes = 0;
    std::mutex m_reading;            // of rings: the thread, and who drains
    std::atomic<bool> m_news{false}; // was taken in by another thread than that of `m_round`
    std::atomic<bool> m_watched{false};
    std::atomic<bool> m_over{false};
    std::thread m_thread;
};

} // namespace live
