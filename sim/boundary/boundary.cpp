#include "sim/boundary/boundary.h"

#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/boundary/head_access.h"

namespace sim {

bool outside() {
    return !headPresent() || g_headLock.mine();
}

void unknownCall(tcModel& head, teDevice device, std::string_view what, std::uint32_t number) {
    tcText text;
    text.add(what).add(" ").hex(number).add(" on ").add(head.devices.pathOf(device));
    head.journal.violation(teRule::deviceCall, text.view());
}

} // namespace sim
