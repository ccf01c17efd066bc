#include "apps/launcher/exit_status.h"

#include <iostream>
#include <sstream>
#include <string>

#include "apps/launcher/command_line.h"
#include "apps/launcher/files.h"
#include "apps/launcher/preparation.h"
#include "apps/launcher/recordings.h"
#include "apps/launcher/run.h"

namespace {

unsigned long long sumOf(const std::string& counts) {
    std::istringstream stream(counts);
    unsigned long long sum = 0;
    for (unsigned long long count = 0; stream >> count;) {
        sum += count;
    }
    return sum;
}

// The status of a program that was answered from a recording.
int statusOfReplay(const tsArguments& arguments, const tsOrders& orders, int status,
                   bool cutShort) {
    const std::string left = unplayed(arguments.replay, orders.claims);
    std::cerr << left << std::flush;
    const bool differs = cutShort || !left.empty();
    return status == 0 && differs ? kDiffers : status;
}

} // namespace

int exitStatus(const tsArguments& arguments, const tcPreparation& preparation, const tsEnd& end) {
    const bool violated = sumOf(allOf(preparation.leftovers(), "verdict.")) != 0;
    if (!arguments.replay.empty()) {
        return statusOfReplay(arguments, preparation.orders(), end.status, violated);
    }
    return end.status == 0 && violated ? kViolations : end.status;
}
