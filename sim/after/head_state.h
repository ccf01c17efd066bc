/// \file
/// What a head is at one moment of a run, as far as its events tell: what a page shows while the
/// program runs, and what it goes back to.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// What a register holds, and since when.
struct tsRegisterNow {
    std::uint32_t value = 0;
    std::uint64_t event = 0;  ///< number of the event that told
    std::uint64_t timeNs = 0; ///< of that event
};

/// One GPIO line as the program has it.
struct tsLineNow {
    bool output = false;
    std::optional<unsigned> level; ///< that was driven or read last; empty: not known
    std::uint64_t event = 0;       ///< number of the event that told
};

/// The last conversion of one channel of the supply monitor.
struct tsConversionNow {
    std::optional<std::uint32_t> steps; ///< empty: the transfer failed
    std::uint64_t event = 0;            ///< number of the event that told
    std::uint64_t timeNs = 0;           ///< of that event
};

/// What the head does by itself: the numbers behind "STATE NAME".
struct tsNumbersNow {
    std::vector<std::uint64_t> numbers;
    std::uint64_t event = 0; ///< number of the event that told
};

/// A head, put together from its events in the order in which they came. A value: copies are
/// independent.
class tcHeadState {
public:
    /// The next event. \param number of it \param timeNs since the head was built \param text as in
    /// a log or trace, without the time; what no head writes is passed over
    void take(std::uint64_t number, std::uint64_t timeNs, std::string_view text);
    /// Events were lost: what was known is not known any more, but for what counts the run.
    void lost(std::uint64_t events);

    /// \return number of the last event; empty before the first one
    [[nodiscard]] std::optional<std::uint64_t> event() const { return m_event; }
    /// \return latest time of an event since the head was built [ns]
    [[nodiscard]] std::uint64_t timeNs() const { return m_timeNs; }
    /// \return what "STATE NAME" said last; null: it did not
    [[nodiscard]] const tsNumbersNow* numbers(std::string_view name) const;
    /// \return whether the flag is set; what nobody told of is not
    [[nodiscard]] bool flag(std::string_view name) const;
    [[nodiscard]] const std::map<std::string, tsLineNow>& lines() const { return m_lines; }
    /// By channel.
    [[nodiscard]] const std::map<std::uint32_t, tsConversionNow>& conversions() const {
        return m_conversions;
    }
    /// By register number: what the sensor holds, as far as it was written since it woke.
    [[nodiscard]] const std::map<std::uint32_t, tsRegisterNow>& sensor() const { return m_sensor; }
    /// By register number: what the program sent last, whatever became of it.
    [[nodiscard]] const std::map<std::uint32_t, tsRegisterNow>& sent() const { return m_sent; }
    /// By physical address: what was stored or loaded last.
    [[nodiscard]] const std::map<std::uint32_t, tsRegisterNow>& fpga() const { return m_fpga; }
    /// By name: "MODE", "LSB", "BITS", "HZ".
    [[nodiscard]] const std::map<std::string, std::uint64_t>& spiSettings() const {
        return m_spiSettings;
    }
    /// Names of the faults that last, in the order in which they began.
    [[nodiscard]] const std::vector<std::string>& faults() const { return m_faults; }
    [[nodiscard]] std::uint64_t violations() const { return m_violations; }
    [[nodiscard]] std::uint64_t failedCalls() const { return m_failedCalls; }
    [[nodiscard]] std::uint64_t lostEvents() const { return m_lostEvents; }
    [[nodiscard]] bool ended() const { return m_ended; }
    /// \return the master clock that the FPGA makes, by its registers [MHz]
    [[nodiscard]] double clockMhz() const;
    /// \return roughly the memory that a copy takes [bytes]
    [[nodiscard]] std::size_t bytes() const;

private:
    using tcWords = std::vector<std::string_view>;
    void takeState(const tcWords& words);
    void takeSensorWord(const tcWords& words);
    void takeFpgaWord(const tcWords& words);
    void takeLine(const tcWords& words);
    void takeNote(std::string_view text);
    [[nodiscard]] tsRegisterNow holds(std::uint64_t value) const;

    std::optional<std::uint64_t> m_event;
    std::uint64_t m_timeNs = 0;
    std::uint64_t m_now = 0; // of the event at hand [ns]
    std::map<std::string, tsNumbersNow, std::less<>> m_numbers;
    std::map<std::string, tsLineNow> m_lines;
    std::map<std::uint32_t, tsConversionNow> m_conversions;
    std::map<std::uint32_t, tsRegisterNow> m_sensor;
    std::map<std::uint32_t, tsRegisterNow> m_sent;
    std::map<std::uint32_t, tsRegisterNow> m_fpga;
    std::map<std::string, std::uint64_t> m_spiSettings;
    std::vector<std::string> m_faults;
    std::uint64_t m_violations = 0;
    std::uint64_t m_failedCalls = 0;
    std::uint64_t m_lostEvents = 0;
    bool m_ended = false;
};

} // namespace sim
