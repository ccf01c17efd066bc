/// \file
/// What a run was: what the page is made from.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fpga/registers.h"
#include "sim/after/trace_reader.h"

namespace sim {

inline constexpr std::size_t kPllFlagCount = 3; ///< of the link's receiver

using tcMoment = std::optional<std::uint64_t>; ///< [ns]; empty: it did not happen

/// A register write, as the head saw it arrive.
struct tsWrite {
    std::uint64_t timeNs = 0;
    bool sensor = false;
    std::uint32_t address = 0;           ///< register number, or physical address
    std::optional<std::uint32_t> before; ///< what the register held; empty: nobody knows
    std::uint32_t value = 0;
    bool taken = true; ///< the register has changed
    std::string fate;  ///< empty: all is well
    std::string other; ///< what went over the wire, where that was no register write
};

/// One attempt to train the link.
struct tsAttempt {
    std::uint64_t startNs = 0;
    std::array<tcMoment, kPllFlagCount> pll;
    tcMoment reset; ///< of the lanes
    std::array<tcMoment, frameCtrlRegisters::kLanes> lanes;
    tcMoment held;
    tcMoment aligned;
};

/// One conversion of the ADC.
struct tsReading {
    std::uint64_t timeNs = 0;
    std::uint32_t channel = 0;
    std::optional<std::uint32_t> steps; ///< empty: the transfer failed
    bool settling = false;              ///< it is the one that switched the reference on
};

/// Frame and exposure as the sensor's registers had them.
struct tsTiming {
    bool triggered = false; ///< a trigger sets the frame
    std::uint32_t frameLines = 0;
    std::uint32_t lineClocks = 1;
    std::uint32_t exposureLines = 0;
    bool fromFirstLine = false; ///< it cannot begin earlier
    double clockMhz = 0;
    friend bool operator==(const tsTiming&, const tsTiming&) = default;
};

/// Frame and exposure from a time on.
struct tsTimedTiming {
    std::uint64_t timeNs = 0;
    tsTiming timing;
};

/// What a run was.
struct tsRun {
    std::map<std::string, std::uint64_t> first; ///< when something happened first [ns]
    std::vector<tsAttempt> attempts;
    std::vector<tsReading> readings;
    std::vector<tsTimedTiming> timings;
    std::vector<tsWrite> writes;
    std::vector<tsTraceLine> violations;
    std::vector<tsTraceLine> failures;
    std::vector<tsTraceLine> faults;
    std::uint64_t endNs = 0;

    /// Keeps the time, where it is the first one. \param what for example "RESET_B"
    void happened(const std::string& what, std::uint64_t timeNs) { first.emplace(what, timeNs); }
    /// \return when it happened first
    [[nodiscard]] tcMoment firstTime(const std::string& what) const {
        const auto found = first.find(what);
        return found == first.end() ? tcMoment{} : tcMoment{found->second};
    }
};

} // namespace sim
