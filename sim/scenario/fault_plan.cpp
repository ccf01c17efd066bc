#include "sim/scenario/fault_plan.h"

#include "sim/scenario/scenario_text.h"

namespace sim {

std::optional<tsPlannedFault> plannedFault(const tsFault& fault, tsFaultError& error) {
    // The texts once more, in their order: whoever builds a head in code has not been asked yet.
    tsFault checked;
    for (const tsFaultKey& key : faultKeys()) {
        if (const std::string& text = fault.*key.text; !text.empty()) {
            if (std::optional<tsFaultError> wrong = setFaultText(checked, key.name, text)) {
                error = *wrong;
                return std::nullopt;
            }
        }
    }
    tsPlannedFault plan;
    plan.name = fault.name;
    const tsSaidFault said = faultSaid(fault.what);
    plan.kind = said.kind;
    plan.numbers = said.numbers;
    if (plan.kind == nullptr) {
        error = {"what", "", "is missing; allowed is " + allowedFaults()};
        return std::nullopt;
    }
    if (!fault.at.empty() && !fault.after.empty()) {
        error = {"after", fault.after, "allowed is at or after, not both"};
        return std::nullopt;
    }
    if (!fault.lasts.empty() && !fault.until.empty()) {
        error = {"until", fault.until, "allowed is for or until, not both"};
        return std::nullopt;
    }
    plan.from = fault.at.empty() ? eventFrom(fault.after).value_or(tsMoment{})
                                 : timeFrom(fault.at).value_or(tsMoment{});
    plan.until = timeOrEvent(fault.until).value_or(tsMoment{});
    if (!fault.lasts.empty()) {
        plan.lengthNs = text::milliseconds(fault.lasts);
    }
    if (fault.after.empty() && plan.until.timeNs &&
        *plan.until.timeNs <= plan.from.timeNs.value_or(0)) {
        error = {"until", fault.until, "allowed is a time after the fault's begin"};
        return std::nullopt;
    }
    return plan;
}

} // namespace sim
