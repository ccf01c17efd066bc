// Faults of the serial link.

#include <array>
#include <cstddef>
#include <string_view>

#include "sim/chips/link.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_words.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

using namespace faultWords;
using text::whole;

tcNumbers readPll(const std::vector<std::string>& words) {
    constexpr std::array<std::string_view, 4> names{"locked", "rgLocked", "gbLocked", "PLL"};
    const std::optional<std::uint32_t> name = indexIn(names, words[0]);
    tcNumbers numbers = name ? lockBehaviour(tcWords(words).subspan(1)) : std::nullopt;
    if (numbers) {
        numbers->which = *name == 3 ? 7U : 1U << *name;
    }
    return numbers;
}

void applyPll(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    tsLinkFacts& link = conditions.link;
    for (std::size_t flag = 0; flag < kPllFlags; ++flag) {
        if ((numbers.which >> flag & 1) == 0) {
            continue;
        }
        link.lostPll &= ~(1U << flag);
        if (numbers.value == kLost) {
            link.lostPll |= 1U << flag;
        } else {
            link.pllNs[flag] = numbers.timeNs;
        }
    }
}

// "lanes 3 7 late 50", "lanes all lost"
tcNumbers readLanes(const std::vector<std::string>& words) {
    if (words[0] != "lanes") {
        return std::nullopt;
    }
    std::uint32_t lanes = 0;
    std::size_t at = 1;
    if (words.size() > 1 && words[1] == "all") {
        lanes = (1U << kLinkLanes) - 1;
        ++at;
    } else {
        for (; at < words.size(); ++at) {
            const std::optional<unsigned> lane = whole<unsigned>(words[at]);
            if (!lane) {
                break;
            }
            if (*lane >= kLinkLanes) {
                return std::nullopt;
            }
            lanes |= 1U << *lane;
        }
    }
    tcNumbers numbers = lanes == 0 ? std::nullopt : lockBehaviour(tcWords(words).subspan(at));
    if (numbers) {
        numbers->which = lanes;
    }
    return numbers;
}

void applyLanes(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    tsLinkFacts& link = conditions.link;
    link.lostLanes &= ~numbers.which;
    if (numbers.value == kLost) {
        link.lostLanes |= numbers.which;
        return;
    }
    for (std::size_t lane = 0; lane < kLinkLanes; ++lane) {
        if ((numbers.which >> lane & 1) != 0) {
            link.laneNs[lane] = numbers.timeNs;
        }
    }
}

tcNumbers readAlignment(const std::vector<std::string>& words) {
    return words[0] == "alignment" ? lockBehaviour(tcWords(words).subspan(1)) : std::nullopt;
}

void applyAlignment(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    conditions.link.alignmentLost = numbers.value == kLost;
    if (numbers.value != kLost) {
        conditions.link.alignmentNs = numbers.timeNs;
    }
}

tcNumbers readPolarity(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> lanes =
        words.size() == 2 && words[0] == "polarity" ? whole<std::uint32_t>(words[1]) : std::nullopt;
    if (!lanes || *lanes >> kLinkLanes != 0) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = *lanes;
    return numbers;
}

void applyPolarity(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    conditions.link.polarity = numbers.which;
}

constexpr std::array kLinkKinds{
    tsFaultKind{"`PLL never`, `PLL late MS` or `PLL lost`; `locked`, `rgLocked` or `gbLocked` in "
                "the place of `PLL`",
                "The receiver's PLL, or one of its flags: does not lock, takes MS milliseconds to "
                "lock, or loses its lock.",
                readPll, applyPll},
    tsFaultKind{"`lanes 3 7 never`, `lanes 3 7 late MS` or `lanes 3 7 lost`; `lanes all`",
                "Lanes, 0 to 11, in the same way.", readLanes, applyLanes},
    tsFaultKind{"`alignment never`, `alignment late MS` or `alignment lost`",
                "Frame alignment in the same way.", readAlignment, applyAlignment},
    tsFaultKind{"`polarity 0x5D8`", "Which lanes arrive inverted: what the lane inversion must be.",
                readPolarity, applyPolarity},
};

} // namespace

std::span<const tsFaultKind> linkFaults() {
    return kLinkKinds;
}

} // namespace sim
