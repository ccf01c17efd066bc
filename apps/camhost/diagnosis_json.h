/// \file
/// A diagnosis for programs. docs/camhost.md describes the format.
#pragma once

#include <string>

#include "apps/camhost/judgement.h"

namespace camhost {

/// \return one JSON object, without the last newline
[[nodiscard]] std::string jsonOf(const tsDiagnosis& diagnosis, const tsJudgement& judgement);

} // namespace camhost
