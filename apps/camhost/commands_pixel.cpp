#include <limits>

#include "apps/camhost/commands.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"
#include "apps/camhost/setting_order.h"

namespace camhost {

namespace {

constexpr const char* kPixelsGroup = "Pixels";
constexpr int kLowest = std::numeric_limits<int>::min();
constexpr int kHighest = std::numeric_limits<int>::max();

using B = Varnox::tcSensorBoard;

tsSetting pixelSetting(const char* name, const char* argument, const char* summary) {
    tsSetting setting;
    setting.group = kPixelsGroup;
    setting.name = name;
    setting.argument = argument;
    setting.summary = summary;
    setting.lowest = kLowest;
    setting.highest = kHighest;
    setting.order = settingOrder::kPixel;
    return setting;
}

/// Depths by their bits; the host's mode numbers do not follow them.
tsSetting depth() {
    tsSetting setting = pixelSetting("bpp", "8bit|10bit|12bit|16bit", "how pixels are delivered");
    setting.details = "8bit: the upper 8 of 12; 10bit, 12bit: right-aligned in 16; 16bit: 12 bits, "
                      "left-aligned.";
    setting.examples = {"bpp 12bit"};
    setting.choices = {{"12bit", Varnox::eBPP12},
                       {"10bit", Varnox::eBPP10},
                       {"8bit", Varnox::eBPP8},
                       {"16bit", Varnox::eBPP16}};
    setting.set = [](B& board, int value) {
        return board.setBPP(static_cast<Varnox::teBPPMode>(value));
    };
    return setting;
}

tsSetting color() {
    tsSetting setting = pixelSetting("color", "on|off", "whether the sensor is a colour sensor");
    setting.examples = {"color off"};
    setting.choices = {{"off", 0}, {"on", 1}};
    setting.lowest = 0;
    setting.highest = 1;
    setting.set = [](B& board, int value) { return board.setColor(value != 0); };
    return setting;
}

tsSetting pattern() {
    tsSetting setting = pixelSetting("pattern", "off|default|sensor1|sensor2", "test pattern");
    setting.examples = {"pattern off"};
    setting.choices = {{"off", Varnox::eTestPatternOff},
                       {"default", Varnox::eTestPatternDefault},
                       {"sensor1", Varnox::eTestPatternSensorFirst},
                       {"sensor2", Varnox::eTestPatternSensorSecond}};
    setting.set = [](B& board, int value) {
        return board.setTestPattern(static_cast<Varnox::teTestPattern>(value));
    };
    setting.get = plainGetter(&B::getTestPattern);
    return setting;
}

tsSetting gain() {
    tsSetting setting = pixelSetting("gain", "STEP", "analogue gain, in the board's steps");
    setting.examples = {"gain 0"};
    setting.set = [](B& board, int value) { return board.setAnalogGain(value); };
    setting.get = [](B& board, int& value) { return board.getAnalogGain(&value); };
    return setting;
}

tsSetting blackLevel() {
    tsSetting setting = pixelSetting("black", "LEVEL", "black level");
    setting.examples = {"black 64"};
    setting.set = [](B& board, int value) { return board.setBlackLevel(value); };
    setting.get = [](B& board, int& value) { return board.getBlackLevel(&value); };
    return setting;
}

tsSetting gamma() {
    tsSetting setting = pixelSetting("gamma", "PERCENT", "gamma [%]");
    setting.unit = " %";
    setting.examples = {"gamma 100"};
    setting.set = [](B& board, int value) { return board.setGamma(value); };
    setting.get = [](B& board, int& value) { return board.getGamma(&value); };
    return setting;
}

struct tsWhiteBalance {
    int red = 0;
    int green = 0;
    int blue = 0;

    [[nodiscard]] tcFacts facts() const { return {{"red", red}, {"green", green}, {"blue", blue}}; }

    [[nodiscard]] std::string text() const {
        return std::to_string(red) + " " + std::to_string(green) + " " + std::to_string(blue);
    }
};

int readWhiteBalance(B& board, tsWhiteBalance& white) {
    return board.getWhiteBalance(&white.red, &white.green, &white.blue);
}

std::string whiteBalance(tcCall& call, tcArguments& arguments) {
    tsWhiteBalance now;
    if (!arguments.more()) {
        requireSuccess("white", readWhiteBalance(call.board(), now));
        call.facts()["white"] = now.facts();
        return "white " + now.text();
    }
    tsWhiteBalance asked;
    asked.red = arguments.takeInt("RED", kLowest, kHighest);
    asked.green = arguments.takeInt("GREEN", kLowest, kHighest);
    asked.blue = arguments.takeInt("BLUE", kLowest, kHighest);
    arguments.end();
    const int result = call.board().setWhiteBalance(asked.red, asked.green, asked.blue);
    const bool told = readWhiteBalance(call.board(), now) == Varnox::eSuccess;
    call.facts()["asked"] = asked.facts();
    call.facts()[result == Varnox::eSuccess ? "applied" : "white"] =
        told ? now.facts() : tcFacts(nullptr);
    requireSuccess("white " + asked.text(), result, told ? "white is " + now.text() : "");
    return "white: asked " + asked.text() +
           (told ? ", applied " + now.text() : ", taken; the board does not tell") + " (" +
           resultText(call.told(result)) + ")";
}

std::vector<std::string> savedWhiteBalance(tcCall& call) {
    tsWhiteBalance now;
    if (readWhiteBalance(call.board(), now) != Varnox::eSuccess)
        return {};
    return {"white " + now.text()};
}

std::string packing(tcCall& call, tcArguments& arguments) {
    arguments.end();
    constexpr tsChoice kPackings[] = {{"8 bits", Varnox::ePacking8},
                                      {"12 bits, right-aligned in 16", Varnox::ePacking12},
                                      {"12 bits, left-aligned in 16", Varnox::ePacking16}};
    const std::string name = nameOf(kPackings, call.head().pipeline().getPixelPacking());
    call.facts()["packing"] = name;
    return "packing " + name;
}

} // namespace

void addPixelCommands(tcCommandTable& table) {
    table.add(settingCommand(depth()));
    tsCommand pack;
    pack.group = kPixelsGroup;
    pack.name = "packing";
    pack.summary = "how the host's pipeline packs pixels, as the board told it";
    pack.examples = {"packing"};
    pack.run = packing;
    table.add(std::move(pack));
    for (const auto& setting : {color(), pattern(), gain(), blackLevel(), gamma()})
        table.add(settingCommand(setting));
    tsCommand white;
    white.group = kPixelsGroup;
    white.name = "white";
    white.arguments = "[RED GREEN BLUE]";
    white.summary = "white balance";
    white.examples = {"white 100 100 100"};
    white.run = whiteBalance;
    white.saved = savedWhiteBalance;
    white.order = settingOrder::kPixel;
    table.add(std::move(white));
}

} // namespace camhost
