// What the wires did, drawn.

#include <string_view>

#include "sim/after/drawing.h"
#include "sim/after/report/sections.h"
#include "sim/after/waveform.h"

namespace sim::page {

std::string wires(const std::vector<tsTraceLine>& trace) {
    std::string picture = drawing(waveform(trace));
    const bool empty = picture.find("<path ") == std::string::npos;
    // In a page the picture needs no name space, which looks like something from the network.
    constexpr std::string_view space = " xmlns=\"http://www.w3.org/2000/svg\"";
    picture.replace(picture.find(space), space.size(),
                    " id=\"wires\" role=\"img\" aria-label=\"what the wires did\"");
    return "<h2>What the wires did</h2>\n" +
           (empty ? "<p id=\"wires\">No wire changed.</p>\n"
                  : "<p>Wires that changed; in red those that should have and did not. Grey: idle "
                    "times, cut short.</p>\n" +
                        picture);
}

} // namespace sim::page
