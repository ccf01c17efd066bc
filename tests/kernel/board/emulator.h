/// \file
/// What the board uses of the emulator, QEMU 7.2 as Debian 12 has it. Debian ships no header of it,
/// but its program exports every function for its own modules. Layouts are those of a PC with 64
/// bits; `layoutFault` tells when the emulator's are others.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

/// Objects of the emulator, of which nothing is known here.
struct Object;
struct ObjectClass;
struct DeviceState;
struct BusState;
struct Clock;
struct IRQState;
using qemu_irq = IRQState*;

/// A device's behaviour on loads and stores.
struct MemoryRegionOps {
    std::uint64_t (*read)(void* opaque, std::uint64_t offset, unsigned size);
    void (*write)(void* opaque, std::uint64_t offset, std::uint64_t data, unsigned size);
    void* readWithAttributes;
    void* writeWithAttributes;
    int endianness;
    struct {
        unsigned least;
        unsigned most;
        bool unaligned;
        void* accepts;
    } valid;
    struct {
        unsigned least;
        unsigned most;
        bool unaligned;
    } implemented;
};

/// A type of object, as it is registered.
struct TypeInfo {
    const char* name = nullptr;
    const char* parent = nullptr;
    std::size_t instanceSize = 0; // 0: the parent's
    std::size_t instanceAlign = 0;
    void (*instanceInit)(Object*) = nullptr;
    void (*instancePostInit)(Object*) = nullptr;
    void (*instanceFinalize)(Object*) = nullptr;
    bool isAbstract = false;
    std::size_t classSize = 0; // 0: the parent's
    void (*classInit)(ObjectClass*, void* data) = nullptr;
    void (*classBaseInit)(ObjectClass*, void* data) = nullptr;
    void* classData = nullptr;
    void* interfaces = nullptr;
};

/// Somebody who is told; the emulator keeps its list in it.
struct Notifier {
    void (*notify)(Notifier*, void* data);
    void* next;
    void** previous;
};

std::int64_t qemu_clock_get_ns(int clock);
void qemu_add_machine_init_done_notifier(Notifier*);
Object* object_resolve_path_component(Object* parent, const char* name);
Object* object_resolve_path(const char* path, bool* ambiguous);
ObjectClass* object_class_by_name(const char* name);
void* type_register_static(const TypeInfo*);

void* get_system_memory();
void memory_region_init_io(void* region, Object* owner, const MemoryRegionOps*, void* opaque,
                           const char* name, std::uint64_t size);
void memory_region_add_subregion(void* container, std::uint64_t address, void* region);

qemu_irq qemu_allocate_irq(void (*handler)(void* opaque, int line, int level), void* opaque,
                           int line);
void qdev_connect_gpio_out(DeviceState*, int line, qemu_irq);
BusState* qdev_get_child_bus(DeviceState*, const char* name);
DeviceState* ssi_create_peripheral(BusState*, const char* type);
void* i2c_slave_create_simple(BusState*, const char* type, std::uint8_t address);
}

namespace emulator {

inline constexpr int kVirtualClock = 1;      // the guest's time [ns]
inline constexpr int kLittleEndian = 2;      // of a device
inline constexpr std::size_t kRegion = 1024; // more than a MemoryRegion has [bytes]

/// Events on an I2C bus, as a chip hears of them.
enum class teI2cEvent : int { startReceive, startSend, startSendAsync, finish, nack };

/// The class of a chip on a SPI bus.
struct tsSpiClass {
    static constexpr std::size_t kDeviceClass = 176; // bytes that every device's class has
    unsigned char device[kDeviceClass];
    void (*realize)(void* chip, void** error);
    std::uint32_t (*transfer)(void* chip, std::uint32_t value);
    int (*setChipSelect)(void* chip, bool select);
    int chipSelectPolarity; // 0: none, every byte arrives
    std::uint32_t (*transferRaw)(void* chip, std::uint32_t value);
};

/// The class of a chip on an I2C bus.
struct tsI2cClass {
    unsigned char device[tsSpiClass::kDeviceClass];
    int (*send)(void* chip, std::uint8_t byte);
    void (*sendLater)(void* chip, std::uint8_t byte);
    std::uint8_t (*receive)(void* chip);
    int (*event)(void* chip, teI2cEvent event); // other than 0: no acknowledge
    bool (*matches)(void* chip, std::uint8_t address, bool broadcast, void* list);
};

/// \return what of the layouts above this emulator has otherwise; null: nothing
inline const char* layoutFault() {
    const auto* const spi =
        static_cast<const tsSpiClass*>(static_cast<void*>(object_class_by_name("ssi-peripheral")));
    if (spi == nullptr || spi->realize != nullptr || spi->transfer != nullptr ||
        spi->transferRaw == nullptr) {
        return "the class of SPI chips";
    }
    const auto* const i2c =
        static_cast<const tsI2cClass*>(static_cast<void*>(object_class_by_name("i2c-slave")));
    if (i2c == nullptr || i2c->send != nullptr || i2c->receive != nullptr ||
        i2c->event != nullptr || i2c->matches == nullptr) {
        return "the class of I2C chips";
    }
    return nullptr;
}

} // namespace emulator
