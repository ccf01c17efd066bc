/// \file
/// What the line server sends, as bytes of the connection.
#pragma once

#include <string>

namespace camhost {

/// \return "OK N" or "ERR N", and the N lines of the reply
std::string wireText(bool ok, const std::string& text);

/// \return lines before a reply, each marked by "* "
std::string wireEvent(const std::string& text);

} // namespace camhost
