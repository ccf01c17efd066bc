#include "apps/launcher/preparation.h"

#include <stdexcept>
#include <system_error>

#include "apps/launcher/recordings.h"
#include "apps/launcher/usage_error.h"
#include "sim/scenario/scenario_pictures.h"

namespace fs = std::filesystem;

namespace {

std::vector<sim::tsReplacedFile> replacedBy(const std::string& scenario) {
    if (scenario.empty()) {
        return {};
    }
    try {
        return sim::replacedFiles(scenario);
    } catch (const std::runtime_error& error) {
        throw tcUsageError(error.what());
    }
}

std::optional<sim::tcFrameWriter> frameWriter(const tsArguments& arguments) {
    if (arguments.frames.empty()) {
        return std::nullopt;
    }
    std::error_code error;
    fs::create_directories(arguments.frames, error);
    if (!fs::is_directory(arguments.frames)) {
        throw tcUsageError(arguments.frames + ": no such directory");
    }
    try {
        return sim::frameWriter(arguments.scenario, arguments.scene);
    } catch (const std::runtime_error& problem) {
        throw tcUsageError(problem.what());
    }
}

// Pictures of an earlier run would be taken for this one's.
void clearPictures(const std::string& folder) {
    try {
        if (!folder.empty()) {
            sim::tcFrameWriter::clear(folder);
        }
    } catch (const std::runtime_error& error) {
        throw tcUsageError(error.what());
    }
}

} // namespace

tcPreparation::tcPreparation(const tsArguments& arguments)
    : m_replaced(replacedBy(arguments.scenario)),
      m_pictures(frameWriter(arguments)),
      m_workdir(layOutWorkdir(arguments.workdir)) {
    clearRecordings(arguments.record);
    if (!arguments.replay.empty()) {
        checkRecordings(arguments.replay);
    }
    startFile(arguments.log);
    startFile(arguments.vcd);
    startFile(arguments.report);
    clearPictures(arguments.frames);
    m_orders = ordersFor(arguments);
}

fs::path tcPreparation::layOutWorkdir(const std::string& asked) const {
    fs::path folder = asked.empty() ? fs::current_path() : fs::path(asked);
    if (!fs::is_directory(folder)) {
        throw tcUsageError(folder.string() + ": no such directory");
    }
    if (m_replaced.empty()) {
        return folder;
    }
    fs::path linked = leftovers() / "work";
    layOut(folder, linked, m_replaced);
    return linked;
}

tsOrders tcPreparation::ordersFor(const tsArguments& arguments) const {
    tsOrders orders;
    orders.preload = preloadList();
    orders.scenario = absolute(arguments.scenario);
    orders.time = arguments.time;
    orders.log = absolute(arguments.log);
    orders.trace = wantsTrace(arguments) ? (leftovers() / "trace").string() : "";
    orders.report = (leftovers() / "report").string();
    orders.verdict = (leftovers() / "verdict").string();
    orders.delivered = (leftovers() / "delivered").string();
    orders.silences = (leftovers() / "silences").string();
    orders.frames = m_pictures ? (leftovers() / "frames").string() : "";
    orders.maxFrames = std::to_string(arguments.maxFrames);
    orders.record = absolute(arguments.record);
    orders.replay = absolute(arguments.replay);
    orders.claims = (leftovers() / "played").string();
    orders.hardware = arguments.hardware;
    orders.live = arguments.serve.empty() ? "" : leftovers().string();
    orders.stopped = arguments.stopped;
    return orders;
}

bool wantsTrace(const tsArguments& arguments) {
    return !arguments.vcd.empty() || !arguments.report.empty() || arguments.overview;
}
