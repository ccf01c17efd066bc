/// \file
/// Small texts that the FPGA cores share.
#pragma once

#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>

/// \return eight upper-case hexadecimal digits after "0x"
inline std::string hexText(std::uint32_t value) {
    std::ostringstream text;
    text << "0x" << std::hex << std::uppercase << std::setw(8) << std::setfill('0') << value;
    return text.str();
}
