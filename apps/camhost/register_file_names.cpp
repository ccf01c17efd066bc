#include "apps/camhost/register_file_names.h"

#include <algorithm>
#include <limits>

#include <varnox/sensor_board.h>

namespace camhost {

const std::vector<tsRegisterName>& registerNames() {
    static const std::vector<tsRegisterName> theNames = {
        {Varnox::sensorBoardWords::kFrameInterval, "frame_interval", "frame interval [us]"},
        {Varnox::sensorBoardWords::kExposure, "exposure", "exposure time [us]"},
        {0x3A008, "image_width", "width of the image [pixels]"},
        {0x3A00C, "image_height", "height of the image [rows]"},
        {0x3A010, "image_x", "left column of the image [pixels]"},
        {0x3A014, "image_y", "top row of the image [rows]"},
        {0x3A070, "bad_pixel_map", "1 loads the default map of bad pixels, 0 clears it"},
        {0x3A074, "bad_pixel_apply", "1: listed bad pixels are replaced"},
        {0x3A200, "internal_exposure", "1: the sensor's own timer ends the exposure"},
        {0x3C020, "min_frame_interval", "shortest frame interval [us]"},
        {0x3D000, "sensor_exposure_mode", "exposure mode of the sensor"},
        {0x3D004, "digital_gain", "coarse digital gain"},
    };
    return theNames;
}

std::string_view registerName(std::uint32_t address) {
    const auto& names = registerNames();
    const auto entry = std::find_if(names.begin(), names.end(),
                                    [&](const auto& word) { return word.address == address; });
    return entry != names.end() ? entry->name : std::string_view();
}

std::optional<std::uint32_t> registerAddress(std::string_view name) {
    const auto& names = registerNames();
    const auto entry = std::find_if(names.begin(), names.end(),
                                    [&](const auto& word) { return word.name == name; });
    return entry != names.end() ? std::optional(entry->address) : std::nullopt;
}

std::string registerTitle(std::uint32_t address) {
    constexpr int kDigits = 5;
    const std::string_view name = registerName(address);
    return hexText(address, kDigits) + (name.empty() ? "" : " " + std::string(name));
}

std::uint32_t takeRegister(tcArguments& arguments) {
    const std::string word = arguments.takeWord("WORD");
    if (const auto address = registerAddress(word))
        return *address;
    std::int64_t value = 0;
    if (!parseNumber(word, value) || value < 0 ||
        value > std::int64_t{std::numeric_limits<std::uint32_t>::max()})
        arguments.refuse("WORD", word,
                         "is no address, 0 to 0xFFFFFFFF, and no name of a word; \"regfile names\" "
                         "lists the names");
    return static_cast<std::uint32_t>(value);
}

std::vector<std::string> registerNameList() {
    std::vector<std::string> names;
    for (const tsRegisterName& word : registerNames())
        names.emplace_back(word.name);
    return names;
}

} // namespace camhost
