// Faults of device files and what answers behind them.

#include <array>
#include <cstddef>

#include "sim/chips/gpio_chip.h"
#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_words.h"

namespace sim {

namespace {

using namespace faultWords;

tcNumbers readAdc(const std::vector<std::string>& words) {
    return words[0] == "ADC" ? transferError(tcWords(words).subspan(1)) : std::nullopt;
}

tcNumbers readSpi(const std::vector<std::string>& words) {
    return words[0] == "SPI" ? transferError(tcWords(words).subspan(1)) : std::nullopt;
}

// "line RESET_B missing", "line RESET_B busy"
constexpr std::uint32_t kBusy = 1;

tcNumbers readLine(const std::vector<std::string>& words) {
    if (words.size() != 3 || words[0] != "line" || (words[2] != "missing" && words[2] != "busy")) {
        return std::nullopt;
    }
    const std::optional<unsigned> line = tcGpioChip::lineNamed(words[1]);
    if (!line) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = 1U << *line;
    numbers.value = words[2] == "busy" ? kBusy : 0;
    return numbers;
}

void applyLine(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    (numbers.value == kBusy ? conditions.busyLines : conditions.missingLines) |= numbers.which;
}

constexpr std::array kDeviceKinds{
    tsFaultKind{"`ADC fails ERRNO` or `ADC short`",
                "Transfers with the supply monitor fail: ENXIO when nobody acknowledges, "
                "ETIMEDOUT when the bus never becomes free. Or the last message is missing.",
                readAdc,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.adcError = numbers.error;
                }},
    tsFaultKind{"`ADC floats`", "All its readings are 0xFFFF.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"ADC", "floats"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.adcFloats = true;
                }},
    tsFaultKind{"`I2C missing`", "`/dev/i2c-1` does not exist.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"I2C", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.i2cPresent = false;
                }},
    tsFaultKind{"`line RESET_B missing` or `line RESET_B busy`",
                "No line has this name; or somebody else holds it: who holds it already keeps it, "
                "and a new request is refused.",
                readLine, applyLine},
    tsFaultKind{"`GPIO missing`", "The chip's device file does not exist.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"GPIO", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.gpioPresent = false;
                }},
    tsFaultKind{"`SPI missing`", "The sensor's port does not exist: it cannot be opened.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"SPI", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.spiPresent = false;
                }},
    tsFaultKind{"`SPI settings refused`",
                "The port takes neither mode, bit order, word size nor clock.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"SPI", "settings", "refused"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.spiSettingsRefused = true;
                }},
    tsFaultKind{"`SPI fails ERRNO` or `SPI short`",
                "Messages fail; or give half of their bytes and send nothing.", readSpi,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.spiError = numbers.error;
                }},
    tsFaultKind{"`memory fails ERRNO`",
                "`/dev/mem` cannot be opened. Each block opens it for itself: a fault between two "
                "events `OPEN /dev/mem` meets one block.",
                [](const std::vector<std::string>& words) {
                    return words.size() == 3 && words[0] == "memory"
                               ? transferError(tcWords(words).subspan(1))
                               : std::nullopt;
                },
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.memOpenError = numbers.error;
                }},
};

} // namespace

std::span<const tsFaultKind> deviceFaults() {
    return kDeviceKinds;
}

} // namespace sim
