/// \file
/// Who broke the rules of the head.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "sim/base/events.h"
#include "sim/base/rules.h"

namespace sim {

/// Counts violations and tells about each rule once.
class tcChecker {
public:
    explicit tcChecker(bool quiet) : m_quiet(quiet) {}

    /// Possible in a signal handler.
    void violated(teRule rule, std::uint64_t timeNs, std::string_view text);
    void clear();
    [[nodiscard]] std::uint64_t count() const { return m_count; }
    [[nodiscard]] std::vector<tsViolation> violations() const;

private:
    struct tsEntry {
        std::uint64_t timeNs;
        teRule rule;
        std::uint8_t length;
        std::array<char, 246> text;
    };
    static void print(teRule rule, std::uint64_t timeNs, std::string_view text);

    static constexpr std::size_t kKept = 1024; // violations
    bool m_quiet;
    std::uint64_t m_count = 0;
    std::array<bool, static_cast<std::size_t>(teRule::count)> m_told{};
    std::array<tsEntry, kKept> m_entries{};
};

} // namespace sim
