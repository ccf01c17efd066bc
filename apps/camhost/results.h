/// \file
/// What a board's result codes mean, in words.
#pragma once

#include <string>

namespace camhost {

/// \return for example "result 3: invalid argument"
std::string resultText(int result);

/// \return what the operator can do about a result; empty where nothing general helps
std::string remedyFor(int result);

/// Throws for everything but success.
/// \param what the operation, as "exposure 5000 us"
/// \param still what holds now, as "exposure stays 30000 us"; may be empty
/// \throws tcBoardError with operation, result, its meaning and what to do
void requireSuccess(const std::string& what, int result, const std::string& still = {});

} // namespace camhost
