/// \file
/// The form that tables beside a plug-in have in common.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

namespace tables {

/// Reads a JSON file of format 1 and hands it on.
/// \param kind of the table, "registers"
/// \param use  takes the file's object; what it throws is told with the file
/// \throws std::runtime_error with file and reason where it cannot be read or understood
template<class Use>
void read(const std::string& file, const std::string& kind, Use use) {
    std::ifstream stream(file);
    if (!stream)
        throw std::runtime_error(file + " does not open");
    try {
        const auto json = nlohmann::json::parse(stream);
        if (json.at("format").template get<int>() != 1)
            throw std::runtime_error("its format is not 1");
        use(json);
    } catch (const std::exception& error) {
        throw std::runtime_error(file + " is no table of " + kind + ": " + error.what());
    }
}

} // namespace tables
