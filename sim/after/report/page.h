/// \file
/// What every section of the page is built from: numbers with their units, and tables.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sim::page {

/// For `row`: something is wrong.
inline constexpr const char* kBad = " class=\"bad\"";

/// \return for example "301.003 ms": rounded down to microseconds
[[nodiscard]] std::string milliseconds(std::uint64_t ns);
/// \return for example "0x00F", with at least so many digits
[[nodiscard]] std::string hex(std::uint32_t value, int digits);
/// \return with so many digits behind the point
[[nodiscard]] std::string fixed(double value, int digits);

/// \param look empty, or `kBad`
/// \return a row of a table
[[nodiscard]] std::string row(const std::vector<std::string>& cells, const char* look = "");
/// A long table is folded: its number of rows stands where it was, and a click shows it.
/// \param rows as `row` gives them
[[nodiscard]] std::string table(const char* id, const std::vector<std::string>& heads,
                                const std::string& rows);

} // namespace sim::page
