/// \file
/// Faults that come and go while the head runs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/base/fault.h"
#include "sim/chips/conditions.h"
#include "sim/journal/journal.h"

namespace sim {

/// When a fault begins or ends.
struct tsMoment {
    std::optional<std::uint64_t> timeNs; // since the head was built
    std::string event;                   // words with which its line begins; empty: no event
    std::uint64_t nth = 1;
    [[nodiscard]] bool given() const { return timeNs.has_value() || !event.empty(); }
};

/// Numbers of what goes wrong; each kind of fault has its own use for them.
struct tsFaultNumbers {
    std::uint32_t which = 0; // lanes, lines or flags, one bit each; rail; core; index of a word
    std::uint32_t value = 0;
    std::uint64_t timeNs = 0;
    double volts = 0;
    int error = 0;
};

/// A kind of fault: a row of the table.
struct tsFaultKind {
    const char* form; // "`lanes N ... lost`"
    const char* meaning;
    /// \return empty when the words say something else
    std::optional<tsFaultNumbers> (*read)(const std::vector<std::string>& words);
    /// \param beganNs when the fault began
    void (*apply)(const tsFaultNumbers& numbers, std::uint64_t beganNs, tsConditions& conditions);
};

/// A fault as it was asked for.
struct tsPlannedFault {
    std::string name;
    const tsFaultKind* kind = nullptr;
    tsFaultNumbers numbers;
    tsMoment from;                         // neither: from the start
    tsMoment until;                        // neither: for ever
    std::optional<std::uint64_t> lengthNs; // instead of `until`
};

/// A text of a fault that cannot be understood.
struct tsFaultError {
    std::string key;
    std::string value;
    std::string why; // "allowed is ..."
};

/// Puts one text into its place. \param key "what", "at", "after", "for" or "until"
/// \return empty, or what is wrong
std::optional<tsFaultError> setFaultText(tsFault& fault, const std::string& key,
                                         const std::string& value);
/// \param error set when the result is empty
std::optional<tsPlannedFault> plannedFault(const tsFault& fault, tsFaultError& error);
/// \return the keys and every kind of fault, as Markdown
std::string faultsMarkdown();
/// \return names of the keys, as an error lists them
std::string faultKeys();

/// The faults of a head. Takes no lock. All operations but constructor and `records` are possible
/// in a signal handler.
class tcFaults {
public:
    tcFaults(tcJournal& journal, const tsConditions& healthy,
             const std::vector<tsPlannedFault>& planned);

    /// \return how the head behaves at present
    [[nodiscard]] const tsConditions& now() const { return m_now; }
    /// \return when the next fault begins or ends, as far as that is known [ns]; empty: none does
    [[nodiscard]] std::optional<std::uint64_t> nextNs() const;
    /// Begins and ends what is due at the present time. \return whether anything did
    bool change();
    /// An event of the log, which a fault may wait for.
    void sees(const tsLogEvent& event);
    /// The run is over: what never struck is worth a note, once.
    void tellWhatNeverStruck();
    [[nodiscard]] std::vector<tsFaultRecord> records() const;

private:
    enum class teStage : std::uint8_t { waiting, lasting, over };
    struct tsRunning {
        tsPlannedFault planned;
        teStage stage = teStage::waiting;
        std::optional<std::uint64_t> beginsNs{};
        std::optional<std::uint64_t> endsNs{};
        std::uint64_t events = 0; // of those waited for
    };
    static void fixBegin(tsRunning& fault, std::uint64_t timeNs);
    static void seesForBegin(tsRunning& fault, const tsLogEvent& event);
    static void seesForEnd(tsRunning& fault, const tsLogEvent& event);
    void tell(const tsRunning& fault, const char* what);
    void apply();

    tcJournal& m_journal;
    tsConditions m_healthy;
    tsConditions m_now;
    std::vector<tsRunning> m_faults;
    bool m_over = false;
};

} // namespace sim
