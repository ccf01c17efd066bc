/// \file
/// The GPIO chip, as its character device shows it (line uAPI v2).
#pragma once

#include <array>
#include <cstdint>
#include <linux/gpio.h>
#include <optional>
#include <string>
#include <string_view>

#include "sim/chips/conditions.h"
#include "sim/journal/journal.h"

namespace sim {

/// What the chip's lines are wired to.
class tcWiring {
public:
    tcWiring() = default;
    tcWiring(const tcWiring&) = delete;
    tcWiring& operator=(const tcWiring&) = delete;
    virtual ~tcWiring() = default;
    /// An output has a level. \param name what the line is wired to; empty: nothing \param
    /// requested true: somebody takes the line over and cannot know what it was before
    virtual void lineDriven(std::string_view name, int level, bool requested) = 0;
};

/// Lines of one request.
struct tsLineRequest {
    std::array<std::uint8_t, GPIO_V2_LINES_MAX> offsets{};
    std::uint32_t count = 0;
};

/// The chip. Takes no lock.
class tcGpioChip {
public:
    static constexpr unsigned kLines = 29;

    tcGpioChip(tcWiring& wiring, tcJournal& journal, const tsConditions& now);

    /// \return offset of the head's line of that name
    static std::optional<unsigned> lineNamed(std::string_view name);

    /// ioctl on the chip. \param granted the lines, after GPIO_V2_GET_LINE_IOCTL succeeded
    /// \return 0 or -errno
    int chipIoctl(std::uint32_t request, void* argument, int refusal,
                  std::optional<tsLineRequest>& granted);
    /// ioctl on requested lines. \return 0 or -errno
    int lineIoctl(const tsLineRequest& lines, std::uint32_t request, void* argument, int refusal);
    /// The last descriptor of the request is closed.
    void release(const tsLineRequest& lines);

    /// \return level; empty when no line has this name
    [[nodiscard]] std::optional<int> level(std::string_view name) const;

private:
    struct tsLine {
        std::string name; // what it is wired to, whether or not it is named so at present
        std::string consumer;
        bool used = false;
        bool output = false;
        bool activeLow = false;
        int level = 0;     // at the pin
        std::string label; // in the log, of a line without a name: its offset
    };
    [[nodiscard]] std::string_view nameOf(std::size_t offset) const;
    [[nodiscard]] std::string_view labelOf(std::size_t offset) const;
    [[nodiscard]] bool used(std::size_t offset) const;
    int describeChip(void* argument) const;
    int describeLine(void* argument) const;
    int request(gpio_v2_line_request& wanted, int refusal, std::optional<tsLineRequest>& granted);
    [[nodiscard]] int refuseRequest(const gpio_v2_line_request& wanted) const;
    void configure(const tsLineRequest& lines, const gpio_v2_line_config& config, int error);
    int setValues(const tsLineRequest& lines, const gpio_v2_line_values& values, int refusal);
    int getValues(const tsLineRequest& lines, gpio_v2_line_values& values) const;
    void drive(tsLine& line, int level, bool requested);

    tcWiring& m_wiring;
    tcJournal& m_journal;
    const tsConditions& m_now;
    std::array<tsLine, kLines> m_lines;
};

} // namespace sim
