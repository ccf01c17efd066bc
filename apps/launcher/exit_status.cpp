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

// Says why no picture came, on standard error. \return whether there is such a time
bool tellSilences(const tsArguments& arguments, const tcPreparation& preparation) {
    std::istringstream lines(allOf(preparation.leftovers(), "silences."));
    bool any = false;
    for (std::string line; std::getline(lines, line);) {
        if (!arguments.overview) { // whose verdict says so
            std::cerr << "virtual-head: " << line << "\n" << std::flush;
        }
        any = true;
    }
    return any;
}

} // namespace

int exitStatus(const tsArguments& arguments, const tcPreparation& preparation, const tsEnd& end) {
    const bool violated = sumOf(allOf(preparation.leftovers(), "verdict.")) != 0;
    if (!arguments.replay.empty()) {
        return statusOfReplay(arguments, preparation.orders(), end.status, violated);
    }
    const bool silent = tellSilences(arguments, preparation);
    if (end.status != 0) {
        return end.status;
    }
    return violated ? kViolations : (silent ? kNoPictures : end.status);
}
