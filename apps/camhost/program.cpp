#include "apps/camhost/program.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>

#include <unistd.h>

#include "apps/camhost/console.h"
#include "apps/camhost/executor.h"
#include "apps/camhost/file_checks.h"
#include "apps/camhost/head.h"
#include "apps/camhost/interrupt.h"
#include "apps/camhost/line_server.h"
#include "apps/camhost/output.h"
#include "apps/camhost/plugin.h"
#include "apps/camhost/runner.h"
#include "apps/failures/failure_table.h"

namespace camhost {

namespace {

/// Files of the command line are meant from where the program was started.
std::string fromHere(const std::string& path) {
    return path.empty() || path == "-" ? path : std::filesystem::absolute(path).string();
}

void enterWorkdir(const std::string& folder) {
    if (!folder.empty() && ::chdir(folder.c_str()) != 0)
        throw tcFatalError(teExit::eUsage, "working directory " + folder +
                                               " not entered: " + std::strerror(errno) +
                                               ". Give an existing folder with --workdir.");
}

std::string servedText(const tcPlugin& plugin, tcHead& head) {
    std::string text = "camhost: " + plugin.path() + " serves sensor type " +
                       std::to_string(head.sensorType()) + "; keywords:";
    for (const std::string& keyword : head.keywords())
        text += " " + keyword;
    return text;
}

void runCommands(const tsOptions& options, const std::string& script, tcRunner& runner) {
    bool more = true;
    for (const std::string& command : options.commands)
        more = more && runner.runLine(command, "command line");
    if (more && !script.empty())
        runner.runScript(script);
}

void askForCommands(tcExecutor& executor, tcOutput& output, tcRunner& runner) {
    if (::isatty(STDIN_FILENO) == 1)
        tcConsole(executor, output, historyFile()).run();
    else
        runner.runScript("-");
}

teExit carryOut(const tsOptions& options, const std::string& script, tcExecutor& executor,
                tcOutput& output) {
    std::optional<tcLineServer> server;
    if (!options.listen.empty()) // first of all: a head is not powered up for nothing
        server.emplace(executor, parseAddress(options.listen), tsServerLimits());

    tcRunner runner(executor, output, options.keepGoing, options.echo);
    runCommands(options, script, runner);
    if (runner.ended())
        return runner.status();
    if (server) {
        server->start();
        output.log("camhost: listening on " + server->address());
    }
    if (options.interactive || !options.saysWhatToDo())
        askForCommands(executor, output, runner);
    else if (server)
        tcInterrupt::waitForRequest();
    return runner.status();
}

/// A board without a table, or with one that cannot be read, works as well; its failures stay
/// numbers.
void readFailures(const tcPlugin& plugin, tcHead& head, tcOutput& output) {
    const std::optional<std::string> file = failures::tableBeside(plugin.path());
    if (!file)
        return;
    try {
        head.knowFailures(failures::tcFailureTable(*file));
    } catch (const std::exception& error) {
        output.error(std::string("camhost: warning: ") + error.what() +
                     ". Failures will not be explained; install the plug-in's package again.");
    }
}

teExit drive(const tsOptions& options, tcOutput& output) {
    const std::string script = fromHere(options.script);
    if (!options.log.empty())
        output.sendLogTo(options.log);
    const tcPlugin plugin(fromHere(options.plugin));
    enterWorkdir(options.workdir);
    for (const std::string& warning : trustWarnings(plugin.path(), script))
        output.error("camhost: warning: " + warning);
    tcInterrupt::install();

    tcHead head(
        plugin.sensorType(), [&] { return plugin.makeBoard(options.spi); }, output);
    readFailures(plugin, head, output);
    output.log(servedText(plugin, head));
    const tcCommandTable table = makeCommandTable();
    tcExecutor executor(head, table, output);
    return carryOut(options, script, executor, output);
}

} // namespace

teExit run(const tsOptions& options) {
    tcOutput output;
    try {
        return drive(options, output);
    } catch (const tcFatalError& error) {
        output.error(std::string("camhost: ") + error.what());
        return error.status();
    } catch (const std::exception& error) {
        output.error(std::string("camhost: unexpected failure: ") + error.what() +
                     ". This is a defect of camhost.");
        return teExit::eInternal;
    }
}

} // namespace camhost
