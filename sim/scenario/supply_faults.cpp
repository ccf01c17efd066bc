// Faults of the supplies' voltages.

#include <array>
#include <cstddef>

#include "sim/chips/supplies.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_words.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

using namespace faultWords;

tsRailFacts& railOf(const tsFaultNumbers& numbers, tsConditions& conditions) {
    return conditions.rails[numbers.which];
}

// \return the rail of "rail NAME ..."
std::optional<teRail> railOf(const std::vector<std::string>& words) {
    return words.size() > 2 && words[0] == "rail" ? railNamed(words[1]) : std::nullopt;
}

tcNumbers readRail(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    const std::optional<double> volts =
        rail && words.size() == 3 ? text::volts(*rail, words[2]) : std::nullopt;
    if (!volts) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    numbers.volts = *volts;
    return numbers;
}

void applyRail(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    railOf(numbers, conditions).settledVolts = numbers.volts;
}

tcNumbers readDroop(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    if (!rail || words.size() != 6 || words[2] != "droops" || words[4] != "over") {
        return std::nullopt;
    }
    const std::optional<double> volts = text::number(words[3]);
    const std::optional<std::uint64_t> time = text::milliseconds(words[5]);
    if (!volts || *volts <= 0 || !time) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    numbers.volts = *volts;
    numbers.timeNs = *time;
    return numbers;
}

void applyDroop(const tsFaultNumbers& numbers, std::uint64_t beganNs, tsConditions& conditions) {
    tsRailFacts& rail = railOf(numbers, conditions);
    rail.sunkVolts = numbers.volts;
    rail.sinksFromNs = beganNs;
    rail.sinksForNs = numbers.timeNs;
}

tcNumbers readUnreadable(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    if (!rail || words.size() != 3 || words[2] != "unreadable") {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    return numbers;
}

void applyUnreadable(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    railOf(numbers, conditions).unreadable = true;
}

constexpr std::array kSupplyKinds{
    tsFaultKind{"`rail VDD1.2 0.9`, or an offset with its sign: `rail VDD1.2 -0.3`",
                "The supply has another voltage at once.", readRail, applyRail},
    tsFaultKind{"`rail VDD1.2 droops 0.3 over 20`",
                "The supply sinks by so many volts within so many milliseconds, in a straight "
                "line, and stays there.",
                readDroop, applyDroop},
    tsFaultKind{"`rail VDD1.2 unreadable`",
                "The monitor acknowledges, but drives no bit of this supply's readings: they are "
                "0xFFFF, which is no code of 12 bits.",
                readUnreadable, applyUnreadable},
};

} // namespace

std::span<const tsFaultKind> supplyFaults() {
    return kSupplyKinds;
}

} // namespace sim
