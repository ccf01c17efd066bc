#include "sim/after/overview.h"

#include <algorithm>
#include <cstddef>

#include "fpga/registers.h"
#include "sim/after/report/page.h"
#include "sim/after/report/run_reader.h"
#include "sim/after/report/stage_list.h"
#include "sim/after/settings.h"
#include "sim/after/verdict.h"

namespace sim {

namespace {

std::string padded(const std::string& text, std::size_t width) {
    return text + std::string(text.size() < width ? width - text.size() : 0, ' ');
}

std::string rightAligned(const std::string& text, std::size_t width) {
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + text;
}

std::string overviewOfStages(const tsRun& run) {
    constexpr std::size_t width = 14;
    const page::tsStages stages = page::stagesOf(run);
    std::string text = "stages\n";
    for (const page::tsStage& stage : stages.reached) {
        text += rightAligned(page::milliseconds(stage.startNs), width) + "  " + stage.name + "\n";
    }
    text += rightAligned(page::milliseconds(run.endNs), width) + "  end of the run\n";
    for (const char* name : stages.never) {
        text += rightAligned("never", width) + "  " + name + "\n";
    }
    return text;
}

// The last training: "0 1 2 - 4", and so on.
std::string overviewOfLanes(const tsRun& run) {
    if (run.attempts.empty()) {
        return "lanes\n  never trained\n";
    }
    const tsAttempt& attempt = run.attempts.back();
    std::string text = "lanes\n ";
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        text += attempt.lanes[lane] ? " " + std::to_string(lane) : " -";
    }
    const bool all = std::all_of(attempt.lanes.begin(), attempt.lanes.end(),
                                 [](const tcMoment& lane) { return lane.has_value(); });
    const bool pll = std::all_of(attempt.pll.begin(), attempt.pll.end(),
                                 [](const tcMoment& flag) { return flag.has_value(); });
    return text + (all ? " locked" : "  (-: not locked)") + (pll ? "" : ", the PLL without lock") +
           (attempt.aligned ? ", aligned" : ", not aligned") + "\n";
}

// Values in columns; a long one pushes the rest of its line aside.
std::string overviewOfSettings(const tsRunFacts& facts) {
    constexpr std::size_t widest = 24;
    const std::vector<tsSetting> settings = settingsIn(facts.printed.value_or(""));
    if (settings.empty()) {
        return "";
    }
    std::size_t name = 0;
    std::size_t asked = 0;
    for (const tsSetting& setting : settings) {
        name = std::max(name, std::min(setting.name.size(), widest));
        asked = std::max(asked, std::min(setting.asked.size(), widest));
    }
    std::string text = "settings, asked and applied\n";
    for (const tsSetting& setting : settings) {
        const std::string applied = setting.applied == setting.asked ? "as asked" : setting.applied;
        text += "  " + padded(setting.name, name) + "  " + padded(setting.asked, asked) + "  " +
                applied + (setting.limitedBy.empty() ? "" : ", limited by " + setting.limitedBy) +
                "\n";
    }
    return text;
}

std::string overviewOfPictures(const tsRunFacts& facts, const std::vector<std::string>& files) {
    if (!facts.pictures) {
        return "";
    }
    std::string text = "pictures\n  " + std::to_string(*facts.pictures) + " delivered";
    if (!files.empty()) {
        text += ", " + std::to_string(files.size()) + " kept, the last one is " + files.back();
    }
    return text + "\n";
}

std::string overviewOfVerdict(const tsVerdict& verdict) {
    std::string text = "verdict\n  " + verdict.headline + "\n";
    for (const std::string& finding : verdict.findings) {
        text += "  - " + finding + "\n";
    }
    if (verdict.diagnosis) {
        text += "  cause: " + verdict.diagnosis->cause +
                "\n  measure: " + verdict.diagnosis->measure + "\n";
    }
    return text;
}

} // namespace

std::string overview(const std::vector<tsTraceLine>& trace, const tsRunFacts& facts,
                     const std::vector<std::string>& files) {
    const tsRun run = readRun(trace);
    const std::string head = facts.scenarioTitle();
    return (head.empty() ? "" : "head\n  " + head + "\n") + overviewOfStages(run) +
           overviewOfLanes(run) + overviewOfSettings(facts) + overviewOfPictures(facts, files) +
           overviewOfVerdict(verdictOf(run, facts));
}

} // namespace sim
