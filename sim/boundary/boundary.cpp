#include "sim/boundary/boundary.h"

#include <array>
#include <cstring>

#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/boundary/head_access.h"

namespace sim {

namespace {

constexpr std::array<std::string_view, 4> kFamilies{"/dev/spidev", "/dev/gpiochip", "/dev/i2c-",
                                                    "/dev/mem"};

} // namespace

bool isHeadPath(const char* path) {
    if (path == nullptr || std::strncmp(path, "/dev/", 5) != 0) {
        return false;
    }
    for (const std::string_view family : kFamilies) {
        if (std::strncmp(path, family.data(), family.size()) == 0) {
            return true;
        }
    }
    return false;
}

bool outside() {
    return !headPresent() || g_headLock.mine();
}

void unknownCall(tcModel& head, teDevice device, std::string_view what, std::uint32_t number) {
    tcText text;
    text.add(what).add(" ").hex(number).add(" on ").add(head.devices.pathOf(device));
    head.journal.violation(teRule::deviceCall, text.view());
}

} // namespace sim
