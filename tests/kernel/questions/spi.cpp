#include <array>
#include <cstring>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "tests/kernel/questions/ask.h"

namespace {

constexpr const char* kPath = "/dev/spidev1.0";
constexpr std::size_t kMost = 4096; // spidev's buffer

void set8(int port, const char* name, unsigned long request, std::uint8_t value) {
    tell(std::string("spi ") + name + " " + std::to_string(value),
         tsGiven(ioctl(port, request, &value)));
}

void set32(int port, const char* name, unsigned long request, std::uint32_t value) {
    tell(std::string("spi ") + name + " " + hex(value), tsGiven(ioctl(port, request, &value)));
}

void get8(int port, const char* name, unsigned long request) {
    std::uint8_t value = 0xEE;
    const tsGiven given(ioctl(port, request, &value));
    tell(std::string("spi ") + name, given, std::to_string(value));
}

void get32(int port, const char* name, unsigned long request) {
    std::uint32_t value = 0xEEEE;
    const tsGiven given(ioctl(port, request, &value));
    tell(std::string("spi ") + name, given, hex(value));
}

spi_ioc_transfer sending(const void* data, std::uint32_t length) {
    spi_ioc_transfer transfer{};
    transfer.tx_buf = reinterpret_cast<std::uintptr_t>(data);
    transfer.len = length;
    return transfer;
}

void message(int port, const char* name, spi_ioc_transfer transfer) {
    tell(std::string("spi message ") + name, tsGiven(ioctl(port, SPI_IOC_MESSAGE(1), &transfer)));
}

// How the port is made ready, and what it then tells.
void askSettings(int port) {
    get8(port, "RD_MODE", SPI_IOC_RD_MODE);
    get32(port, "RD_MODE32", SPI_IOC_RD_MODE32);
    get8(port, "RD_LSB_FIRST", SPI_IOC_RD_LSB_FIRST);
    get8(port, "RD_BITS_PER_WORD", SPI_IOC_RD_BITS_PER_WORD);
    get32(port, "RD_MAX_SPEED_HZ", SPI_IOC_RD_MAX_SPEED_HZ);
    set8(port, "WR_MODE", SPI_IOC_WR_MODE, 1);
    get8(port, "RD_MODE after 1", SPI_IOC_RD_MODE);
    set8(port, "WR_MODE", SPI_IOC_WR_MODE, 3);
    get32(port, "RD_MODE32 after 3", SPI_IOC_RD_MODE32);
    set32(port, "WR_MODE32", SPI_IOC_WR_MODE32, 0x1000'0000);
    get32(port, "RD_MODE32 after a refusal", SPI_IOC_RD_MODE32);
    set8(port, "WR_MODE", SPI_IOC_WR_MODE, 0);
    set8(port, "WR_LSB_FIRST", SPI_IOC_WR_LSB_FIRST, 0);
    set8(port, "WR_BITS_PER_WORD", SPI_IOC_WR_BITS_PER_WORD, 33);
    get8(port, "RD_BITS_PER_WORD after a refusal", SPI_IOC_RD_BITS_PER_WORD);
    set8(port, "WR_BITS_PER_WORD", SPI_IOC_WR_BITS_PER_WORD, 16);
    get8(port, "RD_BITS_PER_WORD after 16", SPI_IOC_RD_BITS_PER_WORD);
    set8(port, "WR_BITS_PER_WORD", SPI_IOC_WR_BITS_PER_WORD, 0);
    get8(port, "RD_BITS_PER_WORD after 0", SPI_IOC_RD_BITS_PER_WORD);
    set32(port, "WR_MAX_SPEED_HZ", SPI_IOC_WR_MAX_SPEED_HZ, 0);
    get32(port, "RD_MAX_SPEED_HZ after a refusal", SPI_IOC_RD_MAX_SPEED_HZ);
    set32(port, "WR_MAX_SPEED_HZ", SPI_IOC_WR_MAX_SPEED_HZ, 10'000'000);
    get32(port, "RD_MAX_SPEED_HZ after 10 MHz", SPI_IOC_RD_MAX_SPEED_HZ);
    set8(port, "WR_BITS_PER_WORD", SPI_IOC_WR_BITS_PER_WORD, 32);
}

void askMessages(int port) {
    const std::vector<std::uint8_t> zeroes(kMost + 4, 0);
    message(port, "of 4 bytes", sending(zeroes.data(), 4));
    message(port, "of 8 bytes", sending(zeroes.data(), 8));
    message(port, "of 0 bytes", sending(zeroes.data(), 0));
    message(port, "of 3 bytes in words of 32 bits", sending(zeroes.data(), 3));
    message(port, "of 4096 bytes", sending(zeroes.data(), kMost));
    message(port, "of 4100 bytes", sending(zeroes.data(), kMost + 4));
    message(port, "of 4 bytes without a buffer", sending(nullptr, 4));
    spi_ioc_transfer transfer = sending(zeroes.data(), 3);
    transfer.bits_per_word = 8;
    message(port, "of 3 bytes in words of 8 bits", transfer);
    transfer = sending(zeroes.data(), 4);
    transfer.bits_per_word = 64;
    message(port, "in words of 64 bits", transfer);
    transfer = sending(zeroes.data(), 4);
    transfer.speed_hz = 1'000'000;
    message(port, "at 1 MHz", transfer);
    transfer = sending(zeroes.data(), 4);
    transfer.tx_nbits = 3;
    message(port, "over 3 wires", transfer);
    transfer = sending(zeroes.data(), 4);
    transfer.cs_change = 1;
    message(port, "that leaves the chip selected", transfer);
    transfer = sending(zeroes.data(), 4);
    transfer.delay_usecs = 10;
    message(port, "with a delay", transfer);

    std::array<std::uint8_t, 4> received{0xEE, 0xEE, 0xEE, 0xEE};
    transfer = sending(zeroes.data(), 4);
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(received.data());
    const tsGiven both(ioctl(port, SPI_IOC_MESSAGE(1), &transfer));
    tell("spi message that sends and receives", both, bytes(received));
    std::array<spi_ioc_transfer, 2> two{sending(zeroes.data(), 4), sending(zeroes.data(), 8)};
    tell("spi message of 2 transfers", tsGiven(ioctl(port, SPI_IOC_MESSAGE(2), two.data())));
    two[1].len = kMost;
    tell("spi message of 2 transfers, too long together",
         tsGiven(ioctl(port, SPI_IOC_MESSAGE(2), two.data())));
    tell("spi message of no transfer", tsGiven(ioctl(port, SPI_IOC_MESSAGE(0), two.data())));
    tell("spi message of half a transfer",
         tsGiven(ioctl(port, _IOC(_IOC_WRITE, SPI_IOC_MAGIC, 0, sizeof two[0] / 2), two.data())));
}

void askReadAndWrite(int port) {
    std::vector<std::uint8_t> data(kMost + 4, 0);
    tell("spi write of 4 bytes", tsGiven(write(port, data.data(), 4)));
    tell("spi write of 0 bytes", tsGiven(write(port, data.data(), 0)));
    tell("spi write of 3 bytes in words of 32 bits", tsGiven(write(port, data.data(), 3)));
    tell("spi write of 4100 bytes", tsGiven(write(port, data.data(), kMost + 4)));
    std::array<std::uint8_t, 4> received{0xEE, 0xEE, 0xEE, 0xEE};
    const tsGiven taken(read(port, received.data(), received.size()));
    tell("spi read of 4 bytes", taken, bytes(received));
    tell("spi read of 0 bytes", tsGiven(read(port, data.data(), 0)));
    tell("spi read of 4100 bytes", tsGiven(read(port, data.data(), kMost + 4)));
}

void askOddities(int port) {
    int word = 0;
    tell("spi ioctl of another device", tsGiven(ioctl(port, _IOR('x', 1, int), &word)));
    tell("spi ioctl nobody knows", tsGiven(ioctl(port, _IOR(SPI_IOC_MAGIC, 99, int), &word)));
    void* const mapped = mmap(nullptr, kMost, PROT_READ, MAP_SHARED, port, 0);
    tell("spi mmap", tsGiven(mapped == MAP_FAILED ? -1 : 0));
}

void askBadPointers(int port) {
    tell("spi WR_MODE from nowhere", tsGiven(ioctl(port, SPI_IOC_WR_MODE, nowhere())));
    tell("spi WR_MODE32 from nowhere", tsGiven(ioctl(port, SPI_IOC_WR_MODE32, nowhere())));
    tell("spi WR_MAX_SPEED_HZ from nowhere",
         tsGiven(ioctl(port, SPI_IOC_WR_MAX_SPEED_HZ, nowhere())));
    tell("spi RD_MODE to nowhere", tsGiven(ioctl(port, SPI_IOC_RD_MODE, nowhere())));
    tell("spi RD_BITS_PER_WORD to nowhere",
         tsGiven(ioctl(port, SPI_IOC_RD_BITS_PER_WORD, nowhere())));
    tell("spi message of a transfer nowhere", tsGiven(ioctl(port, SPI_IOC_MESSAGE(1), nowhere())));
    message(port, "from nowhere", sending(nowhere(), 4));
    spi_ioc_transfer transfer = sending(nullptr, 4);
    transfer.rx_buf = reinterpret_cast<std::uintptr_t>(nowhere());
    message(port, "to nowhere", transfer);
    tell("spi write from nowhere", tsGiven(write(port, nowhere(), 4)));
    tell("spi read to nowhere", tsGiven(read(port, nowhere(), 4)));
}

// Memory that ends, or is only for reading.
void askAtTheEndOfMemory(int port) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* const pages =
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        return;
    }
    auto* const first = static_cast<std::uint8_t*>(pages);
    munmap(first + page, page);
    message(port, "of the last 4 bytes of memory", sending(first + page - 4, 4));
    message(port, "that begins 2 bytes before memory ends", sending(first + page - 2, 4));
    tell("spi read that begins 2 bytes before memory ends",
         tsGiven(read(port, first + page - 2, 4)));
    mprotect(first, page, PROT_READ);
    message(port, "from memory for reading", sending(first, 4));
    tell("spi read to memory for reading", tsGiven(read(port, first, 4)));
    munmap(first, page);
}

} // namespace

void askSpi() {
    tellOpened("spi open of a port that is not there",
               tsGiven(tcDevice("/dev/spidev9.0", O_RDWR).get()));
    tellOpened("spi open as a folder", tsGiven(tcDevice(kPath, O_RDONLY | O_DIRECTORY).get()));
    {
        const tcDevice port(kPath, O_RDWR);
        tellOpened("spi open", tsGiven(port.get()));
        const tcDevice again(kPath, O_RDWR);
        tellOpened("spi open once more", tsGiven(again.get()));
        askSettings(port.get());
        get8(again.get(), "RD_BITS_PER_WORD of the other descriptor", SPI_IOC_RD_BITS_PER_WORD);
        askMessages(port.get());
        askReadAndWrite(port.get());
        askOddities(port.get());
        askBadPointers(port.get());
        askAtTheEndOfMemory(port.get());
    }
    const tcDevice reader(kPath, O_RDONLY);
    get32(reader.get(), "RD_MAX_SPEED_HZ after the last close", SPI_IOC_RD_MAX_SPEED_HZ);
    get8(reader.get(), "RD_BITS_PER_WORD after the last close", SPI_IOC_RD_BITS_PER_WORD);
    const std::array<std::uint8_t, 4> word{};
    tell("spi write to a reader", tsGiven(write(reader.get(), word.data(), word.size())));
    std::array<std::uint8_t, 4> received{};
    const tcDevice writer(kPath, O_WRONLY);
    tell("spi read from a writer", tsGiven(read(writer.get(), received.data(), received.size())));
    set8(writer.get(), "WR_BITS_PER_WORD of a writer,", SPI_IOC_WR_BITS_PER_WORD, 8);
}
