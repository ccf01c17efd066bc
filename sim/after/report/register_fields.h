/// \file
/// Register writes in words.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

/// A value that goes to a register, and the one that it replaces.
struct tsRegisterChange {
    std::optional<std::uint32_t> before; ///< empty: unknown, or not replaced
    std::uint32_t value = 0;
};

/// \param address of the sensor's register
/// \return its fields as the register reference names them, with what changes: "frame_state 4 to
///         3, frame_control_mode 0", "area 3: row_start 0, row_end 1027"; empty for a register
///         that the reference does not have
[[nodiscard]] std::string sensorFields(std::uint32_t address, const tsRegisterChange& change);

/// As `sensorFields`, of the FPGA. \param address physical; of an unaligned one the word around it
[[nodiscard]] std::string fpgaFields(std::uint32_t address, const tsRegisterChange& change);

} // namespace sim
