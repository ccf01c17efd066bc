#include <cstring>
#include <iomanip>
#include <sstream>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/field_text.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"

namespace camhost {

namespace {

constexpr const char* kIdentityGroup = "Identity";
constexpr int kNoTemperature = -275; // degrees Celsius: the board has no thermometer

std::string temperatureText(int celsius) {
    return celsius <= kNoTemperature ? "not measured" : std::to_string(celsius) + " C";
}

tcFacts linkFacts(tcCall& call) {
    const std::vector<std::string> told = call.head().talk().link();
    const std::vector<tmLanes> attempts = lanesByAttempt(told);
    const std::optional<tmLanes> best = mostLanes(attempts);
    return {{"lanes_locked", best ? tcFacts(*best) : tcFacts(nullptr)},
            {"lanes_locked_by_attempt", attempts},
            {"told", told}};
}

tcFacts temperatureFacts(int celsius) {
    return celsius <= kNoTemperature ? tcFacts(nullptr) : tcFacts(celsius);
}

tcFacts cameraFacts(Varnox::tcSensorBoard& board) {
    Varnox::tsCameraInfo info{};
    if (board.GetCameraInfo(info) != Varnox::eSuccess)
        return nullptr;
    return {{"model", fieldText(info.model)},
            {"maker", fieldText(info.maker)},
            {"sensor_width_pixels", info.sensorWidth},
            {"sensor_height_rows", info.sensorHeight},
            {"full_frame", rectangleFacts(info.fullFrame)},
            {"flags", info.flags}};
}

tcFacts mirrorFacts(Varnox::tcSensorBoard& board, bool horizontal) {
    bool enabled = false;
    if (board.getMirroring(horizontal, &enabled) != Varnox::eSuccess)
        return nullptr;
    return enabled;
}

tcFacts stateFacts(Varnox::tcSensorBoard& board) {
    int clock = 0;
    const bool hasClock = board.getClockSetting(clock) == Varnox::eSuccess;
    return {{"capturing", board.isCapturing()},
            {"exposure_us", board.getExposure()},
            {"frame_interval_us", board.getFrameInterval()},
            {"min_frame_interval_us", board.getMinFrameIntervalMicroS()},
            {"roi", rectangleFacts(board.getROI())},
            {"image", rectangleFacts(board.getImageROI())},
            {"vertical_bin", board.getVerticalBin()},
            {"horizontal_bin", board.getHorizontalBin()},
            {"mirror_horizontal", mirrorFacts(board, true)},
            {"mirror_vertical", mirrorFacts(board, false)},
            {"trigger", board.getTrigger()},
            {"shutter", board.getShutterMode()},
            {"test_pattern", board.getTestPattern()},
            {"clock", hasClock ? tcFacts(clock) : tcFacts(nullptr)},
            {"temperature_sensor_celsius", temperatureFacts(board.getTempCelsius())},
            {"temperature_board_celsius", temperatureFacts(board.getBoardTempCelsius())}};
}

tcFacts infoFacts(tcCall& call) {
    return {{"sensor_type", call.head().sensorType()},
            {"camera", cameraFacts(call.board())},
            {"version", call.board().getVersion()},
            {"fpga_version", call.board().fpgaVersion()},
            {"pins", call.board().getNumPins()},
            {"pixel_format", call.board().getPixelFormat()},
            {"regions", call.head().regions() != nullptr
                            ? tcFacts(call.head().regions()->regions.size())
                            : tcFacts(1)},
            {"keywords", call.head().keywords()},
            {"supplies_volts", tcFacts(call.head().talk().supplies())},
            {"link", linkFacts(call)},
            {"state", stateFacts(call.board())}};
}

std::string version(tcCall& call, tcArguments& arguments) {
    arguments.end();
    const std::string fpga = call.board().fpgaVersion();
    call.facts() = {{"version", call.board().getVersion()}, {"fpga_version", fpga}};
    return "version " + call.board().getVersion() + (fpga.empty() ? "" : "\nfpga " + fpga);
}

std::string camera(tcCall& call, tcArguments& arguments) {
    arguments.end();
    Varnox::tsCameraInfo info{};
    requireSuccess("camera", call.board().GetCameraInfo(info));
    call.facts() = cameraFacts(call.board());
    return "camera " + fieldText(info.model) + " by " + fieldText(info.maker) + ", " +
           std::to_string(info.sensorWidth) + " x " + std::to_string(info.sensorHeight) +
           " pixels, full frame " + info.fullFrame.toString() + ", flags " + hexText(info.flags);
}

std::string temperature(tcCall& call, tcArguments& arguments) {
    const int index = arguments.more() ? arguments.takeInt("INDEX", 0, 255) : 0;
    arguments.end();
    call.facts() = {{"index", index},
                    {"told", call.board().getTemperature(index)},
                    {"sensor_celsius", temperatureFacts(call.board().getTempCelsius())},
                    {"board_celsius", temperatureFacts(call.board().getBoardTempCelsius())}};
    return "temperature " + std::to_string(index) + ": \"" + call.board().getTemperature(index) +
           "\", sensor " + temperatureText(call.board().getTempCelsius()) + ", board " +
           temperatureText(call.board().getBoardTempCelsius());
}

std::string keywordList(tcCall& call) {
    std::string list;
    for (const std::string& keyword : call.head().keywords())
        list += (list.empty() ? "" : " ") + keyword;
    return list.empty() ? "none" : list;
}

std::string stateText(Varnox::tcSensorBoard& board) {
    std::string text = "capturing " + yesNo(board.isCapturing());
    text += "\nexposure " + std::to_string(board.getExposure()) + " us";
    text += "\ninterval " + std::to_string(board.getFrameInterval()) + " us, at least " +
            std::to_string(board.getMinFrameIntervalMicroS()) + " us";
    text += "\nroi " + board.getROI().toString();
    text += "\nimage " + board.getImageROI().toString();
    text += std::string("\ntrigger ") +
            (board.getTrigger() == Varnox::eTriggerFreeRunning ? "free" : "external");
    int clock = 0;
    if (board.getClockSetting(clock) == Varnox::eSuccess)
        text += "\nclock " + std::to_string(clock);
    text += "\ntest pattern " + std::to_string(board.getTestPattern());
    return text;
}

std::string status(tcCall& call, tcArguments& arguments) {
    arguments.end();
    call.facts() = stateFacts(call.board());
    return stateText(call.board());
}

std::string voltsText(double volts) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << volts << " V";
    return text.str();
}

std::string laneText(const std::vector<unsigned>& lanes) {
    std::string text;
    for (const unsigned lane : lanes)
        text += " " + std::to_string(lane);
    return text.empty() ? " none" : text;
}

/// What the board printed of supplies and link when it brought the head up.
std::string broughtUp(tcCall& call) {
    std::string text;
    for (const auto& [name, volts] : call.head().talk().supplies())
        text += "\nsupply " + name + " " + voltsText(volts);
    if (text.empty())
        text += "\nsupplies not told yet";
    const std::vector<std::string> link = call.head().talk().link();
    if (link.empty())
        return text + "\nlink not told yet";
    for (const std::string& line : link) {
        const auto lanes = lanesOf(line);
        text += "\nlink " + line + (lanes ? ", lanes" + laneText(*lanes) : "");
    }
    const tmLanes best = mostLanes(lanesByAttempt(link)).value_or(tmLanes{});
    return text + "\nlanes locked at best" + laneText(best);
}

std::string info(tcCall& call, tcArguments& arguments) {
    arguments.end();
    call.facts() = infoFacts(call);
    std::string text = "sensor type " + std::to_string(call.head().sensorType());
    Varnox::tsCameraInfo record{};
    if (call.board().GetCameraInfo(record) == Varnox::eSuccess)
        text += "\ncamera " + fieldText(record.model) + " by " + fieldText(record.maker) + ", " +
                std::to_string(record.sensorWidth) + " x " + std::to_string(record.sensorHeight) +
                " pixels";
    text += "\nversion " + call.board().getVersion();
    text += "\npins " + std::to_string(call.board().getNumPins());
    text += "\npixel format " + std::to_string(call.board().getPixelFormat());
    text += "\nkeywords " + keywordList(call);
    return text + broughtUp(call) + "\n" + stateText(call.board());
}

tsCommand identityCommand(const char* name, const char* arguments, const char* summary,
                          std::vector<std::string> examples, tsCommand::Run run) {
    return {kIdentityGroup, name, arguments, summary, "", std::move(examples), std::move(run)};
}

/// Makes a command of an operation on one of the board's slots for settings.
tsCommand slotCommand(const char* name, const char* summary, const char* example,
                      int (Varnox::tcSensorBoard::*run)(int)) {
    return identityCommand(
        name, "SLOT", summary, {example}, [name, run](tcCall& call, tcArguments& arguments) {
            const int slot = arguments.takeInt("SLOT", 0, 255);
            arguments.end();
            const std::string title = std::string(name) + " " + std::to_string(slot);
            call.facts()["slot"] = slot;
            const int result = (call.board().*run)(slot);
            requireSuccess(title, result);
            return title + ": " + resultText(call.told(result));
        });
}

} // namespace

void addIdentityCommands(tcCommandTable& table) {
    table.add(identityCommand("status", "", "what holds now", {"status"}, status));
    table.add(identityCommand("info", "", "what the head is and what holds now",
                              {"info", "info --json"}, info));
    table.add(identityCommand("version", "", "versions of head, software and FPGA", {"version"},
                              version));
    table.add(
        identityCommand("camera", "", "model, maker and size of the sensor", {"camera"}, camera));
    table.add(identityCommand("temperature", "[INDEX]", "temperatures [degrees Celsius]",
                              {"temperature"}, temperature));
    table.add(slotCommand("saveslot", "keep the settings in a slot of the board", "saveslot 0",
                          &Varnox::tcSensorBoard::save));
    table.add(slotCommand("recallslot", "take the settings from a slot of the board",
                          "recallslot 0", &Varnox::tcSensorBoard::recall));
}

} // namespace camhost
