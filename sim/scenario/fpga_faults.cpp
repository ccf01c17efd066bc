// Faults of the FPGA's register blocks.

#include <array>
#include <cerrno>
#include <cstddef>
#include <string_view>

#include "fpga/registers.h"
#include "sim/chips/conditions.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_words.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

using namespace faultWords;
using text::whole;

struct tsBlock {
    std::string_view name;
    std::uint32_t address;
};
constexpr std::array kBlocks{
    tsBlock{"base", fpgaAddresses::kBase},
    tsBlock{"clock", fpgaAddresses::kPll},
    tsBlock{"frame-control", fpgaAddresses::kFrameCtrl},
    tsBlock{"pwm", fpgaAddresses::kPwm},
    tsBlock{"bad-pixel-take-over", fpgaAddresses::kBadPixelTakeOver},
    tsBlock{"bad-pixel-table", fpgaAddresses::kBadPixelTable},
    tsBlock{"bad-pixel", fpgaAddresses::kBadPixelControl},
    tsBlock{"pixel-shift", fpgaAddresses::kPixelShift},
};

// The page of "block NAME SUFFIX", as a fault's `which`.
tcNumbers readBlock(const std::vector<std::string>& words, std::string_view suffix) {
    if (words.size() != 3 || words[0] != "block" || words[2] != suffix) {
        return std::nullopt;
    }
    for (const tsBlock& block : kBlocks) {
        if (block.name == words[1]) {
            tsFaultNumbers numbers;
            numbers.which = (block.address - fpgaAddresses::kRegion) / kPageBytes;
            return numbers;
        }
    }
    return std::nullopt;
}

tcNumbers readSilent(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> core =
        words.size() == 3 && words[0] == "block" && words[2] == "silent"
            ? indexIn(kCoreNames, words[1])
            : std::nullopt;
    if (!core) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = *core;
    return numbers;
}

void applyStuckBlock(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    constexpr std::size_t words = kPageBytes / 4;
    for (std::size_t word = 0; word < words; ++word) {
        conditions.stuck.set(numbers.which * words + word);
    }
}

tcNumbers readStuckWord(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> address =
        words.size() == 3 && words[0] == "word" && words[2] == "stuck"
            ? whole<std::uint32_t>(words[1])
            : std::nullopt;
    if (!address || *address % 4 != 0 ||
        *address - fpgaAddresses::kRegion >= fpgaAddresses::kRegionLength) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = (*address - fpgaAddresses::kRegion) / 4;
    return numbers;
}

constexpr std::array kFpgaKinds{
    tsFaultKind{
        "`block NAME unmappable`; NAME is base, clock, frame-control, pwm, "
        "bad-pixel-take-over, bad-pixel-table, bad-pixel or pixel-shift",
        "The block's registers cannot be mapped (ENOMEM).",
        [](const std::vector<std::string>& words) { return readBlock(words, "unmappable"); },
        [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
            conditions.mapErrors[numbers.which] = ENOMEM;
        }},
    tsFaultKind{"`block NAME silent`; NAME is frame-control, pwm, pixel-shift or bad-pixel",
                "The core's identification reads 0: it is not initialized.", readSilent,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.silent[numbers.which] = true;
                }},
    tsFaultKind{"`block NAME stuck`; NAME as for unmappable",
                "No register of the block takes what is written: a clock generator that does not "
                "follow, a pulse core that refuses.",
                [](const std::vector<std::string>& words) { return readBlock(words, "stuck"); },
                applyStuckBlock},
    tsFaultKind{"`word 0xFF204300 stuck`", "One register in the same way.", readStuckWord,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.stuck.set(numbers.which);
                }},
};

} // namespace

std::span<const tsFaultKind> fpgaFaults() {
    return kFpgaKinds;
}

} // namespace sim
