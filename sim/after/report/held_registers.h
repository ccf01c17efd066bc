/// \file
/// What the registers of sensor and FPGA hold, as far as the run's writes tell.
#pragma once

#include <cstdint>
#include <map>

namespace sim {

/// Values of the registers that were written.
struct tsHeldRegisters {
    std::map<std::uint32_t, std::uint32_t> sensor; ///< by register number
    std::map<std::uint32_t, std::uint32_t> fpga;   ///< by physical address
};

} // namespace sim
