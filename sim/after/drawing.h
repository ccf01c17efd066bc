/// \file
/// A value-change dump as a picture.
#pragma once

#include <string>
#include <string_view>

namespace sim {

/// What a dump is of.
enum class teDrawn { run, piece };

/// Draws every wire of a dump that changes, from top to bottom in the order of the dump, and in red
/// every wire that did not although it should have: a lane that was reset and never locked. Wires
/// that do the same share a row when they differ in a number that counts up by one; the row names
/// the first and the last of them. Times in which nothing happens are cut short and labelled with
/// their length.
///
/// \param dump value-change dump of scalar and real variables
/// \param drawn of a piece of a run no wire is red: what should have changed may have done so
/// before \return SVG \throws std::runtime_error "line N: ..." for what is not such a dump
[[nodiscard]] std::string drawing(std::string_view dump, teDrawn drawn = teDrawn::run);

} // namespace sim
