#include <cstdint>
#include <cstdlib>
#include <limits>

#include "apps/camhost/commands.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"
#include "apps/camhost/setting_order.h"

namespace camhost {

namespace {

constexpr const char* kTimeGroup = "Time";
constexpr int kMax = std::numeric_limits<int>::max();

using B = Varnox::tcSensorBoard;

/// \return a setting in microseconds
tsSetting microseconds(const char* name, const char* summary) {
    tsSetting setting;
    setting.group = kTimeGroup;
    setting.name = name;
    setting.argument = "MICROSECONDS";
    setting.unit = " us";
    setting.summary = summary;
    setting.highest = kMax;
    return setting;
}

/// A smaller difference is rounding.
bool isRounding(int asked, int applied) {
    constexpr int kPart = 100; // a percent
    const std::int64_t difference = std::int64_t{asked} - applied;
    return std::abs(difference) <= asked / kPart;
}

std::string limitedBy(const char* what, int microseconds) {
    return std::string(what) + " of " + std::to_string(microseconds) + " us";
}

std::string exposureBound(B& board, int asked, int applied) {
    const int interval = board.getFrameInterval();
    if (asked >= interval)
        return limitedBy("the frame interval", interval);
    if (isRounding(asked, applied))
        return {};
    return board.getTrigger() == Varnox::eTriggerExternal
               ? "the external trigger, which may time the exposure itself"
               : "the sensor's range";
}

/// Boards count an interval in steps of a millisecond or so, and round it down.
bool isWholeStep(int asked, int applied) {
    constexpr int kLongestStep = 2000; // us
    return applied <= asked && asked - applied <= kLongestStep;
}

std::string intervalBound(B& board, int asked, int applied) {
    const int shortest = board.getMinFrameIntervalMicroS();
    if (asked < shortest && applied > asked)
        return limitedBy("the shortest interval", shortest);
    return isRounding(asked, applied) || isWholeStep(asked, applied) ? "" : "the sensor's range";
}

std::string intervalWarning(B& board, int asked, int applied) {
    const int shortest = board.getMinFrameIntervalMicroS();
    if (asked >= shortest || applied >= shortest)
        return {};
    const std::string text = std::to_string(shortest);
    return "the readout of a frame takes " + text +
           " us, so pictures lose their last rows; give \"interval " + text + "\" or more";
}

tsSetting exposure() {
    tsSetting setting = microseconds("exposure", "exposure time [us]");
    setting.details = "The board limits it to what the frame allows and rounds it to whole lines.";
    setting.examples = {"exposure 20000"};
    setting.set = [](B& board, int value) { return board.setExposure(value); };
    setting.get = plainGetter(&B::getExposure);
    setting.bound = exposureBound;
    setting.now = [](B& board) {
        return "Now below the frame interval of " + std::to_string(board.getFrameInterval()) +
               " us.";
    };
    setting.order = settingOrder::kExposure;
    return setting;
}

tsSetting interval() {
    tsSetting setting = microseconds("interval", "frame interval [us]");
    setting.details = "An exposure that does not fit into it becomes shorter.";
    setting.examples = {"interval 100000"};
    setting.set = [](B& board, int value) { return board.setFrameInterval(value); };
    setting.get = plainGetter(&B::getFrameInterval);
    setting.bound = intervalBound;
    setting.warning = intervalWarning;
    setting.now = [](B& board) {
        return "Now at least " + std::to_string(board.getMinFrameIntervalMicroS()) +
               " us, or pictures lose their last rows.";
    };
    setting.companions = {{"exposure", " us", [](B& board) { return board.getExposure(); }}};
    setting.order = settingOrder::kInterval;
    return setting;
}

tsSetting shortestInterval() {
    tsSetting setting =
        microseconds("mininterval", "shortest frame interval that is possible [us]");
    setting.examples = {"mininterval"};
    setting.get = plainGetter(&B::getMinFrameIntervalMicroS);
    return setting;
}

tsSetting strobe() {
    tsSetting setting = microseconds("strobe", "length of the strobe pulse [us]");
    setting.examples = {"strobe"};
    setting.set = [](B& board, int value) { return board.setStrobe(value); };
    setting.order = settingOrder::kPixel;
    return setting;
}

tsSetting mode(const char* name, const char* argument, const char* summary,
               std::vector<tsChoice> choices) {
    tsSetting setting;
    setting.group = kTimeGroup;
    setting.name = name;
    setting.argument = argument;
    setting.summary = summary;
    setting.choices = std::move(choices);
    setting.highest = kMax;
    return setting;
}

tsSetting trigger() {
    tsSetting setting =
        mode("trigger", "free|external", "what starts a frame",
             {{"free", Varnox::eTriggerFreeRunning}, {"external", Varnox::eTriggerExternal}});
    setting.examples = {"trigger free"};
    setting.set = [](B& board, int value) {
        return board.setTrigger(static_cast<Varnox::teTriggerMode>(value));
    };
    setting.get = plainGetter(&B::getTrigger);
    setting.order = settingOrder::kTrigger;
    return setting;
}

tsSetting shutter() {
    tsSetting setting =
        mode("shutter", "rolling|global", "how rows are exposed",
             {{"rolling", Varnox::eShutterRolling}, {"global", Varnox::eShutterGlobal}});
    setting.examples = {"shutter"};
    setting.set = [](B& board, int value) {
        return board.setShutterMode(static_cast<Varnox::teShutterMode>(value));
    };
    setting.get = plainGetter(&B::getShutterMode);
    return setting;
}

tsSetting clock() {
    tsSetting setting =
        mode("clock", "INDEX", "the sensor's master clock, by the board's index", {});
    setting.details = "What an index stands for is the board's; the link comes up anew.";
    setting.examples = {"clock 1"};
    setting.set = [](B& board, int value) { return board.setClockSetting(value); };
    setting.get = [](B& board, int& value) { return board.getClockSetting(value); };
    setting.order = settingOrder::kClock;
    return setting;
}

std::string skipFrames(tcCall& call, tcArguments& arguments) {
    arguments.end();
    bool skip = false;
    const int answer = call.board().GetSkipFrames(skip);
    return "skipframes " + yesNo(skip) + " (answer " + std::to_string(answer) + ")";
}

} // namespace

void addTimingCommands(tcCommandTable& table) {
    for (const auto& setting :
         {exposure(), interval(), shortestInterval(), trigger(), shutter(), clock(), strobe()})
        table.add(settingCommand(setting));
    tsCommand skip;
    skip.group = kTimeGroup;
    skip.name = "skipframes";
    skip.summary = "whether frames are to be skipped";
    skip.examples = {"skipframes"};
    skip.run = skipFrames;
    table.add(std::move(skip));
}

} // namespace camhost
