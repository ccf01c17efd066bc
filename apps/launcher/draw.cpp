#include "apps/launcher/draw.h"

#include <fstream>
#include <stdexcept>

#include "apps/launcher/files.h"
#include "apps/launcher/usage_error.h"
#include "sim/after/drawing.h"

void draw(const std::string& dump, const std::string& picture) {
    if (!std::ifstream(dump)) {
        throw tcUsageError(dump + ": cannot be read");
    }
    try {
        writeFile(picture, sim::drawing(contentOf(dump)));
    } catch (const std::runtime_error& error) {
        throw tcUsageError(dump + ": " + error.what());
    }
}
