/// \file
/// When a fault begins or ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

/// When a fault begins or ends.
struct tsMoment {
    std::optional<std::uint64_t> timeNs; // since the head was built
    std::string event;                   // words with which its line begins; empty: no event
    std::uint64_t nth = 1;
};

/// \param value milliseconds since the head was built, "450"
[[nodiscard]] std::optional<tsMoment> timeFrom(const std::string& value);
/// \param value the words with which a line of the log begins, with its number in front or without:
///              "3 GPIO RESET_B = 1"
[[nodiscard]] std::optional<tsMoment> eventFrom(const std::string& value);
/// \param value either
[[nodiscard]] std::optional<tsMoment> timeOrEvent(const std::string& value);

} // namespace sim
