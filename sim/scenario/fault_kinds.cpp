#include "sim/scenario/fault_kinds.h"

#include <algorithm>
#include <cstddef>

#include "sim/scenario/reference.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

std::vector<const tsFaultKind*> allFaultKinds() {
    std::vector<const tsFaultKind*> all;
    for (const auto& struck : {linkFaults(), supplyFaults(), deviceFaults(), fpgaFaults()}) {
        for (const tsFaultKind& kind : struck) {
            all.push_back(&kind);
        }
    }
    return all;
}

tsSaidFault faultSaid(const std::string& what) {
    const std::vector<std::string> words = text::words(what);
    if (words.empty()) {
        return {};
    }
    for (const tsFaultKind* kind : allFaultKinds()) {
        if (const std::optional<tsFaultNumbers> numbers = kind->read(words)) {
            return {kind, *numbers};
        }
    }
    return {};
}

std::vector<std::string> faultKinds() {
    std::vector<std::string> forms;
    for (const tsFaultKind* kind : allFaultKinds()) {
        forms.emplace_back(kind->form);
    }
    return forms;
}

std::optional<std::size_t> faultKindOf(const std::string& what) {
    const std::vector<const tsFaultKind*> all = allFaultKinds();
    const auto found = std::find(all.begin(), all.end(), faultSaid(what).kind);
    return found == all.end() ? std::nullopt
                              : std::optional(static_cast<std::size_t>(found - all.begin()));
}

} // namespace sim
