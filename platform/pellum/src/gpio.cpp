#include <pellum/gpio.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <string_view>

#include <linux/gpio.h>
#include <sys/ioctl.h>

#include "platform/support/error_reports.h"
#include "platform/support/file_descriptor.h"

namespace Pellum {

namespace {

/// A pin is a line's chip and its offset on that chip in one number.
constexpr unsigned int kLinesPerChip = 1024;

/// Chips come and go with their drivers, so that numbers may be missing in between.
constexpr unsigned int kChipsSearched = 32;

/// Who holds the line, as the kernel's tools show it.
constexpr std::string_view kConsumer = "pellum";

std::string chipPath(unsigned int chip) {
    return "/dev/gpiochip" + std::to_string(chip);
}

bool hasName(const gpio_v2_line_info& line, std::string_view name) {
    const std::string_view text(line.name, sizeof line.name);
    return text.substr(0, text.find('\0')) == name;
}

/// \return the line's offset on the chip, or -1
int findOnChip(const std::string& path, int chip, std::string_view name,
               platform::tcErrorReports& reports) {
    gpiochip_info info{};
    if (::ioctl(chip, GPIO_GET_CHIPINFO_IOCTL, &info) < 0) {
        reports.report(path, "GPIO_GET_CHIPINFO", errno);
        return -1;
    }
    for (std::uint32_t offset = 0; offset < info.lines; ++offset) {
        gpio_v2_line_info line{};
        line.offset = offset;
        if (::ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &line) < 0) {
            reports.report(path, "GPIO_V2_GET_LINEINFO", errno);
            return -1;
        }
        if (hasName(line, name))
            return static_cast<int>(offset);
    }
    return -1;
}

} // namespace

int tcGpio::GetPinFromDTName(const char* name) {
    if (name == nullptr || *name == '\0')
        return -1;
    // Of this look-up alone: the next one, of another board perhaps, is told its cause again.
    platform::tcErrorReports reports("tcGpio");
    bool explained = false; // there is a chip, or it is told why one is not used
    for (unsigned int number = 0; number < kChipsSearched; ++number) {
        const std::string path = chipPath(number);
        const auto chip = platform::tcFileDescriptor::open(path.c_str(), O_RDWR);
        if (!chip.isOpen()) {
            if (errno != ENOENT) {
                reports.report(path, "open", errno);
                explained = true;
            }
            continue;
        }
        explained = true;
        const int offset = findOnChip(path, chip.get(), name, reports);
        if (offset >= 0)
            return static_cast<int>(number * kLinesPerChip) + offset;
    }
    if (!explained)
        reports.report(chipPath(0), "open", ENOENT);
    return -1;
}

/// One line, requested from the kernel by the first `setDirection`.
class tcGpioSingle::tcLine {
public:
    explicit tcLine(unsigned int pin) : m_pin(pin) {}

    int setDirection(int direction, int level);
    int setValue(int level);

private:
    enum class teDirection { eUnknown, eInput, eOutput };

    [[nodiscard]] std::string name() const;
    [[nodiscard]] bool isNamed() const;
    int fail(const char* operation, int error);
    int request(const gpio_v2_line_config& config);
    int change(const gpio_v2_line_config& config);
    int writeLevel(const char* operation, int level);

    unsigned int m_pin;
    std::mutex m_lock; // copies of the line may be used on several threads
    platform::tcFileDescriptor m_line;
    teDirection m_direction = teDirection::eUnknown;
    platform::tcErrorReports m_reports{"tcGpioSingle"};
};

/// A name that was not found arrives as a negative pin.
bool tcGpioSingle::tcLine::isNamed() const {
    return m_pin <= static_cast<unsigned int>(std::numeric_limits<int>::max());
}

std::string tcGpioSingle::tcLine::name() const {
    if (!isNamed())
        return "pin " + std::to_string(static_cast<int>(m_pin));
    return chipPath(m_pin / kLinesPerChip) + " line " + std::to_string(m_pin % kLinesPerChip);
}

int tcGpioSingle::tcLine::fail(const char* operation, int error) {
    m_reports.report(name(), operation, error);
    return -1;
}

int tcGpioSingle::tcLine::setDirection(int direction, int level) {
    const bool output = direction == 1;
    if ((direction != 0 && !output) || (output && level != 0 && level != 1))
        return fail("SetDirection", EINVAL);
    const std::lock_guard lock(m_lock);
    const teDirection wanted = output ? teDirection::eOutput : teDirection::eInput;
    if (m_line.isOpen() && m_direction == wanted)
        return output ? writeLevel("SetDirection", level) : 0;

    gpio_v2_line_config config{};
    config.flags = output ? GPIO_V2_LINE_FLAG_OUTPUT : GPIO_V2_LINE_FLAG_INPUT;
    if (output) {
        config.num_attrs = 1;
        config.attrs[0].mask = 1;
        config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
        config.attrs[0].attr.values = level == 1 ? 1 : 0;
    }
    const int result = m_line.isOpen() ? change(config) : request(config);
    if (result == 0)
        m_direction = wanted;
    return result;
}

int tcGpioSingle::tcLine::request(const gpio_v2_line_config& config) {
    if (!isNamed())
        return fail("SetDirection", ENODEV);
    const auto chip =
        platform::tcFileDescriptor::open(chipPath(m_pin / kLinesPerChip).c_str(), O_RDWR);
    if (!chip.isOpen())
        return fail("open", errno);
    gpio_v2_line_request line{};
    line.offsets[0] = m_pin % kLinesPerChip;
    line.num_lines = 1;
    kConsumer.copy(line.consumer, sizeof line.consumer - 1);
    line.config = config;
    if (::ioctl(chip.get(), GPIO_V2_GET_LINE_IOCTL, &line) < 0)
        return fail("GPIO_V2_GET_LINE", errno);
    m_line = platform::tcFileDescriptor(line.fd);
    return 0;
}

int tcGpioSingle::tcLine::change(const gpio_v2_line_config& config) {
    gpio_v2_line_config changed = config;
    if (::ioctl(m_line.get(), GPIO_V2_LINE_SET_CONFIG_IOCTL, &changed) < 0)
        return fail("GPIO_V2_LINE_SET_CONFIG", errno);
    return 0;
}

int tcGpioSingle::tcLine::writeLevel(const char* operation, int level) {
    if (level != 0 && level != 1)
        return fail(operation, EINVAL);
    gpio_v2_line_values values{};
    values.mask = 1;
    values.bits = level == 1 ? 1 : 0;
    if (::ioctl(m_line.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, &values) < 0)
        return fail("GPIO_V2_LINE_SET_VALUES", errno);
    return 0;
}

int tcGpioSingle::tcLine::setValue(int level) {
    const std::lock_guard lock(m_lock);
    if (!m_line.isOpen() || m_direction != teDirection::eOutput)
        return fail("SetValue", EPERM);
    return writeLevel("SetValue", level);
}

tcGpioSingle::tcGpioSingle(unsigned int pin) : m_line(std::make_shared<tcLine>(pin)) {}

int tcGpioSingle::SetDirection(int direction, int level) {
    return m_line->setDirection(direction, level);
}

int tcGpioSingle::SetValue(int level) {
    return m_line->setValue(level);
}

} // namespace Pellum
