#include "apps/live/state_json.h"

#include <array>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include "fpga/registers.h"
#include "sensor/registers.h"
#include "sim/after/report/judged_reading.h"
#include "sim/after/report/page.h"
#include "sim/base/healthy_head.h"
#include "sim/base/register_table.h"

namespace live {

namespace {

using tcJson = nlohmann::ordered_json;
using sim::page::hex;

constexpr double kMicro = 1e-6;
constexpr std::uint32_t kStopped = 0;
constexpr std::uint32_t kStreaming = 3;
constexpr std::uint32_t kLanesOn = 4;

struct tsSupply {
    std::string_view name;
    const char* enable; // the line that switches it
    std::uint32_t channel;
};
constexpr std::array<tsSupply, 3> kSupplies{{{sim::kRail1V2, "PS_1.2V_EN", 0},
                                             {sim::kRailSvdd, "PS_3.3SVDD_EN", 4},
                                             {sim::kRailAvddh, "PS_3.3AVDDH_EN", 1}}};

std::uint64_t number(const sim::tcHeadState& state, std::string_view name, std::size_t at) {
    const sim::tsNumbersNow* const now = state.numbers(name);
    return now != nullptr && at < now->numbers.size() ? now->numbers[at] : 0;
}

// When the state behind a name was told last; null where it never was.
tcJson since(const sim::tcHeadState& state, std::string_view name) {
    const sim::tsNumbersNow* const now = state.numbers(name);
    return now == nullptr ? tcJson(nullptr) : tcJson(now->event);
}

tcJson levelOf(const sim::tcHeadState& state, const std::string& line) {
    const auto found = state.lines().find(line);
    return found == state.lines().end() || !found->second.level ? tcJson(nullptr)
                                                                : tcJson(*found->second.level);
}

tcJson measured(const sim::tcHeadState& state, std::uint32_t channel) {
    const auto found = state.conversions().find(channel);
    if (found == state.conversions().end()) {
        return nullptr;
    }
    const auto judged =
        sim::page::judged({found->second.timeNs, channel, found->second.steps, false});
    if (!judged) {
        return nullptr;
    }
    return {{"volts", judged->volts ? tcJson(*judged->volts) : tcJson(nullptr)},
            {"verdict", judged->verdict},
            {"good", judged->good},
            {"lowest", judged->lowest},
            {"highest", judged->highest},
            {"event", found->second.event}};
}

tcJson suppliesJson(const sim::tcHeadState& state) {
    tcJson supplies = tcJson::array();
    for (const tsSupply& supply : kSupplies) {
        const std::string good = std::string(supply.name) + "-GOOD";
        supplies.push_back({{"name", supply.name},
                            {"enable_line", supply.enable},
                            {"enable", levelOf(state, supply.enable)},
                            {"volts", static_cast<double>(number(state, supply.name, 0)) * kMicro},
                            {"good", state.flag(good)},
                            {"event", since(state, good)},
                            {"measured", measured(state, supply.channel)}});
    }
    return supplies;
}

std::uint32_t sensorField(const sim::tcHeadState& state, const tsRegisterField& field) {
    const auto found = state.sensor().find(field.address);
    return found == state.sensor().end() ? 0 : field.of(found->second.value);
}

tcJson sensorJson(const sim::tcHeadState& state) {
    const bool awake = state.flag("SENSOR-AWAKE");
    const std::uint32_t frameState = sensorField(state, sensorRegisters::kFrameState);
    const char* doing = "something else";
    if (!awake) {
        doing = "asleep";
    } else if (frameState == kStopped) {
        doing = "stopped";
    } else if (frameState == kStreaming) {
        doing = "streaming";
    } else if (frameState == kLanesOn) {
        doing = "lanes on";
    }
    return {{"awake", awake},
            {"doing", doing},
            {"frame_state", frameState},
            {"triggered", sensorField(state, sensorRegisters::kFrameControlMode) != 0},
            {"event", since(state, "SENSOR-AWAKE")}};
}

tcJson linkJson(const sim::tcHeadState& state) {
    tcJson lanes = tcJson::array();
    const std::uint64_t resets = number(state, "DPA-RESET", 0);
    const std::uint64_t hold = number(state, "DPA-HOLD", 0);
    for (std::size_t lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        const std::string name = "LANE" + std::to_string(lane) + "-LOCK";
        lanes.push_back({{"locked", state.flag(name)},
                         {"reset", (resets >> lane & 1) != 0},
                         {"held", (hold >> lane & 1) != 0},
                         {"event", since(state, name)}});
    }
    return {{"enabled", state.flag("CORE-ENABLED")},
            {"pll",
             {{"locked", state.flag("PLL-LOCKED")},
              {"rg_locked", state.flag("PLL-RG-LOCKED")},
              {"gb_locked", state.flag("PLL-GB-LOCKED")},
              {"event", since(state, "PLL-LOCKED")}}},
            {"lanes", lanes},
            {"aligned", state.flag("ALIGNED")},
            {"aligned_event", since(state, "ALIGNED")}};
}

std::uint32_t fpgaField(const sim::tcHeadState& state, std::uint32_t base,
                        const tsRegisterField& field) {
    const auto found = state.fpga().find(base + 4U * field.address);
    return found == state.fpga().end() ? 0 : field.of(found->second.value);
}

tcJson pipelineJson(const sim::tcHeadState& state) {
    using namespace sim::hostCores;
    const bool run = fpgaField(state, fpgaAddresses::kBadPixelControl, kBadPixelControl[3]) != 0;
    const bool held = fpgaField(state, fpgaAddresses::kBadPixelControl, kBadPixelControl[0]) != 0;
    const bool shiftHeld = fpgaField(state, fpgaAddresses::kPixelShift, kPixelShift[0]) != 0;
    return {{"bad_pixels_run", run && !held}, {"pixel_shift_runs", !shiftHeld}};
}

tcJson pulsesJson(const sim::tcHeadState& state) {
    const std::uint64_t period = number(state, "PULSES", 0);
    if (period == 0) {
        return nullptr;
    }
    return {{"period_ns", period},
            {"length_ns", number(state, "PULSES", 1)},
            {"low_pulses", number(state, "PULSES", 2) != 0},
            {"event", since(state, "PULSES")}};
}

tcJson framesJson(const sim::tcHeadState& state) {
    const std::uint64_t period = number(state, "FRAMES", 0);
    if (period == 0) {
        return nullptr;
    }
    return {{"period_ns", period},
            {"rows_ns", number(state, "FRAMES", 1)},
            {"event", since(state, "FRAMES")}};
}

tcJson fieldsJson(std::span<const tsRegisterField> fields, std::uint32_t place,
                  std::uint32_t value) {
    tcJson result = tcJson::array();
    for (const tsRegisterField& field : fields) {
        if (field.address == place) {
            result.push_back(
                {{"name", field.name}, {"value", field.of(value)}, {"meaning", field.meaning}});
        }
    }
    return result;
}

// The table has area 0; the others repeat it.
std::uint32_t inTable(std::uint32_t address) {
    using namespace sensorRegisters;
    const std::uint32_t place = address - kAreaRows;
    return place < std::uint32_t{kAreaStride} * sensorArray::kAreas
               ? kAreaRows + place % kAreaStride
               : address;
}

tcJson entry(std::uint32_t address, int digits, const sim::tsRegisterNow& now) {
    constexpr int wordDigits = 8;
    return {{"address", hex(address, digits)},
            {"value", now.value},
            {"hex", hex(now.value, wordDigits)},
            {"event", now.event},
            {"time_ns", now.timeNs}};
}

tcJson sensorRegistersJson(const sim::tcHeadState& state) {
    constexpr int digits = 3;
    tcJson result = tcJson::array();
    for (const auto& [address, now] : state.sensor()) {
        tcJson row = entry(address, digits, now);
        row["fields"] = fieldsJson(sensorRegisters::kAll, inTable(address), now.value);
        if (inTable(address) != address) {
            row["area"] = (address - sensorRegisters::kAreaRows) / sensorRegisters::kAreaStride;
        }
        result.push_back(row);
    }
    return result;
}

const sim::tsRegisterBlock* blockOf(std::uint32_t address, std::uint32_t& word) {
    for (const sim::tsRegisterBlock& block : sim::kFpgaBlocks) {
        word = (address - block.base) / 4;
        if (address < block.base) {
            continue;
        }
        if (word < block.elements) {
            word = 0;
            return &block;
        }
        for (const tsRegisterField& field : block.fields) {
            if (field.address == word) {
                return &block;
            }
        }
    }
    return nullptr;
}

tcJson fpgaRegistersJson(const sim::tcHeadState& state) {
    constexpr int digits = 8;
    tcJson result = tcJson::array();
    for (const auto& [address, now] : state.fpga()) {
        tcJson row = entry(address, digits, now);
        std::uint32_t word = 0;
        const sim::tsRegisterBlock* const block = blockOf(address, word);
        row["block"] = block == nullptr ? tcJson(nullptr) : tcJson(block->title);
        row["fields"] =
            block == nullptr ? tcJson::array() : fieldsJson(block->fields, word, now.value);
        result.push_back(row);
    }
    return result;
}

// What the program sent, and the sensor does not hold.
tcJson differencesJson(const sim::tcHeadState& state) {
    constexpr int digits = 3;
    tcJson result = tcJson::array();
    if (!state.flag("SENSOR-AWAKE")) {
        return result;
    }
    for (const auto& [address, sent] : state.sent()) {
        const auto held = state.sensor().find(address);
        if (held != state.sensor().end() && held->second.value == sent.value) {
            continue;
        }
        result.push_back({{"address", hex(address, digits)},
                          {"sent", sent.value},
                          {"sensor", held == state.sensor().end() ? tcJson(nullptr)
                                                                  : tcJson(held->second.value)},
                          {"event", sent.event}});
    }
    return result;
}

} // namespace

tcJson stateJson(const sim::tcHeadState& state) {
    tcJson lines = tcJson::object();
    for (const auto& [name, line] : state.lines()) {
        lines[name] = {{"direction", line.output ? "out" : "in"},
                       {"level", line.level ? tcJson(*line.level) : tcJson(nullptr)},
                       {"event", line.event}};
    }
    tcJson conversions = tcJson::array();
    for (const auto& [channel, conversion] : state.conversions()) {
        conversions.push_back(
            {{"channel", channel},
             {"steps", conversion.steps ? tcJson(*conversion.steps) : tcJson(nullptr)},
             {"event", conversion.event},
             {"time_ns", conversion.timeNs}});
    }
    tcJson spi = tcJson::object();
    for (const auto& [name, value] : state.spiSettings()) {
        spi[name] = value;
    }
    return {{"event", state.event() ? tcJson(*state.event()) : tcJson(nullptr)},
            {"time_ns", state.timeNs()},
            {"supplies", suppliesJson(state)},
            {"reset", {{"line", "RESET_B"}, {"level", levelOf(state, "RESET_B")}}},
            {"clock_mhz", state.clockMhz()},
            {"sensor", sensorJson(state)},
            {"link", linkJson(state)},
            {"pipeline", pipelineJson(state)},
            {"pulses", pulsesJson(state)},
            {"frames", framesJson(state)},
            {"lines", lines},
            {"conversions", conversions},
            {"spi", spi},
            {"faults", state.faults()},
            {"violations", state.violations()},
            {"failed_calls", state.failedCalls()},
            {"lost_events", state.lostEvents()},
            {"ended", state.ended()}};
}

tcJson registersJson(const sim::tcHeadState& state) {
    return {{"event", state.event() ? tcJson(*state.event()) : tcJson(nullptr)},
            {"sensor", sensorRegistersJson(state)},
            {"fpga", fpgaRegistersJson(state)},
            {"differences", differencesJson(state)}};
}

} // namespace live
