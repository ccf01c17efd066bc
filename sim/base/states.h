/// \file
/// What sensor, link and registers hold, as values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

/// Flags of the frame-control core's receiver PLL.
enum class tePllFlag : std::uint8_t { locked, rgLocked, gbLocked };

/// FPGA cores that carry an identification.
enum class teCore : std::uint8_t { frameControl, pwm, pixelShift, badPixel };

/// What the sensor's registers say, decoded.
struct tsSensorState {
    bool alive = false;                 ///< supplied, out of reset and awake
    std::uint32_t frameState = 0;       ///< 0 stopped, 3 streaming, 4 lanes on
    std::uint32_t frameControlMode = 0; ///< field `frame_control_mode`
    std::uint32_t rows = 0;             ///< rows of the array that are read out
    std::uint32_t width = 0;            ///< of the image on the lanes [pixels]
    std::uint32_t height = 0;           ///< of the image on the lanes [lines]
    bool binned = false;                ///< two rows make one
    bool verticalInvert = false;        ///< rows are read out from the bottom
    bool horizontalInvert = false;      ///< columns are read out from the right
    std::uint32_t analogueCoarse = 0;   ///< sum of both stages' fields
    std::uint32_t analogueFine = 0;     ///< field of the register
    std::uint32_t digitalCoarse = 0;    ///< field of the register
    std::uint32_t digitalFine = 0;      ///< field of the register
    std::uint32_t testPattern = 0;      ///< field of the register
    bool testSignal = false;            ///< pixels are a test pattern
    std::uint32_t frameLines = 0;       ///< hd_max [lines]
    std::uint32_t lineClocks = 0;       ///< hd_prd + 1 [master clocks]
    double clockMhz = 0;                ///< master clock that the FPGA makes
};

/// State of the serial link.
struct tsLinkState {
    bool enabled = false;      ///< the frame-control core runs
    bool locked = false;       ///< flag of the receiver's PLL
    bool rgLocked = false;     ///< flag of the receiver's PLL
    bool gbLocked = false;     ///< flag of the receiver's PLL
    std::uint32_t dpaLock = 0; ///< one bit a lane
    bool aligned = false;      ///< all lanes deliver words in step
};

/// A register of which driver and sensor think differently.
struct tsShadowDifference {
    std::uint16_t address = 0;           ///< of the register
    std::uint32_t shadow = 0;            ///< what the driver thinks
    std::optional<std::uint32_t> sensor; ///< empty when the sensor does not hold the register
    std::string why;                     ///< for example "lost: the sensor was asleep"
};

} // namespace sim
