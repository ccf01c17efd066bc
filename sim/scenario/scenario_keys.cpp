#include "sim/scenario/scenario_keys.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string_view>

#include "sim/base/error_names.h"
#include "sim/chips/link.h"
#include "sim/scenario/scenario_text.h"
#include "sim/scenario/scenario_values.h"

namespace sim {

namespace {

using namespace values;
using text::whole;

constexpr const char* kYesNo = "`yes` or `no`";
constexpr const char* kTime = "milliseconds, for example `3` or `0.5`, or `never`";
constexpr const char* kVolts = "volts, for example `2.9`, or an offset with its sign, `-0.2`";
constexpr const char* kNames = "names of the head's lines, separated by commas";

constexpr std::array kKeys{
    tsScenarioKey{"Supplies", "VDD1.2", kVolts, "The voltage to which the supply rises.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setRail(options, teRail::core, value);
                  }},
    tsScenarioKey{"Supplies", "VDD3.3AVDDH", kVolts, "As above.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setRail(options, teRail::avddh, value);
                  }},
    tsScenarioKey{"Supplies", "VDD3.3SVDD", kVolts, "As above.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setRail(options, teRail::svdd, value);
                  }},
    tsScenarioKey{"ADC", "answers", kYesNo, "Whether the supply monitor answers at its address.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      bool answers = true;
                      const bool good = setFlag(answers, value, "yes", "no");
                      options.conditions.adcError = answers ? 0 : ENXIO;
                      return good;
                  }},
    tsScenarioKey{"ADC", "bus", kYesNo, "Whether `/dev/i2c-1` exists.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setFlag(options.conditions.i2cPresent, value, "yes", "no");
                  }},
    tsScenarioKey{"GPIO", "chip", "a path that begins with `/dev/gpiochip`, or `none`",
                  "The chip that has the head's lines.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setPath(options.gpioPath, options.conditions.gpioPresent, value,
                                     "/dev/gpiochip");
                  }},
    tsScenarioKey{"GPIO", "missing", kNames, "Lines that have no name.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setLines(options.conditions.missingLines, value);
                  }},
    tsScenarioKey{"GPIO", "busy", kNames, "Lines that somebody else holds.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setLines(options.conditions.busyLines, value);
                  }},
    tsScenarioKey{
        "SPI", "device", "a path that begins with `/dev/spidev`, or `none`", "The sensor's port.",
        [](tsHeadOptions& options, const std::string&, const std::string& value) {
            return setPath(options.spiPath, options.conditions.spiPresent, value, "/dev/spidev");
        }},
    tsScenarioKey{"SPI", "settings", "`accepted` or `refused`",
                  "Whether the port takes mode, bit order, word size and clock.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setFlag(options.conditions.spiSettingsRefused, value, "refused",
                                     "accepted");
                  }},
    tsScenarioKey{"SPI", "fail-from", "a message's number from 1, and an errno name: `5 EIO`",
                  "That message and all later ones fail.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setFailFrom(options, value);
                  }},
    tsScenarioKey{"Memory", "open", "`ok` or an errno name", "What opening `/dev/mem` gives.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      options.conditions.memOpenError = value == "ok" ? 0 : errorNamed(value);
                      return value == "ok" || options.conditions.memOpenError != 0;
                  }},
    tsScenarioKey{"Memory", "unmappable", "physical addresses of FPGA pages, separated by commas",
                  "Mappings that start there fail (ENOMEM).",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setUnmappable(options, value);
                  }},
    tsScenarioKey{"FPGA", "silent",
                  "`frame-control`, `pwm`, `pixel-shift`, `bad-pixel`, separated by commas",
                  "Cores whose identification reads 0.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setSilentCores(options, value);
                  }},
    tsScenarioKey{"FPGA", "system-id", "two numbers: `0x3505 0x10203`",
                  "The words of the system id.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setSystemId(options, value);
                  }},
    tsScenarioKey{"Link", "locked", kTime, "How long the PLL flag takes.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setTime(options.conditions.link.pllNs[0], value);
                  }},
    tsScenarioKey{"Link", "rgLocked", kTime, "As above.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setTime(options.conditions.link.pllNs[1], value);
                  }},
    tsScenarioKey{"Link", "gbLocked", kTime, "As above.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setTime(options.conditions.link.pllNs[2], value);
                  }},
    tsScenarioKey{"Link", "lanes", kTime, "How long each lane's DPA takes.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      std::uint64_t time = 0;
                      const bool good = setTime(time, value);
                      options.conditions.link.laneNs.fill(time);
                      return good;
                  }},
    tsScenarioKey{"Link", "lane0 ... lane11", kTime, "One lane; after `lanes`.",
                  [](tsHeadOptions& options, const std::string& name, const std::string& value) {
                      const std::optional<unsigned> lane = whole<unsigned>(name.substr(4));
                      return lane && setTime(options.conditions.link.laneNs[*lane], value);
                  }},
    tsScenarioKey{"Link", "alignment", kTime, "How long frame alignment takes.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setTime(options.conditions.link.alignmentNs, value);
                  }},
    tsScenarioKey{"Link", "polarity", "a number of 12 bits: `0x5D9`",
                  "Which lanes arrive inverted: what the lane inversion must be.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      const std::optional<std::uint32_t> lanes = whole<std::uint32_t>(value);
                      options.conditions.link.polarity = lanes.value_or(0);
                      return lanes && *lanes <= 0xFFF;
                  }},
    tsScenarioKey{"Scene", "picture", "a path, relative to the scenario's folder",
                  "PNG picture before the sensor, in place of the test chart.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      options.scenePath = value;
                      return !value.empty();
                  }},
    tsScenarioKey{
        "Defects", "",
        "`X Y CODE`: column and row of the array, and what the ADC makes of the pixel, 0 to 4095; "
        "or `none` for none of those before",
        "A pixel that always gives the same. The key is a name of your choice. Three are there "
        "from the start.",
        [](tsHeadOptions& options, const std::string&, const std::string& value) {
            return addDefect(options, value);
        }},
    tsScenarioKey{"Time", "mode", "`virtual` or `real`", "Whether sleeps really sleep.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setFlag(options.realTime, value, "real", "virtual");
                  }},
    tsScenarioKey{"Time", "wire", kYesNo, "Whether SPI messages take their time in real time.",
                  [](tsHeadOptions& options, const std::string&, const std::string& value) {
                      return setFlag(options.wireTime, value, "yes", "no");
                  }},
    tsScenarioKey{
        "Failures", "",
        "`CALL DEVICE N ERRNO`, or `N+` for the Nth and all later: `ioctl /dev/spidev1.0 3 EIO`. "
        "CALL is open, close, ioctl, mmap, munmap, read, write, or sleep on the device `clock`; "
        "`short` for ERRNO on the ports of SPI and I2C",
        "A call that fails, or succeeds with less than it was asked for. The key is a name of "
        "your choice.",
        [](tsHeadOptions& options, const std::string&, const std::string& value) {
            return addFailure(options, value);
        }},
    tsScenarioKey{kFilesSection, "", "a path, relative to the scenario's folder",
                  "The file that stands in for the file KEY of virtual-head's `--workdir`; a "
                  "program that goes to another folder by itself sees the files there.",
                  [](tsHeadOptions&, const std::string& name, const std::string& value) {
                      return !value.empty() && name.find('/') == std::string::npos;
                  }},
};

bool isLane(const std::string& name) {
    if (!name.starts_with("lane")) {
        return false;
    }
    const std::optional<unsigned> lane = whole<unsigned>(std::string_view(name).substr(4));
    return lane && *lane < kLinkLanes && name == "lane" + std::to_string(*lane);
}

} // namespace

std::span<const tsScenarioKey> scenarioKeys() {
    return kKeys;
}

bool isKey(const tsScenarioKey& key, const std::string& name) {
    const std::string_view known = key.name;
    return known.empty() || known == name || (known.starts_with("lane0") && isLane(name));
}

} // namespace sim
