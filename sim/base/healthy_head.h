/// \file
/// What a healthy head is like: its supplies' names, and the times that it takes.
#pragma once

#include <chrono>
#include <string_view>

namespace sim {

// Names of the supplies.
inline constexpr std::string_view kRail1V2 = "VDD1.2";        ///< enabled by "PS_1.2V_EN"
inline constexpr std::string_view kRailAvddh = "VDD3.3AVDDH"; ///< enabled by "PS_3.3AVDDH_EN"
inline constexpr std::string_view kRailSvdd = "VDD3.3SVDD";   ///< enabled by "PS_3.3SVDD_EN"

// Times that a healthy head takes.
/// Until the PLL of the receiver has locked, once words arrive at it.
inline constexpr std::chrono::nanoseconds kPllLockTime = std::chrono::milliseconds(3);
/// Until a lane has locked, once the PLL has and the lane is free to look for its phase.
inline constexpr std::chrono::nanoseconds kDpaLockTime = std::chrono::milliseconds(4);
/// Until words are aligned, once all lanes have locked and are held.
inline constexpr std::chrono::nanoseconds kAlignmentTime = std::chrono::milliseconds(25);

/// For `with...After` calls: it does not happen.
inline constexpr std::chrono::nanoseconds kNever = std::chrono::nanoseconds::max();

} // namespace sim
