// Every register write with its fields, old and new value.

#include <optional>

#include "sim/after/report/page.h"
#include "sim/after/report/register_fields.h"
#include "sim/after/report/sections.h"

namespace sim::page {

namespace {

std::string fieldsOf(const tsWrite& write) {
    const tsRegisterChange change{write.taken ? write.before : std::nullopt, write.value};
    return write.sensor ? sensorFields(write.address, change) : fpgaFields(write.address, change);
}

std::string writeRow(const tsWrite& write) {
    std::vector<std::string> cells{milliseconds(write.timeNs), write.sensor ? "sensor" : "FPGA"};
    if (write.other.empty()) {
        const int digits = write.sensor ? 6 : 8;
        cells.insert(cells.end(),
                     {hex(write.address, write.sensor ? 3 : 8), fieldsOf(write),
                      write.before ? hex(*write.before, digits) : "", hex(write.value, digits)});
    } else {
        cells.insert(cells.end(), {"", write.other, "", ""});
    }
    cells.push_back(write.fate);
    return row(cells, write.fate.empty() ? "" : kBad);
}

} // namespace

std::string registerWrites(const tsRun& run) {
    std::string rows;
    for (const tsWrite& write : run.writes) {
        rows += writeRow(write);
    }
    return "<h2>Register writes</h2>\n<p>Values as they arrived; the old value is what the "
           "register held. The last column says what became of a write that went wrong. Fields are "
           "named where the register reference has them. The head sees "
           "registers, not requests: it cannot tell what was asked for before a limit was "
           "applied.</p>\n" +
           table("writes", {"Time", "Chip", "Register", "Fields", "Old", "New", ""}, rows);
}

} // namespace sim::page
