/// \file
/// What a board takes, from the table that lies beside its plug-in.
/// docs/settings-table.md describes the file.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace settings {

/// Range of a numeric argument.
struct tsRange {
    std::string name; ///< as the command's usage has it: "WIDTH"
    std::int64_t least = 0;
    std::int64_t most = 0;
    std::int64_t step = 1; ///< what a value is a multiple of, counted from 0
    std::string unit;      ///< "pixels"; may be empty
};

/// What one command takes.
struct tsTaken {
    std::vector<tsRange> ranges;
    std::vector<std::string> values; ///< the names that the board takes, of those the host knows
    std::vector<std::string> notes;  ///< sentences
};

/// How a board stands to a command of the host.
enum class teSupport { eFull, eReadsOnly, eNone };

/// What a board takes. Nothing changes it once it is read.
class tcSettingsTable {
public:
    /// \param file JSON, of format 1
    /// \throws std::runtime_error with file, place and reason where it cannot be read or understood
    explicit tcSettingsTable(const std::string& file);

    /// \return the SPI device of the sensor on the boards that there are: "/dev/spidev1.0"
    [[nodiscard]] const std::string& device() const { return m_device; }

    /// \param command of the host: "roi"
    /// \return full support for a command that the table does not name
    [[nodiscard]] teSupport supportOf(const std::string& command) const;
    /// \return null for a command that the table says nothing of
    [[nodiscard]] const tsTaken* takenBy(const std::string& command) const;

    /// \return all commands that the table names, in alphabetical order
    [[nodiscard]] std::vector<std::string> commands() const;

private:
    std::string m_device;
    std::map<std::string, teSupport> m_support;
    std::map<std::string, tsTaken> m_taken;
};

/// \return a line each for people: "Y: 0 to 2054 rows, in steps of 2"
[[nodiscard]] std::vector<std::string> linesOf(const tsTaken& taken);

} // namespace settings
