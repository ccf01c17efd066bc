#include "apps/launcher/run.h"

#include <filesystem>
#include <stdexcept>
#include <vector>

#include "apps/launcher/child.h"
#include "apps/launcher/kept_output.h"

namespace fs = std::filesystem;

namespace {

// The program as its process will find it after changing the folder.
std::vector<std::string> resolved(std::vector<std::string> program) {
    if (program.front().find('/') != std::string::npos) {
        program.front() = fs::absolute(program.front()).string();
    }
    return program;
}

// A run is worth more than its page's clamps: without a pseudo-terminal the page says so.
void keep(std::optional<tcKeptOutput>& output, bool shown) {
    try {
        output.emplace(shown);
    } catch (const std::runtime_error&) {
        output.reset();
    }
}

} // namespace

tsEnd runProgram(const tsArguments& arguments, const tcPreparation& preparation) {
    std::optional<tcKeptOutput> output;
    if (!arguments.report.empty() || arguments.overview) {
        keep(output, !arguments.overview);
    }
    tsEnd end;
    end.error = startProgram(resolved(arguments.program), preparation.workdir(),
                             preparation.orders(), output ? &*output : nullptr, end.process);
    end.status = waitFor(end.process);
    if (output) {
        end.printed = output->finish();
    }
    return end;
}
