/// \file
/// What failures of a board mean, from the table that lies beside its plug-in.
/// docs/failure-table.md describes the file.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "apps/failures/head_facts.h"
#include "apps/failures/pattern.h"

namespace failures {

/// Why something failed, and what shows whether it is so.
struct tsCause {
    std::string cause;
    std::string measure;
};

/// What a result and the lines that came with it mean.
struct tsExplanation {
    std::string name;            ///< of the failure, as the table has it: "lanes"
    std::string stage;           ///< of bringing the head up: "lanes"
    std::string what;            ///< "lane 3 of 12 did not lock"
    std::vector<tsCause> causes; ///< the likely one first
};

/// What somebody saw who examined the head, and the words for the places of its text.
struct tsFinding {
    std::string name; ///< "line-busy"
    std::string of;   ///< which device file; empty where there is but one thing of the kind
    std::map<std::string, std::string> words;
};

/// \return the places that a text about this finding may have; null for a finding that nobody makes
[[nodiscard]] const std::vector<std::string>* placesOf(const std::string& finding);

/// A table of failures. Nothing changes it once it is read.
class tcFailureTable {
public:
    /// \param file JSON, of format 1
    /// \throws std::runtime_error with file, place and reason where it cannot be read or understood
    explicit tcFailureTable(const std::string& file);
    /// \param json what such a file holds
    /// \param file where it comes from, for errors
    /// \throws std::runtime_error as above
    tcFailureTable(const std::string& json, const std::string& file);

    /// \param result what the board answered
    /// \param lines  all that the board printed meanwhile, oldest first, without newlines
    /// \return of the first failure of the table that fits; nothing where none does
    [[nodiscard]] std::optional<tsExplanation> explain(int result,
                                                       const std::vector<std::string>& lines) const;

    /// \return of the first failure of the table that fits, causes filled in as well; nothing where
    ///         none does
    [[nodiscard]] std::optional<tsExplanation> explain(const tsFinding& finding) const;

    /// \return the names of all failures, in the order of the table
    [[nodiscard]] std::vector<std::string> names() const;
    /// \param failure its name
    /// \return what the table says of it, places still in braces; null where it does not know it
    [[nodiscard]] const tsExplanation* named(const std::string& failure) const;

    /// \return what the table says of the head; nothing where it says nothing
    [[nodiscard]] const std::optional<tsHeadFacts>& head() const { return m_head; }
    /// \return the usual limits, by the name of the supply
    [[nodiscard]] const std::map<std::string, tsLimits>& supplies() const { return m_supplies; }
    /// \return the number of serial lanes
    [[nodiscard]] unsigned lanes() const { return m_lanes; }
    /// \return the table as it is for a head with limits of its own
    [[nodiscard]] tcFailureTable withLimits(std::map<std::string, tsLimits> limits) const;

    /// What is wrong with a supply.
    enum class teSupply { eAny, eLow, eHigh };

    /// One entry of the table: what it means, and when it does.
    struct tsFailure {
        tsExplanation explanation; // `what` with its places still in braces
        std::optional<int> result;
        bool blocks = false; // the result is a mask of blocks
        teSupply supply = teSupply::eAny;
        std::vector<tcPattern> lines;
        std::string finding; // what was seen; empty: the failure is one of an operation
        std::string of;      // only of this device file; empty: of any
    };

private:
    using tmWords = std::map<std::string, std::string>;

    [[nodiscard]] std::optional<tmWords> matched(const tsFailure& failure, int result,
                                                 const std::vector<std::string>& lines) const;
    bool matchLines(const tsFailure& failure, const std::vector<std::string>& lines,
                    tmWords& words) const;
    bool matchBlocks(int result, tmWords& words) const;
    bool matchSupply(teSupply wanted, const std::vector<std::string>& lines, tmWords& words) const;
    [[nodiscard]] std::string clearLanes(const std::string& mask) const;

    unsigned m_lanes = 0;
    std::map<unsigned, std::string> m_blocks; // by bit
    std::map<std::string, tsLimits> m_supplies;
    std::vector<tsFailure> m_failures;
    std::optional<tsHeadFacts> m_head;
};

/// \return the likeliest causes in their order, at most three: "(1) no clock; (2) no pulses"
[[nodiscard]] std::string likelyText(const tsExplanation& explanation);
/// \return what to measure for each of them
[[nodiscard]] std::string measureText(const tsExplanation& explanation);

/// \return three lines for whoever sits before the head: what failed, the three likeliest causes in
///         their order, and what to measure for each
[[nodiscard]] std::string textOf(const tsExplanation& explanation);

} // namespace failures
