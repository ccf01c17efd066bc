#include "apps/launcher/known_failures.h"

#include "apps/failures/failure_table.h"
#include "apps/launcher/board_failures.h"

namespace {

std::map<std::string, sim::tsKnown> readKnownFailures() {
    const failures::tcFailureTable table(kBoardFailures, "the table in virtual-head");
    std::map<std::string, sim::tsKnown> known;
    for (const std::string& name : table.names()) {
        const failures::tsExplanation& failure = *table.named(name);
        known[name] = {failures::likelyText(failure), failures::measureText(failure)};
    }
    return known;
}

} // namespace

const std::map<std::string, sim::tsKnown>& knownFailures() {
    static const std::map<std::string, sim::tsKnown> theFailures = readKnownFailures();
    return theFailures;
}
