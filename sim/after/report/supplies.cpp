// What the ADC measured, against the limits of the supplies.

#include <optional>

#include "sim/after/report/judged_reading.h"
#include "sim/after/report/page.h"
#include "sim/after/report/sections.h"

namespace sim::page {

std::string supplies(const tsRun& run) {
    std::string rows;
    for (const tsReading& converted : run.readings) {
        if (const std::optional<tsJudgedReading> reading = judged(converted)) {
            rows += row({milliseconds(converted.timeNs), reading->supply,
                         converted.steps ? hex(*converted.steps, 3) : "",
                         reading->volts ? fixed(*reading->volts, 4) + " V" : "", limitsOf(*reading),
                         reading->verdict},
                        reading->good ? "" : kBad);
        }
    }
    return "<h2>Supplies, as measured</h2>\n" +
           (rows.empty()
                ? "<p id=\"rails\">never measured</p>\n"
                : table("rails", {"Time", "Supply", "Reading", "Voltage", "Limits", ""}, rows));
}

} // namespace sim::page
