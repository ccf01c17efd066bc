/// \file
/// The words that kinds of fault have in common.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "sim/scenario/fault_kinds.h"

namespace sim::faultWords {

using tcWords = std::span<const std::string>;
using tcNumbers = std::optional<tsFaultNumbers>; ///< empty: the words say something else

/// \return the name's place in the list
template<std::size_t Size>
[[nodiscard]] std::optional<std::uint32_t> indexIn(const std::array<std::string_view, Size>& names,
                                                   std::string_view name) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(found - names.begin());
}

/// \return whether the words are these, and no more
[[nodiscard]] bool are(tcWords words, std::initializer_list<std::string_view> expected);

/// Where nothing but a fixed text is asked for.
[[nodiscard]] tcNumbers nothingMore(bool good);

/// How a transfer goes wrong: "fails EIO", "short". \return with `error` set
[[nodiscard]] tcNumbers transferError(tcWords words);

/// `tsFaultNumbers::value` of what locks: it loses its lock.
inline constexpr std::uint32_t kLost = 1;

/// How something that locks goes wrong: "never", "late 50", "lost".
/// \return with the time that it takes, or with `kLost`
[[nodiscard]] tcNumbers lockBehaviour(tcWords words);

} // namespace sim::faultWords
