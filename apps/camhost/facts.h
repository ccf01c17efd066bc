/// \file
/// What a reply tells, for programs.
#pragma once

#include <nlohmann/json.hpp>

#include <varnox/roi.h>

namespace camhost {

/// A JSON object whose members keep their order.
using tmFacts = nlohmann::ordered_json;

inline tmFacts rectangleFacts(const Varnox::ROI& roi) {
    return {{"y", roi.y}, {"x", roi.x}, {"width", roi.width}, {"height", roi.height}};
}

} // namespace camhost
