#include "apps/launcher/recordings.h"

#include <filesystem>
#include <stdexcept>

#include "apps/launcher/files.h"
#include "apps/launcher/usage_error.h"
#include "sim/base/launch.h"
#include "sim/recordings/recording.h"

namespace fs = std::filesystem;
using sim::launch::fileOfProcess;

void clearRecordings(const std::string& path) {
    startFile(path);
    for (unsigned process = 1; !path.empty() && fs::remove(fileOfProcess(path, process));
         ++process) {
    }
}

void checkRecordings(const std::string& path) {
    for (unsigned process = 1; process == 1 || fs::exists(fileOfProcess(path, process));
         ++process) {
        try {
            static_cast<void>(sim::readRecording(fileOfProcess(path, process)));
        } catch (const std::runtime_error& error) {
            throw tcUsageError(error.what());
        }
    }
}

std::string unplayed(const std::string& path, const std::string& claims) {
    std::string text;
    for (unsigned process = 1; fs::exists(fileOfProcess(path, process)); ++process) {
        if (!fs::exists(fileOfProcess(claims, process))) {
            text += "virtual-head: " + fileOfProcess(path, process) +
                    ": not played: no process of the program opened a device\n";
        }
    }
    return text;
}
