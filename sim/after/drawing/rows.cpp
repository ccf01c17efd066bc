#include "sim/after/drawing/rows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace sim {

namespace {

constexpr std::string_view kDigits = "0123456789";

// Where a wire changed, the other one should have. "#" stands for a number, the same in both.
struct tsExpectation {
    std::string_view changed;
    std::string_view expected;
};

constexpr std::array kExpectations{
    // Whoever switches one of them on means all.
    tsExpectation{"PS_1.2V_EN", "PS_3.3SVDD_EN"},
    tsExpectation{"PS_1.2V_EN", "PS_3.3AVDDH_EN"},
    tsExpectation{"PS_1.2V_EN", "RESET_B"},
    tsExpectation{"PS_3.3SVDD_EN", "PS_1.2V_EN"},
    tsExpectation{"PS_3.3AVDDH_EN", "PS_1.2V_EN"},
    tsExpectation{"RESET_B", "PS_1.2V_EN"},
    // What is switched on comes up, and is measured.
    tsExpectation{"PS_1.2V_EN", "VDD1.2"},
    tsExpectation{"PS_1.2V_EN", "VDD1.2-GOOD"},
    tsExpectation{"PS_3.3SVDD_EN", "VDD3.3SVDD"},
    tsExpectation{"PS_3.3SVDD_EN", "VDD3.3SVDD-GOOD"},
    tsExpectation{"PS_3.3AVDDH_EN", "VDD3.3AVDDH"},
    tsExpectation{"PS_3.3AVDDH_EN", "VDD3.3AVDDH-GOOD"},
    tsExpectation{"RESET_B", "SENSOR-AWAKE"},
    tsExpectation{"RESET_B", "I2C-SCL"},
    tsExpectation{"RESET_B", "I2C-SDA"},
    // The link needs a sensor that has its registers, and pulses.
    tsExpectation{"CORE-ENABLED", "SPI-CS"},
    tsExpectation{"CORE-ENABLED", "SPI-CLK"},
    tsExpectation{"CORE-ENABLED", "SPI-MOSI"},
    tsExpectation{"CORE-ENABLED", "FRAME-START"},
    tsExpectation{"FRAME-START", "CORE-ENABLED"},
    tsExpectation{"FRAME-START", "PLL-LOCKED"},
    tsExpectation{"FRAME-START", "PLL-RG-LOCKED"},
    tsExpectation{"FRAME-START", "PLL-GB-LOCKED"},
    tsExpectation{"FRAME-START", "ALIGNED"},
    tsExpectation{"CORE-ENABLED", "PLL-LOCKED"},
    tsExpectation{"CORE-ENABLED", "PLL-RG-LOCKED"},
    tsExpectation{"CORE-ENABLED", "PLL-GB-LOCKED"},
    tsExpectation{"CORE-ENABLED", "ALIGNED"},
    tsExpectation{"DPA-RESET#", "LANE#-LOCK"},
    tsExpectation{"DPA-RESET#", "DPA-FIFO-RESET#"},
};

// A name around its last number: "LANE", 3, "-LOCK".
struct tsNumbered {
    std::string before;
    unsigned long number = 0;
    std::string behind;
};

std::optional<tsNumbered> numbered(const std::string& name) {
    constexpr std::size_t longest = 6; // digits of what counts wires
    const std::size_t last = name.find_last_of(kDigits);
    if (last == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t before = name.find_last_not_of(kDigits, last);
    const std::size_t first = before == std::string::npos ? 0 : before + 1;
    if (last + 1 - first > longest) {
        return std::nullopt;
    }
    return tsNumbered{name.substr(0, first), std::stoul(name.substr(first, last + 1 - first)),
                      name.substr(last + 1)};
}

std::string withNumber(std::string_view pattern, const std::string& number) {
    const std::size_t at = pattern.find('#');
    return at == std::string_view::npos
               ? std::string(pattern)
               : std::string(pattern.substr(0, at)) + number + std::string(pattern.substr(at + 1));
}

bool changed(const tsDump& dump, const std::string& name) {
    return std::any_of(dump.signals.begin(), dump.signals.end(), [&name](const tsSignal& signal) {
        return signal.name == name && signal.changes.size() > 1;
    });
}

bool shouldHaveChanged(const tsDump& dump, const std::string& name) {
    const std::optional<tsNumbered> parts = numbered(name);
    const std::string number = parts ? std::to_string(parts->number) : "";
    return std::any_of(kExpectations.begin(), kExpectations.end(), [&](const tsExpectation& one) {
        return withNumber(one.expected, number) == name &&
               changed(dump, withNumber(one.changed, number));
    });
}

bool goesOn(const std::string& last, const std::string& next) {
    const std::optional<tsNumbered> one = numbered(last);
    const std::optional<tsNumbered> other = numbered(next);
    return one && other && one->before == other->before && one->behind == other->behind &&
           one->number + 1 == other->number;
}

} // namespace

std::vector<tsRow> rowsOf(const tsDump& dump) {
    std::vector<tsRow> rows;
    std::string first; // wire of the last row
    std::string last;
    for (const tsSignal& signal : dump.signals) {
        const bool still = signal.changes.size() < 2;
        if (still && (signal.changes.empty() || !shouldHaveChanged(dump, signal.name))) {
            continue;
        }
        if (!rows.empty() && rows.back().signal.changes == signal.changes &&
            goesOn(last, signal.name)) {
            rows.back().name = first + " to " + signal.name;
        } else {
            rows.push_back({signal.name, signal, still});
            first = signal.name;
        }
        last = signal.name;
    }
    return rows;
}

} // namespace sim
