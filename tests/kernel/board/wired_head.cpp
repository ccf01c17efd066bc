#include "tests/kernel/board/wired_head.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/gpio.h>
#include <linux/spi/spidev.h>
#include <optional>
#include <system_error>
#include <unistd.h>

#include "sim/base/real_calls.h"
#include "sim/scenario/scenario.h"

namespace {

constexpr std::uint32_t kWord = 4;             // bytes that the sensor takes at once
constexpr std::uint32_t kSpeedHz = 10'000'000; // of the port, which the wires do not tell
constexpr int kLogMode = 0644;

int openLog(const std::string& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kLogMode);
    if (file < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return file;
}

} // namespace

sim::tsHeadOptions tcWiredHead::optionsFrom(const std::string& scenario) {
    sim::real::resolveAll();
    sim::tsHeadOptions options;
    if (!scenario.empty()) {
        sim::applyScenario(scenario, options);
    }
    options.quiet = true; // rules that are broken stand in the log
    options.logCapacity = 4096;
    return options;
}

tcWiredHead::tcWiredHead(const std::string& scenario, const std::string& log, std::uint64_t timeNs)
    : m_model(optionsFrom(scenario)), m_startNs(timeNs), m_log(openLog(log)) {
    m_levels.fill(-1);
    // The log begins behind what only makes the port ready: on this side of the wires nobody sets
    // anything.
    set(SPI_IOC_WR_MODE32, SPI_MODE_0);
    set(SPI_IOC_WR_BITS_PER_WORD, 8 * kWord);
    set(SPI_IOC_WR_MAX_SPEED_HZ, kSpeedHz);
    m_model.journal.log.streamTo(m_log);
}

tcWiredHead::~tcWiredHead() {
    m_model.journal.log.streamTo(-1);
    ::close(m_log);
}

void tcWiredHead::set(std::uint32_t request, std::uint32_t value) {
    if (m_model.spi.ioctl(request, &value, 0) < 0) {
        throw std::runtime_error("the head's SPI port takes no settings");
    }
}

// A message of SPI or I2C takes time in the model, which the emulator's controllers do not need.
void tcWiredHead::timeIs(std::uint64_t timeNs) {
    const std::uint64_t since = timeNs - m_startNs;
    m_model.journal.clock.setTo(std::max(since, m_model.journal.clock.peek()));
    m_model.catchUp();
}

void tcWiredHead::pinDriven(unsigned offset, int level) {
    if (offset >= m_levels.size() || m_levels[offset] == level) {
        return;
    }
    const bool known = m_levels[offset] >= 0;
    m_levels[offset] = level;
    sim::tsLineRequest lines;
    lines.offsets[0] = static_cast<std::uint8_t>(offset);
    lines.count = 1;
    if (known) {
        gpio_v2_line_values values{.bits = level == 0 ? 0U : 1U, .mask = 1};
        m_model.gpio.lineIoctl(lines, GPIO_V2_LINE_SET_VALUES_IOCTL, &values, 0);
        return;
    }
    gpio_v2_line_request request{};
    request.offsets[0] = offset;
    request.num_lines = 1;
    request.config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
    request.config.num_attrs = 1;
    request.config.attrs[0].mask = 1;
    request.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    request.config.attrs[0].attr.values = level == 0 ? 0U : 1U;
    std::optional<sim::tsLineRequest> granted;
    m_model.gpio.chipIoctl(GPIO_V2_GET_LINE_IOCTL, &request, 0, granted);
}

void tcWiredHead::chipSelect(bool selected) {
    if (selected == m_selected) {
        return;
    }
    m_selected = selected;
    if (selected || m_frame.empty()) {
        return;
    }
    // The port sends a word's highest byte first; the model gets it as a program hands it to a port
    // with such words, in the order of a little-endian processor. Other frames are no words: byte
    // by byte.
    const bool words = m_frame.size() % kWord == 0;
    for (std::size_t at = 0; words && at < m_frame.size(); at += kWord) {
        std::reverse(m_frame.begin() + static_cast<std::ptrdiff_t>(at),
                     m_frame.begin() + static_cast<std::ptrdiff_t>(at + kWord));
    }
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(m_frame.data());
    transfer.len = static_cast<std::uint32_t>(m_frame.size());
    transfer.bits_per_word = words ? 8 * kWord : 8;
    m_model.spi.ioctl(SPI_IOC_MESSAGE(1), &transfer, 0);
    m_frame.clear();
}

void tcWiredHead::spiByte(std::uint8_t byte) {
    if (m_selected) {
        m_frame.push_back(byte);
    }
}

bool tcWiredHead::i2cStart(bool reads) {
    endOfWrite();
    if (m_model.faults.now().adcError != 0) {
        return false;
    }
    if (reads) {
        m_model.adc.read(kAdcAddress, m_conversion, 0);
        m_read = 0;
    }
    return true;
}

std::uint8_t tcWiredHead::i2cByteRead() {
    constexpr std::uint8_t pulledUp = 0xFF;
    return m_read < m_conversion.size() ? m_conversion[m_read++] : pulledUp;
}

void tcWiredHead::endOfWrite() {
    if (!m_written.empty()) {
        m_model.adc.write(kAdcAddress, m_written, 0);
        m_written.clear();
    }
}

void tcWiredHead::i2cStop() {
    endOfWrite();
    m_model.adc.stop();
}

std::uint32_t tcWiredHead::load(std::uint32_t address, unsigned width) {
    return m_model.load(address, width);
}

void tcWiredHead::store(std::uint32_t address, unsigned width, std::uint32_t value) {
    m_model.store(address, width, value);
}
