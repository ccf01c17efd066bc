#include <limits>

#include "apps/camhost/commands.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"
#include "apps/camhost/setting_order.h"

namespace camhost {

namespace {

constexpr const char* kGeometryGroup = "Geometry";
constexpr const char* kRectangle = "Y X WIDTH HEIGHT";

using B = Varnox::tcSensorBoard;
using Varnox::ROI;

std::vector<std::string> noChoices() {
    return {};
}

std::int32_t takeCoordinate(tcArguments& arguments, const char* name) {
    return arguments.takeInt(name, std::numeric_limits<std::int32_t>::min(),
                             std::numeric_limits<std::int32_t>::max());
}

ROI takeRectangle(tcArguments& arguments) {
    ROI roi;
    roi.y = takeCoordinate(arguments, "Y");
    roi.x = takeCoordinate(arguments, "X");
    roi.width = takeCoordinate(arguments, "WIDTH");
    roi.height = takeCoordinate(arguments, "HEIGHT");
    return roi;
}

std::string numbersOf(const ROI& roi) {
    return std::to_string(roi.y) + " " + std::to_string(roi.x) + " " + std::to_string(roi.width) +
           " " + std::to_string(roi.height);
}

/// Keeps a rectangle among the facts.
/// \return it as text
std::string tell(tcCall& call, const char* member, const ROI& roi) {
    call.facts()[member] = rectangleFacts(roi);
    return roi.toString();
}

std::string roi(tcCall& call, tcArguments& arguments) {
    if (!arguments.more())
        return "roi " + tell(call, "roi", call.board().getROI());
    const ROI asked = takeRectangle(arguments);
    arguments.end();
    const std::string wish = tell(call, "asked", asked);
    const int result = call.board().setROI(asked);
    const bool taken = result == Varnox::eSuccess;
    const std::string now = tell(call, taken ? "applied" : "roi", call.board().getROI());
    requireSuccess("roi " + wish, result, "roi is " + now);
    return "roi: asked " + wish + ", applied " + now + " (" + resultText(call.told(result)) + ")";
}

std::string imageRoi(tcCall& call, tcArguments& arguments) {
    arguments.end();
    return "imageroi " + tell(call, "image", call.board().getImageROI());
}

Varnox::tcMultipleROISensor& requireRegions(tcCall& call) {
    Varnox::tcMultipleROISensor* const regions = call.head().regions();
    if (regions == nullptr)
        throw tcCommandError("regions: this board has a single region; use \"roi\"");
    return *regions;
}

std::string regionsText(tcCall& call, Varnox::tcMultipleROISensor& sensor) {
    tcFacts entries = tcFacts::list();
    for (const ROI& entry : sensor.regions)
        entries.push_back(rectangleFacts(entry));
    call.facts() = {
        {"regions", sensor.numberOfRegions}, {"at_most", entries.size()}, {"entries", entries}};
    std::string text = "regions " + std::to_string(sensor.numberOfRegions) + " of at most " +
                       std::to_string(sensor.regions.size());
    for (std::size_t i = 0; i < sensor.regions.size(); ++i) {
        if (static_cast<std::int64_t>(i) < sensor.numberOfRegions || sensor.regions[i] != ROI{})
            text += "\nregion " + std::to_string(i) + " " + sensor.regions[i].toString();
    }
    return text;
}

/// "regions COUNT": so many entries count from now on; one: the board's single region.
std::string countRegions(tcCall& call, tcArguments& arguments) {
    Varnox::tcMultipleROISensor& sensor = requireRegions(call);
    const int slots = static_cast<int>(sensor.regions.size());
    const int asked = arguments.takeInt("COUNT", 1, slots);
    arguments.end();
    if (call.board().isCapturing())
        requireSuccess("regions " + std::to_string(asked), Varnox::eCaptureInProgress);
    call.facts()["asked"] = asked;
    const int before = sensor.numberOfRegions;
    sensor.numberOfRegions = asked;
    const int result = sensor.programMultipleROI();
    if (result != Varnox::eSuccess) {
        sensor.numberOfRegions = before;
        sensor.programMultipleROI(); // the sensor reads out what it did before
    }
    call.facts()["regions"] = sensor.numberOfRegions;
    requireSuccess("regions " + std::to_string(asked), result,
                   "regions is " + std::to_string(before));
    return "regions: " + std::to_string(asked) + " programmed, image " +
           tell(call, "image", call.board().getImageROI()) + " (" + resultText(call.told(result)) +
           ")";
}

std::string regions(tcCall& call, tcArguments& arguments) {
    if (!arguments.more())
        return regionsText(call, requireRegions(call));
    return countRegions(call, arguments);
}

std::string region(tcCall& call, tcArguments& arguments) {
    Varnox::tcMultipleROISensor& sensor = requireRegions(call);
    const int last = static_cast<int>(sensor.regions.size()) - 1;
    const int index = arguments.takeInt("INDEX", 0, last);
    ROI& entry = sensor.regions[static_cast<std::size_t>(index)];
    const std::string name = "region " + std::to_string(index);
    call.facts()["index"] = index;
    if (!arguments.more())
        return name + " " + tell(call, "region", entry);
    const ROI asked = takeRectangle(arguments);
    arguments.end();
    entry = asked;
    return name + " " + tell(call, "region", entry) + "; \"regions COUNT\" programs it";
}

std::vector<std::string> savedRegions(tcCall& call) {
    const ROI single = call.board().getROI();
    std::vector<std::string> lines;
    if (single != ROI{})
        lines.push_back("roi " + numbersOf(single));
    return lines;
}

std::vector<std::string> savedSeveralRegions(tcCall& call) {
    Varnox::tcMultipleROISensor* const sensor = call.head().regions();
    std::vector<std::string> lines;
    if (sensor == nullptr || sensor->numberOfRegions <= 1)
        return lines;
    for (std::size_t i = 0; static_cast<std::int64_t>(i) < sensor->numberOfRegions; ++i)
        lines.push_back("region " + std::to_string(i) + " " + numbersOf(sensor->regions.at(i)));
    lines.push_back("regions " + std::to_string(sensor->numberOfRegions));
    return lines;
}

tsSetting binning(const char* name, const char* summary, tsSetting::Set set, tsSetting::Get get) {
    tsSetting setting;
    setting.group = kGeometryGroup;
    setting.name = name;
    setting.argument = "FACTOR";
    setting.summary = summary;
    setting.lowest = std::numeric_limits<int>::min();
    setting.highest = std::numeric_limits<int>::max();
    setting.set = std::move(set);
    setting.get = std::move(get);
    setting.remember = true; // boards may answer 1 whatever is set
    setting.order = settingOrder::kBinning;
    return setting;
}

tsSetting verticalBinning() {
    tsSetting setting = binning(
        "vbin", "rows that make one row of the image",
        [](B& board, int value) { return board.setVerticalBin(value); },
        plainGetter(&B::getVerticalBin));
    setting.details = "It holds for the rectangle that is set next with \"roi\".";
    setting.examples = {"vbin 1"};
    return setting;
}

tsSetting horizontalBinning() {
    tsSetting setting = binning(
        "hbin", "columns that make one column of the image",
        [](B& board, int value) { return board.setHorizontalBin(value); },
        plainGetter(&B::getHorizontalBin));
    setting.examples = {"hbin"};
    setting.order = -1;
    return setting;
}

constexpr tsChoice kAxes[] = {{"h", 1}, {"v", 0}};

std::string mirrorText(tcCall& call, bool horizontal) {
    bool enabled = false;
    requireSuccess("mirror", call.board().getMirroring(horizontal, &enabled));
    call.facts()[horizontal ? "horizontal" : "vertical"] = enabled;
    return std::string("mirror ") + (horizontal ? "h " : "v ") + onOff(enabled);
}

std::string mirror(tcCall& call, tcArguments& arguments) {
    if (!arguments.more())
        return mirrorText(call, true) + "\n" + mirrorText(call, false);
    const bool horizontal = arguments.takeChoice("h|v", kAxes, 0, 1) != 0;
    if (!arguments.more())
        return mirrorText(call, horizontal);
    const bool enable = arguments.takeSwitch("on|off");
    arguments.end();
    call.facts()["asked"] = enable;
    const int result = call.board().setMirroring(horizontal, enable);
    const std::string axis = horizontal ? "h " : "v ";
    requireSuccess("mirror " + axis + onOff(enable), result);
    return "mirror: asked " + axis + onOff(enable) + ", applied " +
           mirrorText(call, horizontal).substr(std::string("mirror ").size()) + " (" +
           resultText(call.told(result)) + ")";
}

std::vector<std::string> savedMirroring(tcCall& call) {
    std::vector<std::string> lines;
    for (const bool horizontal : {true, false}) {
        bool enabled = false;
        if (call.board().getMirroring(horizontal, &enabled) == Varnox::eSuccess)
            lines.push_back(std::string("mirror ") + (horizontal ? "h " : "v ") + onOff(enabled));
    }
    return lines;
}

tsCommand geometryCommand(const char* name, std::string arguments, const char* summary,
                          const char* details, std::vector<std::string> examples,
                          tsCommand::Run run) {
    return {kGeometryGroup,      name,          std::move(arguments), summary, details,
            std::move(examples), std::move(run)};
}

} // namespace

void addGeometryCommands(tcCommandTable& table) {
    const std::string rectangle = kRectangle;
    tsCommand single = geometryCommand("roi", "[" + rectangle + "]",
                                       "rectangle that is read out [binned rows, pixels]", "",
                                       {"roi", "roi 0 0 2592 2056"}, roi);
    single.saved = savedRegions;
    single.order = settingOrder::kRegion;
    table.add(std::move(single));
    table.add(geometryCommand("imageroi", "", "geometry of the image that is delivered [pixels]",
                              "", {"imageroi"}, imageRoi));
    tsCommand several =
        geometryCommand("regions", "[COUNT]", "how many regions are read out, stacked in the image",
                        "Fill them with \"region\" first; 1 is the single rectangle of \"roi\".",
                        {"regions"}, regions);
    several.saved = savedSeveralRegions;
    several.order = settingOrder::kRegion;
    table.add(std::move(several));
    tsCommand one = geometryCommand("region", "INDEX [" + rectangle + "]",
                                    "one of several regions [binned rows, pixels]", "",
                                    {"region 0", "region 0 100 0 240 20"}, region);
    one.isSetting = true;
    table.add(std::move(one));
    table.add(settingCommand(verticalBinning()));
    table.add(settingCommand(horizontalBinning()));
    tsCommand flip =
        geometryCommand("mirror", "[h|v [on|off]]", "whether the image is flipped",
                        "h: left and right, v: top and bottom.", {"mirror", "mirror h on"}, mirror);
    flip.saved = savedMirroring;
    flip.order = settingOrder::kMirror;
    flip.choices = [](tcCall&, std::size_t index) {
        if (index > 1)
            return noChoices();
        return index == 0 ? std::vector<std::string>{"h", "v"}
                          : std::vector<std::string>{"off", "on"};
    };
    table.add(std::move(flip));
}

} // namespace camhost
