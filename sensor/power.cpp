// Power sequencing and supply verification.

#include <chrono>
#include <iostream>
#include <stdexcept>

#include <INIReader.h>

#include "common/pause.h"
#include "common/print.h"
#include "sensor/registers.h"
#include "sensor/sensor.h"
#include "sensor/supplies.h"

using namespace std::chrono_literals;

namespace {

constexpr int kOutput = 1;

// Each pause is one sleep of its own.
constexpr auto kAfter1V2 = 1000us;         // the core supply leads the 3.3 V supplies
constexpr auto kBeforeSettling = 1us;      // a step of its own in the sequence
constexpr auto kSupplySettling = 300000us; // the 3.3 V supplies ramp slowly
constexpr auto kAfterReset = 10000us;      // the sensor's internal start
constexpr auto kAdcWarmUp = 5000us; // the internal reference settles after the first conversion

constexpr unsigned char kDepth10 = 10; // bits
constexpr unsigned char kDepth12 = 12; // bits

using supplyMonitor::kSupplies;
using supplyMonitor::tsSupply;

/// A reading that is not a number is within limits: both comparisons are strict. A limit from the
/// file is compared as it is written, with all its digits.
bool withinLimits(double volts, const tsSupply& supply, const INIReader& limits) {
    if (volts > limits.GetReal("Voltages_Max", supply.name, double{supply.maximum})) {
        return false;
    }
    return !(volts < limits.GetReal("Voltages_Min", supply.name, double{supply.minimum}));
}

} // namespace

void tc3U5MGXS::requestControlLines() {
    const auto request = [](Pellum::tcGpioSingle& line, const char* name) {
        // A line that was not found is used with its negative number: the board-support library
        // then reports every call on it.
        line = Pellum::tcGpioSingle(static_cast<unsigned int>(GetPinFromDTName(name)));
        line.SetDirection(kOutput, 0);
    };
    request(m_enable1V2, "PS_1.2V_EN");
    request(m_enableSvdd, "PS_3.3SVDD_EN");
    request(m_enableAvddh, "PS_3.3AVDDH_EN");
    request(m_resetB, "RESET_B");
}

int tc3U5MGXS::powerUp() {
    if (!configurePort()) {
        return 1;
    }
    const INIReader limits("3u5mgxs_sensor.ini");
    switchSuppliesOn();
    if (!suppliesWithinLimits(limits)) {
        return -4;
    }
    loadSettings();
    setFrameState(eFrameStop);
    m_binning = 0;
    return 0;
}

bool tc3U5MGXS::configurePort() {
    printFlushed(std::cout, "tc3U5MGXS::powerUp: Opening spidev...");
    const bool open = m_spi.isOpen();
    print(std::cout, "tc3U5MGXS::powerUp: Done!\n");

    printFlushed(std::cout, "tc3U5MGXS::powerUp: Configuring spidev...");
    if (!open) {
        throw std::runtime_error("Failed to open spidev");
    }
    tsSPIConfiguration configuration = m_spi.getConfiguration();
    configuration.mode = sensorWire::kSpiMode;
    configuration.lsbFirstAndBits = sensorWire::kLsbFirstAndBits;
    configuration.speedHz = sensorWire::kClockHz;
    if (!m_spi.setConfiguration(configuration)) {
        return false;
    }
    print(std::cout, "tc3U5MGXS::powerUp: Done!\n");
    return true;
}

void tc3U5MGXS::switchSuppliesOn() {
    print(std::cout, "tc3U5MGXS::powerUp: toggling power supplies on\n");
    m_resetB.SetValue(0);
    m_enable1V2.SetValue(1);
    pauseFor(kAfter1V2);
    m_enableSvdd.SetValue(1);
    m_enableAvddh.SetValue(1);
    pauseFor(kBeforeSettling);
    pauseFor(kSupplySettling);
    m_resetB.SetValue(1);
    pauseFor(kAfterReset);
}

bool tc3U5MGXS::suppliesWithinLimits(const INIReader& limits) {
    print(std::cout, "tc3U5MGXS::powerUp: Verifying voltages...\n");
    float thrownAway = 0.0F; // the first conversion only starts the reference
    m_adc.Volts(kSupplies.front().channel, thrownAway, true);
    pauseFor(kAdcWarmUp);

    bool good = true;
    for (const tsSupply& supply : kSupplies) {
        float volts = 0.0F;
        m_adc.Volts(supply.channel, volts, true);
        volts *= supply.scale;
        printFlushed(std::cout, supply.name, ": ", volts, "\n");
        good = withinLimits(volts, supply, limits) && good;
    }
    return good;
}

void tc3U5MGXS::loadSettings() {
    const unsigned char depth = m_pixelDepth;
    if (depth == kDepth10) {
        printFlushed(std::cout, "tc3U5MGXS::powerUp: Configuring initial settings 10-bit...");
        writeRegistersFromFile("3U5MGXS_10bit.txt");
    } else if (depth == kDepth12) {
        printFlushed(std::cout, "tc3U5MGXS::powerUp: Configuring initial settings 12-bit...");
        writeRegistersFromFile("3U5MGXS_12bit.txt");
    } else {
        throw std::runtime_error("Unknown bpp settings");
    }
    print(std::cout, "tc3U5MGXS::powerUp: Done!\n");
}

void tc3U5MGXS::powerDown() {
    printFlushed(std::cout, "tc3U5MGXS::powerDown: Powering down...");
    m_resetB.SetValue(0);
    // The 1.2 V supply goes first, as it came: not the reverse of powering up, and meant.
    m_enable1V2.SetValue(0);
    m_enableSvdd.SetValue(0);
    m_enableAvddh.SetValue(0);
    printFlushed(std::cout, "Done!\n");
}
