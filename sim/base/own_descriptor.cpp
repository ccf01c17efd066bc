#include "sim/base/own_descriptor.h"

#include <fcntl.h>

#include "sim/base/real_calls.h"

namespace sim {

namespace {

constexpr int kOwnFrom = 600;

} // namespace

int outOfTheWay(int descriptor) {
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, kOwnFrom);
    if (moved < 0) {
        return descriptor;
    }
    real::close(descriptor);
    return moved;
}

} // namespace sim
