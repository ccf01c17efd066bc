/// \file
/// Readings that no real converter gives: limits to the bit, and what is not a number.
#pragma once

#include <functional>
#include <optional>

/// Answers every reading of the supply monitor for as long as it lives.
class tcFakeAdc {
public:
    /// \return the reading of a channel [V], before any scale; nothing for a conversion that fails
    ///         and leaves the caller's reading as it is
    using tcVolts = std::function<std::optional<float>(int channel, bool singleEnded)>;

    /// \param volts called in place of the chip
    explicit tcFakeAdc(tcVolts volts);
    ~tcFakeAdc();
    tcFakeAdc(const tcFakeAdc&) = delete;
    tcFakeAdc& operator=(const tcFakeAdc&) = delete;
};
