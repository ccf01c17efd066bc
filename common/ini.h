/// \file
/// What the INI library does not offer in every release.
#pragma once

#include <cstdint>
#include <string>

class INIReader;

/// Reads an unsigned number, decimal or with 0x, up to 0xFFFFFFFF, the same on every target: a
/// larger one is 0xFFFFFFFF, a negative one wraps.
/// \return the number; `fallback` when the key is missing or no number starts its value
unsigned int readUnsigned(const INIReader& ini, const std::string& section, const std::string& key,
                          unsigned int fallback);

/// Reads a signed number: decimal, with 0x, or octal behind a leading zero. Beyond 32 bits it is
/// the largest or the lowest of them on every target, as where `long` has 32 bits.
/// \return the number; `fallback` when the key is missing or no number starts its value
std::int32_t readInteger(const INIReader& ini, const std::string& section, const std::string& key,
                         std::int32_t fallback);
