/// \file
/// The ioctls of each device as text.
#pragma once

#include <cstdint>
#include <string>

#include "sim/recordings/call_words.h"

namespace sim::calls {

/// The ioctls of one device, as text.
struct tsDeviceCalls {
    /// \return whether the device has such a request; the others are asked for nothing else
    bool (*has)(std::uint32_t request);
    /// \param argument as the program handed it over \return what the program says
    std::string (*asked)(std::uint32_t request, const void* argument);
    /// \param argument as the program gets it back
    /// \return what the program gets besides the result; may be empty
    std::string (*got)(std::uint32_t request, const void* argument);
    /// Gives the program what `got` wrote.
    /// \throws std::runtime_error when the words are no answer to such a call
    void (*play)(tcWords& words, std::uint32_t request, void* argument);
};

extern const tsDeviceCalls kSpiCalls;     ///< settings and messages
extern const tsDeviceCalls kGpioCalls;    ///< chip, lines and their values
extern const tsDeviceCalls kI2cCalls;     ///< settings, messages and SMBus
extern const tsDeviceCalls kUnknownCalls; ///< any other request, as bytes

} // namespace sim::calls
