#include "tests/sim/head_user.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

tcDescriptor& tcDescriptor::operator=(tcDescriptor&& other) noexcept {
    if (this != &other) {
        if (m_descriptor >= 0) {
            close(m_descriptor);
        }
        m_descriptor = other.release();
    }
    return *this;
}

tcDescriptor::~tcDescriptor() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

int tcDescriptor::release() {
    const int descriptor = m_descriptor;
    m_descriptor = -1;
    return descriptor;
}

tcDescriptor openDevice(const char* path) {
    return tcDescriptor(open(path, O_RDWR | O_CLOEXEC));
}

off_t fileOffset(std::uint32_t physicalAddress) {
    return static_cast<off_t>(physicalAddress);
}

tcDescriptor requestOutput(int chip, unsigned offset, int level) {
    gpio_v2_line_request request{};
    request.offsets[0] = offset;
    request.num_lines = 1;
    std::strcpy(request.consumer, "test");
    request.config.flags = GPIO_V2_LINE_FLAG_OUTPUT;
    request.config.num_attrs = 1;
    request.config.attrs[0].attr.id = GPIO_V2_LINE_ATTR_ID_OUTPUT_VALUES;
    request.config.attrs[0].attr.values = static_cast<__u64>(level);
    request.config.attrs[0].mask = 1;
    if (ioctl(chip, GPIO_V2_GET_LINE_IOCTL, &request) != 0) {
        return tcDescriptor();
    }
    return tcDescriptor(request.fd);
}

int setLevel(const tcDescriptor& line, int level) {
    gpio_v2_line_values values{};
    values.mask = 1;
    values.bits = static_cast<__u64>(level);
    return ioctl(line.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, &values) == 0 ? 0 : errno;
}

int getLevel(const tcDescriptor& line) {
    gpio_v2_line_values values{};
    values.mask = 1;
    if (ioctl(line.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
        return -1;
    }
    return static_cast<int>(values.bits & 1);
}

tcRegisters::tcRegisters(std::uint32_t physicalAddress, std::size_t bytes) : m_bytes(bytes) {
    const int memory = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
    m_mapping = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                     fileOffset(physicalAddress));
    if (memory >= 0) {
        close(memory);
    }
    if (m_mapping != MAP_FAILED) {
        m_words = static_cast<volatile std::uint32_t*>(m_mapping);
    }
}

tcRegisters::~tcRegisters() {
    if (m_words != nullptr) {
        munmap(m_mapping, m_bytes);
    }
}

tcPort::tcPort(const char* path) : m_descriptor(openDevice(path)) {}

int tcPort::setMode(std::uint32_t mode) {
    return ioctl(descriptor(), SPI_IOC_WR_MODE32, &mode) == 0 ? 0 : errno;
}
int tcPort::setLsbFirst(std::uint8_t lsbFirst) {
    return ioctl(descriptor(), SPI_IOC_WR_LSB_FIRST, &lsbFirst) == 0 ? 0 : errno;
}
int tcPort::setBits(std::uint8_t bits) {
    return ioctl(descriptor(), SPI_IOC_WR_BITS_PER_WORD, &bits) == 0 ? 0 : errno;
}
int tcPort::setSpeed(std::uint32_t hertz) {
    return ioctl(descriptor(), SPI_IOC_WR_MAX_SPEED_HZ, &hertz) == 0 ? 0 : errno;
}

void tcPort::configure() {
    setMode(0);
    setBits(32);
    setSpeed(10'000'000);
}

int tcPort::send(std::initializer_list<std::uint8_t> bytes) {
    return send(std::vector<std::uint8_t>(bytes));
}

int tcPort::send(const std::vector<std::uint8_t>& bytes) {
    spi_ioc_transfer transfer{};
    const void* start = bytes.data();
    std::uintptr_t address = 0;
    std::memcpy(&address, &start, sizeof address);
    transfer.tx_buf = address;
    transfer.len = static_cast<std::uint32_t>(bytes.size());
    const int result = ioctl(descriptor(), SPI_IOC_MESSAGE(1), &transfer);
    return result < 0 ? -errno : result;
}

int tcPort::writeRegister(std::uint32_t address, std::uint32_t value) {
    const std::uint32_t word = (address & 0x3FF) << 22 | (value & 0x3FFFFF);
    return send({static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
                 static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)});
}

tcMonitor::tcMonitor() : m_descriptor(openDevice("/dev/i2c-1")) {
    ioctl(descriptor(), I2C_SLAVE, 0x49);
}

int tcMonitor::command(std::uint8_t byte) {
    const ssize_t result = write(descriptor(), &byte, 1);
    return result < 0 ? -errno : static_cast<int>(result);
}

int tcMonitor::convert() {
    std::array<std::uint8_t, 2> bytes{};
    if (read(descriptor(), bytes.data(), bytes.size()) != 2) {
        return -errno;
    }
    return bytes[0] << 8 | bytes[1];
}

int tcMonitor::measure(int channel) {
    const int written =
        command(channel == 0 ? std::uint8_t{0x8C}
                             : (channel == 1 ? std::uint8_t{0xCC} : std::uint8_t{0xAC}));
    return written < 0 ? written : convert();
}

tcUser::tcUser()
    : chip(openDevice("/dev/gpiochip0")),
      core(requestOutput(chip.get(), lines::kCore, 0)),
      svdd(requestOutput(chip.get(), lines::kSvdd, 0)),
      avddh(requestOutput(chip.get(), lines::kAvddh, 0)),
      reset(requestOutput(chip.get(), lines::kReset, 0)) {
    port.configure();
}

void tcUser::powerUp() {
    setLevel(reset, 0);
    setLevel(core, 1);
    usleep(1000);
    setLevel(svdd, 1);
    setLevel(avddh, 1);
    usleep(300000);
    setLevel(reset, 1);
    usleep(10000);
    monitor.measure(0);
    usleep(5000);
    monitor.measure(0);
    monitor.measure(1);
    monitor.measure(4);
}

void tcUser::powerDown() {
    setLevel(reset, 0);
    setLevel(core, 0);
    setLevel(svdd, 0);
    setLevel(avddh, 0);
}

void tcUser::configure() {
    port.writeRegister(0xB0, 899);  // 900 clocks a line: 25 us at 36 MHz
    port.writeRegister(0x12, 4000); // 4000 lines a frame: 100 ms
    port.writeRegister(0x1B, 3998);
    port.writeRegister(0x16, 3996);
    port.writeRegister(0x19, 2798); // 1200 lines of exposure: 30 ms
    port.writeRegister(0xD8, 0x2D90F);
    frameControl.write(2, 0x5D9);
    pulses.write(2, 10);
    pulses.write(1, 3600000); // 100 ms
}

template<class Condition>
bool tcUser::waitFor(unsigned milliseconds, Condition condition) {
    for (int tries = 0; tries < 10 && !condition(); ++tries) {
        const timespec pause{0, static_cast<long>(milliseconds) * 1000000};
        nanosleep(&pause, nullptr);
    }
    return condition();
}

int tcUser::bringUp() {
    port.writeRegister(0x10, 4);
    pulses.write(0, 0x80000000);
    frameControl.write(0, frameControl.read(0) | 0x80000000);
    if (!waitFor(10, [this] { return (frameControl.read(1) & 7) == 7; })) {
        return -1;
    }
    frameControl.write(11, 0);
    frameControl.write(10, 0xFFF);
    frameControl.write(10, 0xFFF000);
    frameControl.write(10, 0);
    if (!waitFor(10, [this] { return frameControl.read(12) == 0xFFF; })) {
        return -2;
    }
    frameControl.write(10, 0);
    frameControl.write(11, 0xFFF);
    const bool aligned = waitFor(40, [this] { return (frameControl.read(1) & 8) == 8; });
    pulses.write(0, 0);
    port.writeRegister(0x10, 0);
    return aligned ? 0 : -1;
}

void tcUser::start() {
    port.writeRegister(0x10, 4);
    usleep(200);
    pulses.write(0, 0x80000000);
    usleep(8000);
    port.writeRegister(0x10, 3);
}

void tcUser::stop() {
    port.writeRegister(0x10, 0);
    usleep(100000);
    pulses.write(0, 0);
}
