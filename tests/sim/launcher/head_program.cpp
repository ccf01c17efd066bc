// A program that knows nothing of the virtual head, for the launcher's tests: does what its first
// argument says.

#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/sim/head_user.h"

namespace {

int bringUp() {
    tcUser user;
    user.powerUp();
    user.configure();
    const int result = user.bringUp();
    std::cout << "link " << result << std::endl;
    return result == 0 ? 0 : 1;
}

// Frames of rows 384 to 511 and columns 240 to 479 come from now on, one each 100 ms.
bool streamPart(tcUser& user) {
    user.powerUp();
    user.configure();
    user.port.writeRegister(0x94, 255U << 11 | 192U);
    user.port.writeRegister(0x95, 79U << 12 | 40U);
    user.frameControl.write(8, 128U << 16 | 240U);
    user.frameControl.write(6, 64U << 16 | 40U);
    user.frameControl.write(9, 384U << 16 | 240U);
    tcRegisters(0xFF215000, 4096).write(0, 1); // the pipeline's cores run
    tcRegisters(0xFF217000, 4096).write(0, 0);
    if (user.bringUp() != 0) {
        return false;
    }
    user.start();
    return true;
}

// Three frames; the third at twice the gain.
int capture() {
    tcUser user;
    if (!streamPart(user)) {
        return 1;
    }
    usleep(250000);
    user.port.writeRegister(0x42, 1);
    usleep(100000);
    user.stop();
    return 0;
}

// No picture comes: a core of the pipeline is held in reset. \return as a program that notices, or
// does not
int captureNothing(int status) {
    tcUser user;
    if (!streamPart(user)) {
        return 1;
    }
    tcRegisters(0xFF217000, 4096).write(0, 0x80000000);
    usleep(700000);
    user.stop();
    return status;
}

// Two frames. The first one ends within a message that doubles the gain 20 ms later.
int captureWithinAMessage() {
    tcUser user;
    if (!streamPart(user)) {
        return 1;
    }
    usleep(60000);
    std::array<std::uint8_t, 4> same{0x00, 0x00, 0x80, 0x10};  // 0x42 <- 0
    std::array<std::uint8_t, 4> twice{0x01, 0x00, 0x80, 0x10}; // 0x42 <- 1
    std::array<spi_ioc_transfer, 2> transfers{};
    const auto fill = [](spi_ioc_transfer& transfer, const std::array<std::uint8_t, 4>& bytes) {
        const void* start = bytes.data();
        std::uintptr_t address = 0;
        std::memcpy(&address, &start, sizeof address);
        transfer.tx_buf = address;
        transfer.len = 4;
    };
    fill(transfers[0], same);
    fill(transfers[1], twice);
    transfers[0].delay_usecs = 60000;
    if (ioctl(user.port.descriptor(), SPI_IOC_MESSAGE(2), transfers.data()) != 8) {
        return 1;
    }
    usleep(100000);
    user.stop();
    return 0;
}

// Says what a port, a monitor and registers answer.
int askDevices() {
    tcPort port;
    std::array<std::uint8_t, 4> bytes{0x0F, 0xB9, 0x04, 0x36};
    spi_ioc_transfer transfer{};
    const void* start = bytes.data();
    std::uintptr_t address = 0;
    std::memcpy(&address, &start, sizeof address);
    transfer.tx_buf = transfer.rx_buf = address;
    transfer.len = bytes.size();
    std::cout << ioctl(port.descriptor(), SPI_IOC_MESSAGE(1), &transfer);
    const tcDescriptor bus = openDevice("/dev/i2c-1");
    std::array<std::uint8_t, 2> reading{};
    i2c_msg message{0x49, I2C_M_RD, 2, reading.data()};
    i2c_rdwr_ioctl_data list{&message, 1};
    std::cout << " " << ioctl(bus.get(), I2C_RDWR, &list);
    tcRegisters registers(0xFF200000);
    registers.write(5, 0x12345678);
    std::cout << std::hex;
    for (const std::uint8_t byte : {bytes[0], bytes[1], bytes[2], bytes[3], reading[0]}) {
        std::cout << " " << unsigned{byte};
    }
    std::cout << " " << registers.read(0) << " " << registers.read(5) << std::endl;
    return 0;
}

// Does what it reads, a word a line, and says when it has: "up", "start", "stream", "stop", "flags"
// (what the link's register says), "wrong" (a write that breaks a rule), "sleep" (10 ms).
int obey() {
    tcUser user;
    for (std::string word; std::cin >> word;) {
        if (word == "up") {
            user.powerUp();
            user.configure();
            std::cout << word << " " << user.bringUp() << std::endl;
        } else if (word == "stream") {
            std::cout << word << " " << streamPart(user) << std::endl;
        } else if (word == "start") {
            user.start();
            usleep(100000); // the link aligns
            std::cout << word << std::endl;
        } else if (word == "stop") {
            user.stop();
            std::cout << word << std::endl;
        } else if (word == "flags") {
            std::cout << word << " " << user.frameControl.read(1) << std::endl;
        } else if (word == "wrong") {
            user.port.writeRegister(0x20, 1);
            std::cout << word << std::endl;
        } else if (word == "sleep") {
            usleep(10000);
            std::cout << word << std::endl;
        }
    }
    return 0;
}

int print(const char* name) {
    std::ifstream file(name);
    std::cout << file.rdbuf() << std::flush;
    return file ? 0 : 1;
}

int timedSleep() {
    const auto start = std::chrono::system_clock::now();
    usleep(200000);
    const auto real = std::chrono::system_clock::now() - start;
    std::cout << (real >= std::chrono::milliseconds(200) ? "slept" : "skipped") << std::endl;
    return 0;
}

} // namespace

int main(int count, char** values) {
    const std::string what = count > 1 ? values[1] : "";
    if (what == "bring-up") {
        return bringUp();
    }
    if (what == "capture") {
        return capture();
    }
    if (what == "capture-nothing") {
        return captureNothing(count > 2 ? std::atoi(values[2]) : 0);
    }
    if (what == "capture-within-a-message") {
        return captureWithinAMessage();
    }
    if (what == "ask") {
        return askDevices();
    }
    if (what == "violate") {
        tcPort().writeRegister(0x20, 1);
        return count > 2 ? std::atoi(values[2]) : 0;
    }
    if (what == "obey") {
        return obey();
    }
    if (what == "exit") {
        return std::atoi(values[2]);
    }
    if (what == "fork") {
        const pid_t child = fork();
        if (child == 0) {
            return 0;
        }
        return waitpid(child, nullptr, 0) == child ? 0 : 1;
    }
    if (what == "daemon") { // it ends, its child goes on until its input ends
        tcPort().writeRegister(0x10, 1);
        if (fork() == 0) {
            std::string line;
            std::getline(std::cin, line);
        }
        return 0;
    }
    if (what == "quick-exit") {
        tcPort().writeRegister(0x20, 1);
        _exit(0);
    }
    if (what == "abort") {
        tcPort().configure();
        std::abort();
    }
    if (what == "fault") {
        const tcRegisters base(0xFF200000);
        std::cout << base.read(0) << std::endl;
        std::raise(SIGSEGV);
    }
    if (what == "die") {
        kill(getpid(), SIGKILL);
    }
    if (what == "print") {
        return print(values[2]);
    }
    if (what == "sleep") {
        return timedSleep();
    }
    return 99;
}
