/// \file
/// A diagnosis for programs. docs/camhost.md describes the format.
#pragma once

#include "apps/camhost/facts.h"
#include "apps/camhost/judgement.h"

namespace camhost {

[[nodiscard]] tcFacts diagnosisFacts(const tsDiagnosis& diagnosis, const tsJudgement& judgement);

} // namespace camhost
