/// \file
/// Ioctls whose argument is one number.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sim/recordings/call_words.h"

namespace sim::calls {

/// An ioctl whose argument is a number of its own size, handed over, got back, or both.
struct tsNumberCall {
    std::uint32_t request;
    const char* name;
    std::uint8_t size; ///< [bytes]; 0: the argument itself is the number
    bool handedOver;
    bool gotBack;
};

/// \return null when none has this request
[[nodiscard]] const tsNumberCall* numberCall(std::span<const tsNumberCall> calls,
                                             std::uint32_t request);

/// As `tsDeviceCalls::asked`.
[[nodiscard]] std::string numberAsked(const tsNumberCall& call, const void* argument);
/// As `tsDeviceCalls::got`.
[[nodiscard]] std::string numberGot(const tsNumberCall& call, const void* argument);
/// As `tsDeviceCalls::play`.
void playNumber(const tsNumberCall& call, tcWords& words, void* argument);

} // namespace sim::calls
