/// \file
/// A plug-in of the emulator that puts the camera head on its board: the sensor on ECSPI1 with its
/// chip select, the supply monitor on I2C2, supplies and reset on pins of GPIO1, the FPGA's
/// registers at their addresses.
///
/// Arguments: `folder=FOLDER`, for the heads' logs, and `heads=FILE`: names of heads, one a line,
/// each followed by the path of a scenario. A head is there when its number, from 0, is stored at
/// `kBench`; the one before is taken away.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fpga/registers.h"
#include "tests/kernel/board/emulator.h"
#include "tests/kernel/board/wired_head.h"

namespace {

constexpr std::uint64_t kBench = 0xFF30'0000; // beside the FPGA: what changes heads
constexpr std::uint64_t kBenchBytes = 4096;
constexpr std::array<int, 5> kPins{5, 6, 7, 11, 12}; // of GPIO1 that lead to the head
constexpr int kChipSelectPin = 19;                   // of GPIO3
constexpr std::uint8_t kAdcAddress = 0x49;

struct tsHeadEntry {
    std::string name;
    std::string scenario;
};

// Lives as long as the emulator.
std::string s_folder;
std::vector<tsHeadEntry> s_heads;
std::unique_ptr<tcWiredHead> s_head;

[[noreturn]] void stop(const std::string& text) {
    std::fprintf(stderr, "board: %s\n", text.c_str());
    std::_Exit(1);
}

std::uint64_t now() {
    return static_cast<std::uint64_t>(qemu_clock_get_ns(emulator::kVirtualClock));
}

/// \return the head at the present time; null: none is plugged in
tcWiredHead* head() {
    if (s_head) {
        s_head->timeIs(now());
    }
    return s_head.get();
}

void plugIn(std::uint64_t number) {
    s_head.reset();
    if (number >= s_heads.size()) {
        return; // none
    }
    const tsHeadEntry& entry = s_heads[number];
    try {
        s_head = std::make_unique<tcWiredHead>(entry.scenario,
                                               s_folder + "/" + entry.name + ".wires", now());
    } catch (const std::exception& error) {
        stop(error.what());
    }
}

// The FPGA

std::uint64_t loadFpga(void*, std::uint64_t offset, unsigned size) {
    const auto address = fpgaAddresses::kRegion + static_cast<std::uint32_t>(offset);
    return head() == nullptr ? ~0ULL : s_head->load(address, size);
}

void storeFpga(void*, std::uint64_t offset, std::uint64_t data, unsigned size) {
    if (head() != nullptr) {
        s_head->store(fpgaAddresses::kRegion + static_cast<std::uint32_t>(offset), size,
                      static_cast<std::uint32_t>(data));
    }
}

std::uint64_t loadBench(void*, std::uint64_t, unsigned) {
    return s_heads.size();
}

void storeBench(void*, std::uint64_t, std::uint64_t data, unsigned) {
    plugIn(data);
}

constexpr MemoryRegionOps operations(std::uint64_t (*load)(void*, std::uint64_t, unsigned),
                                     void (*store)(void*, std::uint64_t, std::uint64_t, unsigned)) {
    return {.read = load,
            .write = store,
            .readWithAttributes = nullptr,
            .writeWithAttributes = nullptr,
            .endianness = emulator::kLittleEndian,
            .valid = {.least = 1, .most = 4, .unaligned = true, .accepts = nullptr},
            .implemented = {.least = 1, .most = 4, .unaligned = true}};
}
constexpr MemoryRegionOps kFpga = operations(loadFpga, storeFpga);
constexpr MemoryRegionOps kBenchOperations = operations(loadBench, storeBench);

// GPIO

void pinDriven(void*, int line, int level) {
    if (head() != nullptr) {
        s_head->pinDriven(static_cast<unsigned>(line), level);
    }
}

void chipSelected(void*, int, int level) {
    if (head() != nullptr) {
        s_head->chipSelect(level == 0);
    }
}

// SPI

std::uint32_t spiByte(void*, std::uint32_t value) {
    if (head() != nullptr) {
        s_head->spiByte(static_cast<std::uint8_t>(value));
    }
    return 0; // the sensor's data output is not connected
}

void spiRealize(void*, void**) {}

void makeSpiClass(ObjectClass* made, void*) {
    auto& type = *static_cast<emulator::tsSpiClass*>(static_cast<void*>(made));
    type.realize = spiRealize;
    type.transfer = spiByte;
    type.transferRaw = spiByte; // chip select comes by its pin
}

// I2C

int i2cSend(void*, std::uint8_t byte) {
    if (head() != nullptr) {
        s_head->i2cByteWritten(byte);
    }
    return 0;
}

std::uint8_t i2cReceive(void*) {
    return head() == nullptr ? 0xFF : s_head->i2cByteRead();
}

int i2cEvent(void*, emulator::teI2cEvent event) {
    constexpr int noAcknowledge = -1;
    if (head() == nullptr) {
        return noAcknowledge;
    }
    switch (event) {
    case emulator::teI2cEvent::startReceive:
    case emulator::teI2cEvent::startSend:
    case emulator::teI2cEvent::startSendAsync:
        return s_head->i2cStart(event == emulator::teI2cEvent::startReceive) ? 0 : noAcknowledge;
    case emulator::teI2cEvent::finish:
        s_head->i2cStop();
        break;
    case emulator::teI2cEvent::nack: // the last byte of a reading
        break;
    }
    return 0;
}

void makeI2cClass(ObjectClass* made, void*) {
    auto& type = *static_cast<emulator::tsI2cClass*>(static_cast<void*>(made));
    type.send = i2cSend;
    type.receive = i2cReceive;
    type.event = i2cEvent;
}

constexpr TypeInfo kSensorType{
    .name = "head-sensor", .parent = "ssi-peripheral", .classInit = makeSpiClass};
constexpr TypeInfo kMonitorType{
    .name = "head-supply-monitor", .parent = "i2c-slave", .classInit = makeI2cClass};

// The board

DeviceState* device(const char* path) {
    Object* const found = object_resolve_path(path, nullptr);
    if (found == nullptr) {
        stop(std::string("no ") + path + " in this machine");
    }
    return static_cast<DeviceState*>(static_cast<void*>(found));
}

BusState* bus(const char* path, const char* name) {
    BusState* const found = qdev_get_child_bus(device(path), name);
    if (found == nullptr) {
        stop(std::string("no bus ") + name + " of " + path);
    }
    return found;
}

void map(const MemoryRegionOps& operations, const char* name, std::uint64_t address,
         std::uint64_t bytes) {
    void* const region = std::calloc(1, emulator::kRegion);
    memory_region_init_io(region, nullptr, &operations, nullptr, name, bytes);
    memory_region_add_subregion(get_system_memory(), address, region);
}

void wireUp(Notifier*, void*) {
    if (const char* const fault = emulator::layoutFault()) {
        stop(std::string("another emulator than the one this was written for: ") + fault);
    }
    type_register_static(&kSensorType);
    type_register_static(&kMonitorType);
    map(kFpga, "head-fpga", fpgaAddresses::kRegion, fpgaAddresses::kRegionLength);
    map(kBenchOperations, "head-bench", kBench, kBenchBytes);
    DeviceState* const pins = device("/machine/soc/gpio1");
    for (const int line : kPins) {
        qdev_connect_gpio_out(pins, line, qemu_allocate_irq(pinDriven, nullptr, line));
    }
    // The flash chip that hangs there is never selected again.
    qdev_connect_gpio_out(device("/machine/soc/gpio3"), kChipSelectPin,
                          qemu_allocate_irq(chipSelected, nullptr, 0));
    ssi_create_peripheral(bus("/machine/soc/spi1", "spi"), kSensorType.name);
    i2c_slave_create_simple(bus("/machine/soc/i2c2", "i2c-bus.1"), kMonitorType.name, kAdcAddress);
}

Notifier s_machineDone{.notify = wireUp, .next = nullptr, .previous = nullptr};

void readHeads(const std::string& path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        tsHeadEntry entry;
        words >> entry.name >> std::ws;
        std::getline(words, entry.scenario);
        s_heads.push_back(entry);
    }
    if (s_heads.empty()) {
        stop("no heads in " + path);
    }
}

} // namespace

extern "C" {

/// The emulator refuses a plug-in of another version.
[[gnu::visibility("default")]] extern const int qemu_plugin_version;
const int qemu_plugin_version = 1;

[[gnu::visibility("default")]] int qemu_plugin_install(std::uint64_t, const void*, int count,
                                                       char** arguments) {
    for (int at = 0; at < count; ++at) {
        const std::string_view argument = arguments[at];
        const std::size_t equals = argument.find('=');
        const std::string value(argument.substr(equals + 1));
        if (argument.starts_with("folder=")) {
            s_folder = value;
        } else if (argument.starts_with("heads=")) {
            readHeads(value);
        } else {
            stop("unknown argument " + std::string(argument));
        }
    }
    qemu_add_machine_init_done_notifier(&s_machineDone);
    return 0;
}
}
