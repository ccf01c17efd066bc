#include "apps/launcher/reference_pages.h"

#include <iostream>

#include "sim/virtual_head.h"

bool printReferencePages(const tsArguments& arguments) {
    if (arguments.printRegisters) {
        std::cout << sim::registersMarkdown();
    }
    if (arguments.printRegisterTable) {
        std::cout << sim::registersJson();
    }
    if (arguments.printRules) {
        std::cout << sim::rulesMarkdown();
    }
    if (arguments.printScenarioKeys) {
        std::cout << sim::scenarioKeysMarkdown();
    }
    return arguments.printRegisters || arguments.printRegisterTable || arguments.printRules ||
           arguments.printScenarioKeys;
}
