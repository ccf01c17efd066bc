/// \file
/// Whose requests the bench answers.
#pragma once

#include <optional>
#include <string>

namespace live {

/// Where the bench listens.
struct tsListening {
    std::string host;       ///< as given: "127.0.0.1", "::1", "bench.lab"
    std::uint16_t port = 0; ///< the chosen one
};

/// A page from elsewhere can make a browser send requests here, under a name that it chose, too.
/// So the name that a request is sent to must be one of this machine's loopback, or the address
/// that the bench was told to listen at; and a page that sends it must be the bench's own. \param
/// host   header Host; empty: none \param origin header Origin; empty: none, the request comes from
/// no page \return empty, or why the request is refused
[[nodiscard]] std::optional<std::string>
refusal(const tsListening& listening, const std::string& host, const std::string& origin);

} // namespace live
