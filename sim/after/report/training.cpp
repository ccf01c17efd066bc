// The link's training, attempt by attempt and lane by lane.

#include <array>
#include <cstddef>

#include "fpga/registers.h"
#include "sim/after/markup.h"
#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

std::string since(const tsAttempt& attempt, const tcMoment& moment, const tcMoment& from) {
    return moment ? milliseconds(*moment - from.value_or(attempt.startNs)) : "never";
}

std::string verdict(const tsAttempt& attempt) {
    for (const tcMoment& flag : attempt.pll) {
        if (!flag) {
            return "the receiver's PLL did not lock";
        }
    }
    std::string missing;
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        missing += attempt.lanes[lane] ? "" : " " + std::to_string(lane);
    }
    if (!missing.empty()) {
        return "lanes that did not lock:" + missing;
    }
    return attempt.aligned ? "aligned" : "not aligned";
}

std::string attemptText(const tsAttempt& attempt, std::size_t number) {
    std::string rows;
    constexpr std::array flags{"locked", "rgLocked", "gbLocked"};
    for (std::size_t at = 0; at < flags.size(); ++at) {
        rows += row({std::string("PLL ") + flags[at], since(attempt, attempt.pll[at], {})},
                    attempt.pll[at] ? "" : kBad);
    }
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        rows += row(
            {"lane " + std::to_string(lane), since(attempt, attempt.lanes[lane], attempt.reset)},
            attempt.lanes[lane] ? "" : kBad);
    }
    rows += row({"aligned", since(attempt, attempt.aligned, attempt.held)},
                attempt.aligned ? "" : kBad);
    const std::string id = "attempt" + std::to_string(number);
    return "<section>\n<h3>Attempt " + std::to_string(number) + " at " +
           milliseconds(attempt.startNs) + ": " + escapedMarkup(verdict(attempt)) + "</h3>\n" +
           table(id.c_str(), {"What", "After"}, rows) + "</section>\n";
}

} // namespace

std::string training(const tsRun& run) {
    std::string text =
        "<h2>Link training</h2>\n<p>PLL flags count from the start of the attempt, "
        "lanes from their reset, alignment from the hold.</p>\n<div class=\"attempts\">\n";
    for (std::size_t at = 0; at < run.attempts.size(); ++at) {
        text += attemptText(run.attempts[at], at + 1);
    }
    text += "</div>\n";
    return text + (run.attempts.empty() ? "<p>The frame-control core was never on.</p>\n" : "");
}

} // namespace sim::page
