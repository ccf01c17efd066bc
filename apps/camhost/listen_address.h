/// \file
/// Where the host listens, as the command line says it.
#pragma once

#include <cstdint>
#include <string>

namespace camhost {

/// Where to listen.
struct tsAddress {
    std::string host;       ///< numeric, for example "127.0.0.1" or "::1"
    std::uint16_t port = 0; ///< 0: any that is free
};

/// Reads "PORT", ":PORT", "ADDRESS:PORT" or "[ADDRESS]:PORT". Without an address it is loopback.
/// \throws tcFatalError (`eListen`) for anything else
tsAddress parseAddress(const std::string& text);

} // namespace camhost
