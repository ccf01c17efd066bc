/// \file
/// A diagnosis for people.
#pragma once

#include <string>

#include "apps/camhost/judgement.h"

namespace camhost {

/// \param colour for a terminal: states stand out
/// \return one tree, a line each, without the last newline
[[nodiscard]] std::string treeOf(const tsDiagnosis& diagnosis, const tsJudgement& judgement,
                                 bool colour);

} // namespace camhost
