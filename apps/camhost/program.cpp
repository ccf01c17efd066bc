#include "apps/camhost/program.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>

#include <unistd.h>

#include "apps/camhost/console.h"
#include "apps/camhost/executor.h"
#include "apps/camhost/file_checks.h"
#include "apps/camhost/head.h"
#include "apps/camhost/interrupt.h"
#include "apps/camhost/line_server.h"
#include "apps/camhost/listing.h"
#include "apps/camhost/output.h"
#include "apps/camhost/plugin.h"
#include "apps/camhost/plugin_search.h"
#include "apps/camhost/runner.h"
#include "apps/failures/failure_table.h"
#include "apps/registers/register_table.h"
#include "apps/settings/settings_table.h"
#include "apps/tables/beside.h"

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

/// Reads a table that lies beside the plug-in. A board without one, or with one that cannot be
/// read, works as well. \param lost what is not to be had then, for the warning
template<typename Table>
void readTable(const std::optional<std::string>& file, const char* lost, tcOutput& output,
               const std::function<void(Table)>& use) {
    if (!file)
        return;
    try {
        use(Table(*file));
    } catch (const std::exception& error) {
        output.error(std::string("camhost: warning: ") + error.what() + ". " + lost +
                     "; install the plug-in's package again.");
    }
}

void readTables(const tcPlugin& plugin, tcHead& head, tcOutput& output) {
    readTable<failures::tcFailureTable>(failures::tableBeside(plugin.path()),
                                        "Failures will not be explained", output,
                                        [&](auto table) { head.knowFailures(std::move(table)); });
    readTable<registers::tcRegisterTable>(
        tables::beside(plugin.path(), "registers"), "Registers will have no names", output,
        [&](auto table) { head.knowRegisters(std::move(table)); });
    readTable<settings::tcSettingsTable>(tables::beside(plugin.path(), "settings"),
                                         "\"help\" will not tell what the board takes", output,
                                         [&](auto table) { head.knowSettings(std::move(table)); });
}

std::string usualDevice(const tcPlugin& plugin) {
    const std::string hint = ". Give the sensor's SPI device with --spi.";
    const auto file = tables::beside(plugin.path(), "settings");
    if (!file)
        throw tcFatalError(teExit::eUsage, "no SPI device is given, and beside " + plugin.path() +
                                               " there is no table that tells the usual one" +
                                               hint);
    try {
        return settings::tcSettingsTable(*file).device();
    } catch (const std::exception& error) {
        throw tcFatalError(teExit::eUsage,
                           std::string("no SPI device is given, and ") + error.what() + hint);
    }
}

teExit list(bool json, tcOutput& output) {
    const tsListing listing = listMachine();
    output.reply(json ? listing.facts.dump(-1, ' ', false, tmFacts::error_handler_t::replace)
                      : listing.text);
    return teExit::eSuccess;
}

teExit drive(const tsOptions& options, tcOutput& output) {
    if (options.list)
        return list(options.json, output);
    const std::string script = fromHere(options.script);
    if (options.json || !options.log.empty())
        output.sendLogTo(options.log.empty() ? "-" : options.log);
    const tcPlugin plugin(options.plugin.empty() ? onlyPlugin() : fromHere(options.plugin));
    const std::string spi = options.spi.empty() ? usualDevice(plugin) : options.spi;
    enterWorkdir(options.workdir);
    for (const std::string& warning : trustWarnings(plugin.path(), script))
        output.error("camhost: warning: " + warning);
    tcInterrupt::install();

    tcHead head(
        plugin.sensorType(), [&] { return plugin.makeBoard(spi); }, output);
    readTables(plugin, head, output);
    output.log(servedText(plugin, head));
    const tcCommandTable table = makeCommandTable();
    tcExecutor executor(head, table, output);
    if (options.json)
        executor.answerInJson();
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
