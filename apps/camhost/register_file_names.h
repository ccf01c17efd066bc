/// \file
/// Names of the register file's words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/camhost/arguments.h"

namespace camhost {

/// One word that boards publish or serve.
struct tsRegisterName {
    std::uint32_t address = 0;
    std::string_view name;
    std::string_view meaning; ///< with its unit in brackets
};

/// \return all names, by ascending address
const std::vector<tsRegisterName>& registerNames();

/// \return the word's name; empty where it has none
std::string_view registerName(std::uint32_t address);

/// \return the address of the word of that name
std::optional<std::uint32_t> registerAddress(std::string_view name);

/// \return address and, where it has one, name: "0x3A004 exposure"
std::string registerTitle(std::uint32_t address);

/// Takes an argument that is a word's address or name.
/// \throws tcCommandError where it is neither
std::uint32_t takeRegister(tcArguments& arguments);

/// \return all names
std::vector<std::string> registerNameList();

} // namespace camhost
