/// \file
/// A reply for programs.
#pragma once

#include <string>
#include <vector>

#include "apps/camhost/executor.h"

namespace camhost {

/// Writes a reply as one JSON object on one line. docs/camhost.md describes its members.
/// \param command the line that was carried out, without "--json"
/// \param reply   its text is what people read
/// \param lines   that came before the reply, in their order
/// \return the object, without a newline at its end; bytes that are no UTF-8 are replaced
std::string jsonText(const std::string& command, const tsReply& reply,
                     const std::vector<std::string>& lines);

/// \return what a failure means, as the member "explanation" tells it
tcFacts explanationFacts(const failures::tsExplanation& explanation);

} // namespace camhost
