/// \file
/// A value-change dump as a picture.
#pragma once

#include <string>
#include <string_view>

namespace sim {

/// Draws every wire of a dump that changes, from top to bottom in the order of the dump; wires next
/// to each other that do the same share a row. Times in which nothing happens are cut short and
/// labelled with their length.
///
/// \param dump value-change dump of scalar and real variables
/// \return SVG
/// \throws std::runtime_error "line N: ..." for what is not such a dump
[[nodiscard]] std::string drawing(std::string_view dump);

} // namespace sim
