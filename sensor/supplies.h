/// \file
/// The sensor's supplies as the head's supply monitor sees them. The driver reads this table at
/// power-up; the table for programs is made of it. Pure constants.
#pragma once

#include <array>
#include <cstdint>

namespace supplyMonitor {

inline constexpr int kBus = 1;                  // /dev/i2c-1
inline constexpr int kAddress = 0x49;           // of an ADS7828
inline constexpr float kReferenceVolts = 2.5F;  // the chip's own
inline constexpr std::uint32_t kValueBits = 12; // of a reading; the bits above it are never set

/// A supply as the ADC sees it.
struct tsSupply {
    int channel;
    const char* name; // also the key in the limits file
    float scale;      // undoes the divider in front of the ADC
    float maximum;    // V, unless the limits file has another
    float minimum;    // V, unless the limits file has another
};

/// In the order in which they are verified.
inline constexpr std::array kSupplies{
    tsSupply{0, "VDD1.2", 1.0F, 1.3F, 1.1F},
    tsSupply{1, "VDD3.3AVDDH_DIV2", 2.0F, 3.4F, 3.2F},
    tsSupply{4, "VDD3.3SVDD_DIV2", 2.0F, 3.4F, 3.2F},
};

} // namespace supplyMonitor
