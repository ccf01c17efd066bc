// The sensor driver's own share of what it does, each time against a baseline of the same run on
// the virtual head. Only ratios and differences mean anything: the head's own cost is in both.
//
//     build/release/bin/head_bench
//
// bare_ns       one bare ioctl (or all bare frames) of the same messages
// driver_ns     the same through the driver
// own_ns        the difference: the driver's own share
// of_wire       own share as a part of the 3.2 us that a 32-bit frame takes at 10 MHz; aim < 0.05
// ratio         driver over bare frames that keep their time on the wire; aim < 1.1 and < 1.2

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <map>
#include <string>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sensor/sensor.h"
#include "sim/virtual_head.h"

namespace {

using tcClock = std::chrono::steady_clock;
constexpr double kFrameOnWire = 3200.0; // ns: 32 bits at 10 MHz
constexpr int kChunk = 1000;            // calls between two looks at the clock

/// Keeps the driver's log lines out of the results, at the cost of a buffered stream.
class tcQuietOutput {
public:
    tcQuietOutput() : m_sink("/dev/null"), m_before(std::cout.rdbuf(m_sink.rdbuf())) {}
    ~tcQuietOutput() { std::cout.rdbuf(m_before); }
    tcQuietOutput(const tcQuietOutput&) = delete;
    tcQuietOutput& operator=(const tcQuietOutput&) = delete;

private:
    std::ofstream m_sink;
    std::streambuf* m_before;
};

/// A working directory with a settings file of `lines` register writes.
class tcSettings {
public:
    explicit tcSettings(int lines) : m_before(std::filesystem::current_path()) {
        std::string name = (std::filesystem::temp_directory_path() / "head-bench-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        m_path = name;
        std::filesystem::current_path(m_path);
        std::ofstream file("3U5MGXS_12bit.txt");
        file << "# " << lines << " writes\n";
        for (int i = 0; i < lines; ++i) {
            file << std::hex << "0x" << 0x12 << " 0x" << 0xFA0 << '\n';
        }
    }
    ~tcSettings() {
        std::filesystem::current_path(m_before);
        std::filesystem::remove_all(m_path);
    }
    tcSettings(const tcSettings&) = delete;
    tcSettings& operator=(const tcSettings&) = delete;

private:
    std::filesystem::path m_before;
    std::filesystem::path m_path;
};

/// The messages of the driver without the driver.
class tcBareFrames {
public:
    tcBareFrames() : m_descriptor(open("/dev/spidev1.0", O_RDWR)) {}
    ~tcBareFrames() { close(m_descriptor); }
    tcBareFrames(const tcBareFrames&) = delete;
    tcBareFrames& operator=(const tcBareFrames&) = delete;

    void send(std::uint16_t address, std::uint32_t value) const {
        const std::uint32_t word = (std::uint32_t{address} << 22) | value;
        const std::array<std::uint8_t, 4> bytes{
            static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
            static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
        spi_ioc_transfer message{};
        message.tx_buf = reinterpret_cast<std::uintptr_t>(bytes.data());
        message.len = bytes.size();
        benchmark::DoNotOptimize(ioctl(m_descriptor, SPI_IOC_MESSAGE(1), &message));
    }

private:
    int m_descriptor;
};

template<class Work>
double nanoseconds(Work work) {
    const auto start = tcClock::now();
    work();
    return std::chrono::duration<double, std::nano>(tcClock::now() - start).count();
}

/// Measures both in turns and keeps the best of each, so that neither gets the quieter moments.
struct tsComparison {
    double bare = std::numeric_limits<double>::max();
    double driver = std::numeric_limits<double>::max();

    template<class Bare, class Driver>
    void measure(Bare runBare, Driver runDriver) {
        bare = std::min(bare, nanoseconds(runBare));
        driver = std::min(driver, nanoseconds(runDriver));
    }
};

void report(benchmark::State& state, const tsComparison& comparison, double calls) {
    state.counters["bare_ns"] = comparison.bare / calls;
    state.counters["driver_ns"] = comparison.driver / calls;
    state.counters["own_ns"] = (comparison.driver - comparison.bare) / calls;
    state.counters["ratio"] = comparison.driver / comparison.bare;
}

void writeRegister(benchmark::State& state) {
    auto head = sim::aVirtualHead().withRealTime().withQuietViolations().build();
    const tcQuietOutput quiet;
    const tcSettings settings(1);
    tc3U5MGXS sensor("/dev/spidev1.0");
    sensor.powerUp();
    const tcBareFrames frames;
    tsComparison comparison;
    for (auto _ : state) {
        head.clearLog();
        comparison.measure(
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    frames.send(0x12, 0xFA0);
                }
            },
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    sensor.writeRegister(0x12, 0xFA0);
                }
            });
    }
    report(state, comparison, kChunk);
    state.counters["of_wire"] = (comparison.driver - comparison.bare) / kChunk / kFrameOnWire;
}
BENCHMARK(writeRegister)->Iterations(300);

void setExposure(benchmark::State& state) {
    auto head = sim::aVirtualHead().withRealTime().withWireTime().withQuietViolations().build();
    const tcQuietOutput quiet;
    const tcSettings settings(1);
    tc3U5MGXS sensor("/dev/spidev1.0");
    sensor.powerUp();
    sensor.setMClockMhz(36.0F);
    sensor.writeRegister(0xB0, 899);
    sensor.writeRegister(0x12, 4000);
    const tcBareFrames frames;
    constexpr std::array<std::uint16_t, 8> kFrames{0x14, 0x15, 0x1A, 0x3B, 0x1C, 0x1B, 0x16, 0x19};
    tsComparison comparison;
    for (auto _ : state) {
        head.clearLog();
        comparison.measure(
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    for (const std::uint16_t address : kFrames) {
                        frames.send(address, 100);
                    }
                }
            },
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    sensor.setExposure(std::chrono::microseconds(30000));
                }
            });
    }
    report(state, comparison, kChunk);
}
BENCHMARK(setExposure)->Iterations(20);

void settingsFile(benchmark::State& state) {
    constexpr int kLines = 1000;
    auto head = sim::aVirtualHead().withRealTime().withWireTime().withQuietViolations().build();
    const tcQuietOutput quiet;
    const tcSettings settings(kLines);
    tc3U5MGXS sensor("/dev/spidev1.0");
    sensor.powerUp();
    const tcBareFrames frames;
    tsComparison comparison;
    for (auto _ : state) {
        head.clearLog();
        comparison.measure(
            [&] {
                for (int i = 0; i < kLines; ++i) {
                    frames.send(0x12, 0xFA0);
                }
            },
            [&] { sensor.writeRegistersFromFile("3U5MGXS_12bit.txt"); });
    }
    report(state, comparison, kLines);
}
BENCHMARK(settingsFile)->Iterations(100);

/// Against an ordered tree under nobody's lock, which readers could not use beside a writer.
void readShadowRegister(benchmark::State& state) {
    auto head = sim::aVirtualHead().withRealTime().withQuietViolations().build();
    const tcQuietOutput quiet;
    tc3U5MGXS sensor("/dev/spidev1.0");
    std::map<std::uint16_t, std::uint32_t> tree;
    for (std::uint16_t address = 0; address < 256; ++address) {
        sensor.writeRegister(address, address);
        tree[address] = address;
    }
    tsComparison comparison;
    for (auto _ : state) {
        comparison.measure(
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    benchmark::DoNotOptimize(tree.find(static_cast<std::uint16_t>(i & 0xFF)));
                }
            },
            [&] {
                for (int i = 0; i < kChunk; ++i) {
                    unsigned int value = 0;
                    sensor.readShadowRegister(static_cast<unsigned short>(i & 0xFF), value);
                    benchmark::DoNotOptimize(value);
                }
            });
    }
    report(state, comparison, kChunk);
}
BENCHMARK(readShadowRegister)->Iterations(300);

} // namespace
