/// \file
/// What a healthy head is like: its supplies' names, and the times that it takes.
#pragma once

#include <chrono>
#include <string_view>

namespace sim {

/// Names of the supplies.
inline constexpr std::string_view kRail1V2 = "VDD1.2";
inline constexpr std::string_view kRailAvddh = "VDD3.3AVDDH";
inline constexpr std::string_view kRailSvdd = "VDD3.3SVDD";

/// Times that a healthy head takes.
inline constexpr std::chrono::nanoseconds kPllLockTime = std::chrono::milliseconds(3);
inline constexpr std::chrono::nanoseconds kDpaLockTime = std::chrono::milliseconds(4);
inline constexpr std::chrono::nanoseconds kAlignmentTime = std::chrono::milliseconds(25);

/// For `with...After` calls: it does not happen.
inline constexpr std::chrono::nanoseconds kNever = std::chrono::nanoseconds::max();

} // namespace sim
