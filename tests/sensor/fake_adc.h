/// \file
/// Readings that no real converter gives: limits to the bit, and what is not a number.
#pragma once

#include <functional>

/// Answers every reading of the supply monitor for as long as it lives.
class tcFakeAdc {
public:
    /// \param volts the reading of a channel [V], before any scale; called in place of the chip
    explicit tcFakeAdc(std::function<float(int channel, bool singleEnded)> volts);
    ~tcFakeAdc();
    tcFakeAdc(const tcFakeAdc&) = delete;
    tcFakeAdc& operator=(const tcFakeAdc&) = delete;
};
