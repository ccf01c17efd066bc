/// \file
/// Numbers of the INI files, read from docs/ini-files.md once more, independently of the plug-in.
#pragma once

#include <cstdint>
#include <string>

namespace fuzz {

/// An unsigned number with 0x in hexadecimal, with a leading zero in octal, else in decimal; what
/// follows it does not count. Too large is the largest of 32 bits, a minus sign wraps.
std::uint32_t unsignedNumber(const std::string& text, std::uint32_t fallback);

/// A signed number in the same notation; beyond 32 bits, their ends.
std::int32_t signedNumber(const std::string& text, std::int32_t fallback);

/// A voltage: the nearest number of double precision; beyond them, infinity.
double voltage(const std::string& text, double fallback);

} // namespace fuzz
