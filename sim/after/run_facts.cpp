#include "sim/after/run_facts.h"

#include <cstddef>

namespace sim {

std::string tsRunFacts::scenarioTitle() const {
    const std::size_t folder = scenario.find_last_of('/');
    std::string name = folder == std::string::npos ? scenario : scenario.substr(folder + 1);
    if (scenarioText.empty() || (scenarioText[0] != ';' && scenarioText[0] != '#')) {
        return name;
    }
    const std::string line = scenarioText.substr(0, scenarioText.find('\n'));
    const std::size_t text = line.find_first_not_of(";# ");
    return text == std::string::npos ? name : name + ": " + line.substr(text);
}

} // namespace sim
