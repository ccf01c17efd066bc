#include "apps/launcher/traces.h"

#include <set>
#include <string_view>
#include <utility>

#include "apps/launcher/files.h"

namespace fs = std::filesystem;

std::vector<tsTrace> tracesIn(const fs::path& folder, pid_t program) {
    std::set<pid_t> processes;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        const std::string_view prefix = "report.";
        if (name.starts_with(prefix)) {
            processes.insert(static_cast<pid_t>(std::stol(name.substr(prefix.size()))));
        }
    }
    std::vector<tsTrace> traces;
    for (const pid_t process : processes) {
        std::string trace = contentOf(folder / ("trace." + std::to_string(process)));
        const bool used = trace.find("] OPEN ") != std::string::npos;
        if (used) {
            traces.insert(process == program ? traces.begin() : traces.end(),
                          {process, std::move(trace)});
        }
    }
    if (traces.empty()) {
        traces.emplace_back(); // a run in which nothing happened
    }
    return traces;
}
