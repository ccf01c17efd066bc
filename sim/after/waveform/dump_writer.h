/// \file
/// Value-change dumps, as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sim {

/// Collects the changes of wires and writes them down in the order of their times.
class tcDumpWriter {
public:
    /// Adds a wire, in the order of the dump. Wires of one scope follow each other.
    void define(const std::string& scope, const std::string& name, const char* initial,
                bool real = false);

    /// \return the number of a wire
    /// \throws std::runtime_error when there is none of this name
    [[nodiscard]] std::size_t wire(const std::string& name) const;

    /// What follows happens at this time, or belongs to it.
    void enter(std::uint64_t timeNs);

    /// The wire has another value from then on. Changes of one wire in the same instant are 1 ns
    /// apart, and what follows in the instant that was entered does not come before them.
    void change(std::size_t wire, std::uint64_t timeNs, const std::string& value);
    /// As above, of a wire with two levels.
    void level(std::size_t wire, std::uint64_t timeNs, bool high);
    void level(const std::string& wire, std::uint64_t timeNs, bool high);

    /// Forgets the changes of a wire that were to come after a time.
    /// \return the value that is left; empty when there was nothing to forget
    std::optional<std::string> forgetAfter(std::size_t wire, std::uint64_t timeNs);

    /// \return the dump (IEEE 1364, chapter 18), with a time scale of 1 ns
    [[nodiscard]] std::string text(std::uint64_t endNs) const;

private:
    // A variable of the dump, with its changes.
    struct tsWire {
        std::string scope;
        std::string name;
        bool real = false;
        std::vector<std::pair<std::uint64_t, std::string>> changes; // time [ns], value
    };

    [[nodiscard]] std::string definitions() const;
    [[nodiscard]] std::string changes(std::uint64_t endNs) const;

    std::vector<tsWire> m_wires;
    std::map<std::string, std::size_t> m_byName;
    std::uint64_t m_instantNs = 0; // that was entered last
    std::uint64_t m_shiftNs = 0;   // how far its changes are moved
};

} // namespace sim
