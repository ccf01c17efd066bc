#include "sensor/sensor.h"

#include <array>
#include <iostream>
#include <utility>

#include <INIReader.h>

#include "common/mutex_guard.h"
#include "common/print.h"
#include "sensor/registers.h"
#include "sensor/supplies.h"

namespace {

constexpr float kHighClock = 36.0F; // MHz, from here on the sensor's PLL needs its upper range

/// The value moved to its place; beyond bit 31 there is no place.
constexpr std::uint32_t shiftedUp(std::uint32_t value, unsigned char shift) {
    return shift < 32 ? value << shift : 0;
}
constexpr std::uint32_t shiftedDown(std::uint32_t value, unsigned char shift) {
    return shift < 32 ? value >> shift : 0;
}

/// One register write as the SPI device takes it: the 32-bit word, lowest byte first.
constexpr std::array<std::uint8_t, 4> frame(std::uint16_t address, std::uint32_t value) {
    const std::uint32_t word = ((address & sensorWire::kAddressMask) << sensorWire::kAddressShift) |
                               (value & sensorWire::kValueMask);
    return {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
            static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
}

void warnNotInShadow(const char* operation, unsigned short address) {
    print(std::cerr, "Warning: ", operation, " called but register: ", address,
          " was not in shadow register");
}

} // namespace

int GetPinFromDTName(const char* name) {
    const int pin = Pellum::tcGpio::GetPinFromDTName(name);
    if (pin < 0) {
        printFlushed(std::cerr, "ERROR: GPIO ", name, " not found in DT\n");
    } else {
        printFlushed(std::cout, "GPIO ", name, "\t\t", pin, "\n");
    }
    return pin;
}

tc3U5MGXS::tc3U5MGXS(std::string spiDevicePath)
    : m_adc(supplyMonitor::kBus, supplyMonitor::kAddress, supplyMonitor::kReferenceVolts),
      m_spi(std::move(spiDevicePath)) {
    print(std::cout, "tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\n");
    // Opened and not consulted: powerUp reads the limits when it needs them.
    const INIReader unread("3u5mgxs_sensor.ini");

    print(std::cout, "tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\n");
    requestControlLines();
    print(std::cout, "tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\n");
    m_adc.SetPowerDown(false);
    m_adc.SetInternalReference(true);
    print(std::cout, "tc3U5MGXS::tc3U5MGXS: Done!\n");
}

tc3U5MGXS::~tc3U5MGXS() = default;

// ---- Register access

int tc3U5MGXS::writeRegister(unsigned short address, unsigned int value) {
    tcMutexGuard guard(m_registerLock);
    writeRegisterUnlocked(address, value);
    return guard.unlock();
}

void tc3U5MGXS::writeRegisterUnlocked(unsigned short address, unsigned int value) {
    const auto bytes = frame(address, value);
    m_spi.write(bytes.data(), bytes.size());
    m_shadow.store(address, value);
}

int tc3U5MGXS::readShadowRegister(unsigned short address, unsigned int& value) const {
    return m_shadow.find(address, value) ? 0 : -1;
}

void tc3U5MGXS::setRegisterField(unsigned short address, unsigned int value, unsigned int mask,
                                 unsigned char shift) {
    const std::uint32_t old = m_shadow.findOrInsert(address);
    writeRegister(address, (old & ~shiftedUp(mask, shift)) | shiftedUp(value & mask, shift));
    // Never absent, as the access above has inserted it. Kept: whoever changes that access is told.
    if (!m_shadow.contains(address)) {
        warnNotInShadow("setRegisterField", address);
    }
}

unsigned int tc3U5MGXS::getRegisterField(unsigned short address, unsigned int mask,
                                         unsigned char shift) {
    const std::uint32_t value = m_shadow.findOrInsert(address);
    // Never absent, see setRegisterField.
    if (!m_shadow.contains(address)) {
        warnNotInShadow("getRegisterField", address);
    }
    return shiftedDown(value, shift) & mask;
}

void tc3U5MGXS::dumpRegisterMap() const {
    m_shadow.forEach([](std::uint16_t address, std::uint32_t value) {
        print(std::cout, "SPI: ", address, "    :    ", value, "\n");
    });
}

void tc3U5MGXS::setField(const tsRegisterField& field, unsigned int value) {
    setRegisterField(field.address, value, field.mask, field.shift);
}

unsigned int tc3U5MGXS::getField(const tsRegisterField& field) {
    return getRegisterField(field.address, field.mask, field.shift);
}

int tc3U5MGXS::setMClockMhz(float mhz) {
    m_clockMhz = mhz;
    return writeRegister(sensorRegisters::kClockRange.address,
                         mhz >= kHighClock ? sensorRegisters::kClockRangeHigh
                                           : sensorRegisters::kClockRangeLow);
}
