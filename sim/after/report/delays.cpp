// The delays of power-up against those that the hardware needs.

#include <cstdint>

#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"
#include "sim/base/rules.h"

namespace sim::page {

namespace {

std::string delay(const tsRun& run, const char* from, const char* to, const std::string& name,
                  std::uint64_t neededNs) {
    const tcMoment start = run.firstTime(from);
    const tcMoment end = run.firstTime(to);
    if (!start || !end) {
        return row({name, "not measured", milliseconds(neededNs), ""});
    }
    // The order itself may be wrong.
    const bool enough = *end >= *start && *end - *start >= neededNs;
    const std::string measured =
        *end >= *start ? milliseconds(*end - *start) : "-" + milliseconds(*start - *end);
    return row({name, measured, milliseconds(neededNs), enough ? "kept" : "too short"},
               enough ? "" : kBad);
}

} // namespace

std::string delays(const tsRun& run) {
    using namespace limits;
    return "<h2>Supplies and reset</h2>\n" +
           table("delays", {"Delay", "Measured", "Required", ""},
                 delay(run, "PS_1.2V_EN", "PS_3.3SVDD_EN", "1.2 V to 3.3 V SVDD", kCoreSettlesNs) +
                     delay(run, "PS_1.2V_EN", "PS_3.3AVDDH_EN", "1.2 V to 3.3 V AVDDH",
                           kCoreSettlesNs) +
                     delay(run, "PS_3.3SVDD_EN", "RESET_B", "3.3 V SVDD to end of reset",
                           kThreeVoltsSettleNs) +
                     delay(run, "PS_3.3AVDDH_EN", "RESET_B", "3.3 V AVDDH to end of reset",
                           kThreeVoltsSettleNs) +
                     delay(run, "RESET_B", "conversion", "end of reset to first measurement",
                           kWakesNs) +
                     delay(run, "RESET_B", "register", "end of reset to first register write",
                           kWakesNs));
}

} // namespace sim::page
