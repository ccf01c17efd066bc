/// \file
/// What an examination means. The meaning of failures comes from the board's table.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "apps/camhost/diagnosis.h"
#include "apps/camhost/exit_status.h"

namespace camhost {

/// The verdict.
struct tsJudgement {
    std::array<teState, kStages> states{}; ///< by stage
    teExit status = teExit::eSuccess;      ///< what the program ends with
    std::optional<teStage> stage;          ///< the first one that is wrong
    std::string says;                      ///< in one line
    std::vector<failures::tsCause> causes; ///< the likely one first
    std::vector<std::string> notes;        ///< what does not work although the head comes up
    std::vector<std::string> leftOut;      ///< what was not looked at, and how to get it
    [[nodiscard]] teState of(teStage one) const { return states[static_cast<std::size_t>(one)]; }
};

/// \param table of the board; may be null
[[nodiscard]] tsJudgement judge(const tsDiagnosis& diagnosis,
                                const failures::tcFailureTable* table);

/// \return as programs read it: "devices"
[[nodiscard]] const char* nameOf(teStage stage);
/// \return as people read it: "device files"
[[nodiscard]] const char* titleOf(teStage stage);
/// \return "good", "noted", "wrong", "unknown" or "left out"
[[nodiscard]] const char* nameOf(teState state);

/// \return a file's mode as `chmod` takes it: "0660"
[[nodiscard]] std::string octalText(unsigned mode);

/// \return a number without zeros at its end: "1.05"
[[nodiscard]] std::string shortNumber(double value);

} // namespace camhost
