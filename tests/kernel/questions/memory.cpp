#include <cstdint>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include "tests/kernel/questions/ask.h"

namespace {

constexpr const char* kPath = "/dev/mem";
constexpr std::uint32_t kPulses = 0xFF21'1000;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kIdentification = 0x200 / 4; // word of the pulse core

// The 32 bits of an address above 2 GiB are a negative offset where an offset has no more.
off_t offsetOf(std::uint32_t physicalAddress) {
    return sizeof(off_t) == sizeof physicalAddress
               ? static_cast<off_t>(static_cast<std::int32_t>(physicalAddress))
               : static_cast<off_t>(physicalAddress);
}

void map(int memory, const char* name, std::size_t length, int protection, int flags,
         std::uint32_t address) {
    void* const mapped = mmap(nullptr, length, protection, flags, memory, offsetOf(address));
    tell(std::string("memory mmap ") + name, tsGiven(mapped == MAP_FAILED ? -1 : 0));
    if (mapped != MAP_FAILED) {
        munmap(mapped, length);
    }
}

void askRegisters(int memory) {
    void* const page =
        mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, memory, offsetOf(kPulses));
    tell("memory mmap of the pulse core", tsGiven(page == MAP_FAILED ? -1 : 0));
    if (page == MAP_FAILED) {
        return;
    }
    const auto* const words = static_cast<volatile std::uint32_t*>(page);
    tell("memory word 0xFF211200", tsGiven(0), hex(words[kIdentification]));
    tell("memory munmap", tsGiven(munmap(page, kPage)));
}

void sleepFor(const char* name, long seconds, long nanoseconds) {
    const timespec duration{.tv_sec = seconds, .tv_nsec = nanoseconds};
    tell(std::string("nanosleep of ") + name, tsGiven(nanosleep(&duration, nullptr)));
}

} // namespace

void askMemory() {
    const tcDevice memory(kPath, O_RDWR | O_SYNC);
    tellOpened("memory open", tsGiven(memory.get()));
    askRegisters(memory.get());
    map(memory.get(), "for reading", kPage, PROT_READ, MAP_SHARED, kPulses);
    map(memory.get(), "of a private copy", kPage, PROT_READ, MAP_PRIVATE, kPulses);
    map(memory.get(), "neither shared nor private", kPage, PROT_READ, 0, kPulses);
    map(memory.get(), "of no bytes", 0, PROT_READ, MAP_SHARED, kPulses);
    map(memory.get(), "between pages", kPage, PROT_READ, MAP_SHARED, kPulses + 4);
    map(memory.get(), "of less than a page", 16, PROT_READ, MAP_SHARED, kPulses);
    int word = 0;
    tell("memory ioctl nobody knows", tsGiven(ioctl(memory.get(), _IOR('x', 1, int), &word)));
    const tcDevice reader(kPath, O_RDONLY);
    map(reader.get(), "for writing, by a reader", kPage, PROT_READ | PROT_WRITE, MAP_SHARED,
        kPulses);
    map(reader.get(), "for reading, by a reader", kPage, PROT_READ, MAP_SHARED, kPulses);
    sleepFor("a second's nanoseconds", 0, 1'000'000'000);
    sleepFor("less than nothing", -1, 0);
    sleepFor("nothing", 0, 0);
}
