/// \file
/// Where the tables of a plug-in lie.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tables {

/// \param plugin path of a plug-in, "sensor_board_x.so"
/// \param kind   of the table, "registers"
/// \return path of the table, "sensor_board_x.registers.json", where there is such a file
[[nodiscard]] inline std::optional<std::string> beside(const std::string& plugin,
                                                       const std::string& kind) {
    const auto table = std::filesystem::path(plugin).replace_extension("." + kind + ".json");
    std::error_code error;
    return std::filesystem::is_regular_file(table, error) ? std::optional(table.string())
                                                          : std::nullopt;
}

} // namespace tables
