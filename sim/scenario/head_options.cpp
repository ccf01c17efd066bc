#include "sim/scenario/head_options.h"

#include "sim/base/healthy_head.h"

namespace sim {

namespace {

constexpr std::uint32_t kDefaultPolarity = 0x5D9; // how the head's lanes are wired

} // namespace

std::uint64_t linkTime(std::chrono::nanoseconds time) {
    if (time == kNever) {
        return tsLinkFacts::kForEver;
    }
    return time.count() < 0 ? 0 : static_cast<std::uint64_t>(time.count());
}

tsHeadOptions::tsHeadOptions() {
    for (std::size_t at = 0; at < kRails; ++at) {
        conditions.rails[at].settledVolts = nominalVolts(static_cast<teRail>(at));
    }
    fpga.systemId = {0x3505, 0x10203};
    conditions.link.pllNs.fill(linkTime(kPllLockTime));
    conditions.link.laneNs.fill(linkTime(kDpaLockTime));
    conditions.link.alignmentNs = linkTime(kAlignmentTime);
    conditions.link.polarity = kDefaultPolarity;
    // Scanned from the bottom and from the right, these are the pixels of the demonstration map.
    defects = {{0, 0, 4095}, {1296, 1028, 0}, {2491, 1855, 4095}};
}

bool possible(const tsDefect& defect) {
    constexpr std::uint16_t lastCode = 4095;
    return defect.x < tcScene::kColumns && defect.y < tcScene::kRows && defect.value <= lastCode;
}

} // namespace sim
