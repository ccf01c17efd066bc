#include <array>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "tests/kernel/questions/ask.h"

namespace {

constexpr const char* kPath = "/dev/i2c-1";
constexpr std::uint16_t kMonitor = 0x49;
constexpr std::uint16_t kNobody = 0x4A;
constexpr std::uint8_t kChannel0 = 0x8C; // with the reference on

void address(int bus, const char* name, unsigned long request, unsigned long value) {
    tell(std::string("i2c ") + name + " " + hex(value), tsGiven(ioctl(bus, request, value)));
}

void askReadAndWrite(int bus, const char* whom) {
    const std::string of = std::string(" of ") + whom;
    const std::uint8_t command = kChannel0;
    tell("i2c write of a byte" + of, tsGiven(write(bus, &command, 1)));
    std::array<std::uint8_t, 2> result{0xEE, 0xEE};
    const tsGiven two(read(bus, result.data(), 2));
    tell("i2c read of 2 bytes" + of, two, bytes(result));
}

void messages(int bus, const std::string& name, std::vector<i2c_msg> list) {
    i2c_rdwr_ioctl_data data{.msgs = list.data(), .nmsgs = static_cast<std::uint32_t>(list.size())};
    tell("i2c RDWR " + name, tsGiven(ioctl(bus, I2C_RDWR, &data)));
}

void askMessages(int bus) {
    std::uint8_t command = kChannel0;
    std::array<std::uint8_t, 2> result{};
    const i2c_msg sends{.addr = kMonitor, .flags = 0, .len = 1, .buf = &command};
    const i2c_msg receives{.addr = kMonitor, .flags = I2C_M_RD, .len = 2, .buf = result.data()};
    messages(bus, "of no message", {});
    messages(bus, "that sends", {sends});
    messages(bus, "that sends and receives", {sends, receives});
    messages(bus, "of 43 messages", std::vector<i2c_msg>(43, sends));
    i2c_msg other = sends;
    other.addr = kNobody;
    messages(bus, "to nobody", {other});
    messages(bus, "to nobody, then to the monitor", {other, receives});
    other = receives;
    other.addr = kNobody;
    messages(bus, "from nobody", {other});
    std::vector<std::uint8_t> much(8193);
    other = sends;
    other.len = 8193;
    other.buf = much.data();
    messages(bus, "of 8193 bytes", {other});
    i2c_rdwr_ioctl_data data{.msgs = nullptr, .nmsgs = 1};
    tell("i2c RDWR without a list", tsGiven(ioctl(bus, I2C_RDWR, &data)));
    data.msgs = static_cast<i2c_msg*>(nowhere());
    tell("i2c RDWR of a list nowhere", tsGiven(ioctl(bus, I2C_RDWR, &data)));
    tell("i2c RDWR nowhere", tsGiven(ioctl(bus, I2C_RDWR, nowhere())));
    other = sends;
    other.buf = static_cast<std::uint8_t*>(nowhere());
    messages(bus, "from nowhere", {other});
    other = receives;
    other.buf = static_cast<std::uint8_t*>(nowhere());
    messages(bus, "to nowhere", {other});
}

void smbus(int bus, const std::string& name, std::uint8_t direction, std::uint8_t command,
           std::uint32_t size, i2c_smbus_data* data) {
    i2c_smbus_ioctl_data call{
        .read_write = direction, .command = command, .size = size, .data = data};
    tell("i2c SMBUS " + name, tsGiven(ioctl(bus, I2C_SMBUS, &call)));
}

void askSmbus(int bus) {
    i2c_smbus_data data{};
    smbus(bus, "write byte", I2C_SMBUS_WRITE, kChannel0, I2C_SMBUS_BYTE, nullptr);
    smbus(bus, "read byte", I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, &data);
    smbus(bus, "read word data", I2C_SMBUS_READ, kChannel0, I2C_SMBUS_WORD_DATA, &data);
    smbus(bus, "read byte data", I2C_SMBUS_READ, kChannel0, I2C_SMBUS_BYTE_DATA, &data);
    smbus(bus, "of a size nobody knows", I2C_SMBUS_READ, 0, 99, &data);
    smbus(bus, "of a direction nobody knows", 2, 0, I2C_SMBUS_BYTE_DATA, &data);
    smbus(bus, "read byte without data", I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, nullptr);
    smbus(bus, "read byte data to nowhere", I2C_SMBUS_READ, kChannel0, I2C_SMBUS_BYTE_DATA,
          static_cast<i2c_smbus_data*>(nowhere()));
    tell("i2c SMBUS nowhere", tsGiven(ioctl(bus, I2C_SMBUS, nowhere())));
}

} // namespace

void askI2c() {
    tellOpened("i2c open of a bus that is not there",
               tsGiven(tcDevice("/dev/i2c-99", O_RDWR).get()));
    const tcDevice bus(kPath, O_RDWR);
    tellOpened("i2c open", tsGiven(bus.get()));
    address(bus.get(), "SLAVE", I2C_SLAVE, 0x400);
    address(bus.get(), "SLAVE", I2C_SLAVE, 0x80);
    address(bus.get(), "SLAVE", I2C_SLAVE, kMonitor);
    askReadAndWrite(bus.get(), "the monitor");
    askSmbus(bus.get());
    tell("i2c write from nowhere", tsGiven(write(bus.get(), nowhere(), 1)));
    tell("i2c read to nowhere", tsGiven(read(bus.get(), nowhere(), 2)));
    askMessages(bus.get());
    address(bus.get(), "SLAVE", I2C_SLAVE, kNobody);
    askReadAndWrite(bus.get(), "nobody");
    unsigned long functions = 0;
    const tsGiven told(ioctl(bus.get(), I2C_FUNCS, &functions));
    tell("i2c FUNCS, of which transfers", told, hex(functions & I2C_FUNC_I2C));
    tell("i2c FUNCS to nowhere", tsGiven(ioctl(bus.get(), I2C_FUNCS, nowhere())));
    int word = 0;
    tell("i2c ioctl nobody knows", tsGiven(ioctl(bus.get(), 0x07FF, &word)));
    void* const mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, bus.get(), 0);
    tell("i2c mmap", tsGiven(mapped == MAP_FAILED ? -1 : 0));
}
