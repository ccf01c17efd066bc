/// \file
/// Keeps what passes at the device boundary, or gives back what was kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/recordings/recording.h"

namespace sim {

/// A recording in the making, or one that is played. Nothing happens before the first call that is
/// kept or asked for: the file belongs to the process that makes it. Takes no lock.
///
/// Several processes of a run have files of their own: the first that uses a device has FILE, the
/// next FILE.2, and so on.
class tcTape {
public:
    enum class teMode : std::uint8_t { off, record, play };

    /// Status of a program that was ended because it did something else than the recording says.
    static constexpr int kDiffers = 10;

    /// From now on every call is kept. Files that are there already are left alone.
    void recordTo(const std::string& path);
    /// From now on calls are answered from the recording. \param claims the n-th process of the run
    /// that uses a device makes this file, with ".n" behind it from the second on; empty: none does
    void playFrom(const std::string& path, const std::string& claims);

    [[nodiscard]] bool recording() const { return m_mode == teMode::record; }
    [[nodiscard]] bool playing() const { return m_mode == teMode::play; }
    /// \return whether a device was used: sleeps before that are nobody's business
    [[nodiscard]] bool started() const { return m_started; }
    /// Finds the process's file. Not possible in a signal handler; the others are.
    void start();
    /// \return the next number for a file that is opened
    [[nodiscard]] unsigned nextFile() { return ++m_files; }

    void keep(std::uint64_t timeNs, std::string_view asked, std::string_view answer);

    struct tsAnswer {
        std::uint64_t timeNs = 0;
        std::string_view text;
    };
    /// \return what the recording answers; ends the program when it has another call here
    [[nodiscard]] tsAnswer answerTo(std::string_view asked);
    /// Ends the program: the last answer does not fit its call.
    [[noreturn]] void refuseAnswer(std::string_view why) const;

    /// \return calls that were kept or answered
    [[nodiscard]] std::size_t calls() const { return m_calls; }
    [[nodiscard]] const std::string& path() const { return m_path; }
    /// \return what the recording would go on with; empty at its end
    [[nodiscard]] std::string rest() const;

private:
    /// Makes the process's own file of those with this name. \return its descriptor
    int claim(const std::string& path);
    [[noreturn]] void differs(std::string_view recorded, std::string_view now) const;

    teMode m_mode = teMode::off;
    bool m_started = false;
    std::string m_path;
    std::string m_claims;
    int m_descriptor = -1;
    unsigned m_files = 0;
    std::size_t m_calls = 0;
    std::vector<tsExchange> m_exchanges;
};

} // namespace sim
