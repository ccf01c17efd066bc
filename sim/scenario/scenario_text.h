/// \file
/// The words of a scenario's values.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/chips/supplies.h"

namespace sim::text {

/// \return without blanks at both ends
std::string trimmed(std::string_view text);
/// \return what blanks separate
std::vector<std::string> words(const std::string& text);
/// \return what commas separate, trimmed
std::vector<std::string> listed(const std::string& text);
/// \return a finite number, with or without a sign
std::optional<double> number(std::string_view text);
/// \param text milliseconds, 0 to 1e9 \return [ns]
std::optional<std::uint64_t> milliseconds(std::string_view text);
/// \param text volts, or with a sign an offset from the rail's nominal voltage \return [V]
std::optional<double> volts(teRail rail, const std::string& text);

/// \return a whole number, decimal or with 0x hexadecimal
template<class Integer>
std::optional<Integer> whole(std::string_view text) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    Integer value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace sim::text
