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

// Shows the rows that have all words of a text in them, in any case. A page that is opened with
// "#writes=gain" shows those at once. Without scripts there is no search, and all rows are there.
constexpr const char* kSearch =
    "<p id=\"search\" hidden><label>Show rows with <input id=\"filter\" type=\"search\" "
    "placeholder=\"sensor, 0x012, gain, lost\"></label><span id=\"found\"></span></p>\n";
constexpr const char* kSearching = R"(<script>
(() => {
  const table = document.getElementById("writes");
  const rows = [...table.rows].slice(1);
  const filter = document.getElementById("filter");
  const show = () => {
    const words = filter.value.toLowerCase().split(" ").filter(word => word);
    let count = 0;
    for (const row of rows) {
      const text = row.textContent.toLowerCase();
      row.hidden = !words.every(word => text.includes(word));
      count += row.hidden ? 0 : 1;
    }
    document.getElementById("found").textContent = count + " of " + rows.length + " rows";
    const folded = table.closest("details");
    if (folded && words.length) folded.open = true;
  };
  document.getElementById("search").hidden = false;
  filter.addEventListener("input", show);
  filter.value = decodeURIComponent((location.hash.match(/^#writes=(.*)/) || ["", ""])[1]);
  show();
})();
</script>
)";

} // namespace

std::string registerWrites(const tsRun& run) {
    std::string rows;
    for (const tsWrite& write : run.writes) {
        rows += writeRow(write);
    }
    return std::string(
               "<h2>Register writes</h2>\n<p>Values as they arrived; the old value is what the "
               "register held. The last column says what became of a write that went wrong. Fields "
               "are "
               "named where the register reference has them. The head sees "
               "registers, not requests: it cannot tell what was asked for before a limit was "
               "applied.</p>\n") +
           kSearch +
           table("writes", {"Time", "Chip", "Register", "Fields", "Old", "New", ""}, rows) +
           kSearching;
}

} // namespace sim::page
