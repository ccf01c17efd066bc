#include "apps/camhost/program.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <streambuf>

#include <unistd.h>

#include "apps/camhost/console.h"
#include "apps/camhost/diagnose.h"
#include "apps/camhost/executor.h"
#include "apps/camhost/file_checks.h"
#include "apps/camhost/head.h"
#include "apps/camhost/interrupt.h"
#include "apps/camhost/line_server.h"
#include "apps/camhost/listing.h"
#include "apps/camhost/output.h"
#include "apps/camhost/plugin.h"
#include "apps/camhost/plugin_search.h"
#include "apps/camhost/reply_json.h"
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
/// read, works as well.
/// \param lost what is not to be had then, for the warning
/// \param why  gets why there is none
template<typename Table>
std::optional<Table> readTable(const tcPlugin& plugin, const char* kind, const char* lost,
                               tcOutput& output, std::string& why) {
    const std::optional<std::string> file = tables::beside(plugin.path(), kind);
    if (!file) {
        why = std::string("no table of ") + kind +
              " lies beside the plug-in, so that nothing is known of it";
        return std::nullopt;
    }
    try {
        return Table(*file);
    } catch (const std::exception& error) {
        why = error.what();
        output.error("camhost: warning: " + why + ". " + lost +
                     "; install the plug-in's package again.");
        return std::nullopt;
    }
}

std::optional<failures::tcFailureTable> readFailures(const tcPlugin& plugin, tcOutput& output,
                                                     std::string& why) {
    return readTable<failures::tcFailureTable>(plugin, "failures", "Failures will not be explained",
                                               output, why);
}

void readTables(const tcPlugin& plugin, const std::string& spi, tcHead& head, tcOutput& output) {
    tsOrigin origin{plugin.path(), spi, {}};
    if (auto failures = readFailures(plugin, output, origin.noTable))
        head.knowFailures(std::move(*failures));
    head.comesFrom(std::move(origin));
    std::string ignored;
    if (auto registers = readTable<registers::tcRegisterTable>(
            plugin, "registers", "Registers will have no names", output, ignored))
        head.knowRegisters(std::move(*registers));
    if (auto settings = readTable<settings::tcSettingsTable>(
            plugin, "settings", "\"help\" will not tell what the board takes", output, ignored))
        head.knowSettings(std::move(*settings));
}

/// Swallows what goes to a stream, for as long as it lives.
class tcSilence {
public:
    explicit tcSilence(std::ostream& stream)
        : m_stream(stream), m_below(stream.rdbuf(&m_nothing)) {}
    tcSilence(const tcSilence&) = delete;
    tcSilence& operator=(const tcSilence&) = delete;
    ~tcSilence() { m_stream.rdbuf(m_below); }

private:
    struct tsNothing : std::streambuf {
        int_type overflow(int_type character) override { return traits_type::not_eof(character); }
        std::streamsize xsputn(const char* /*text*/, std::streamsize count) override {
            return count;
        }
    };
    tsNothing m_nothing;
    std::ostream& m_stream;
    std::streambuf* m_below;
};

/// What the board says belongs to the diagnosis: it is heard, and shown only where somebody asks.
teExit diagnose(const tsOptions& options, const tcPlugin& plugin, const std::string& spi,
                tcOutput& output) {
    std::optional<tcSilence> silence;
    if (options.log.empty()) {
        output.sendLogTo("/dev/null");
        silence.emplace(std::cerr);
    }
    tsOrigin origin{plugin.path(), spi, {}};
    const auto table = readFailures(plugin, output, origin.noTable);
    const auto makeHead = [&] {
        auto head = std::make_unique<tcHead>(
            plugin.sensorType(), [&] { return plugin.makeBoard(spi); }, output);
        if (table)
            head->knowFailures(*table);
        return head;
    };
    const tsShown shown = diagnoseFromStart(origin, table ? &*table : nullptr, options.power,
                                            output.coloured(), makeHead);
    output.reply(options.json ? jsonText(shown.facts) : shown.text);
    return shown.status;
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
    output.reply(json ? jsonText(listing.facts) : listing.text);
    return teExit::eSuccess;
}

teExit drive(const tsOptions& options, tcOutput& output) {
    if (options.list)
        return list(options.json, output);
    const std::string script = fromHere(options.script);
    if ((options.json && !options.diagnose) || !options.log.empty())
        output.sendLogTo(options.log.empty() ? "-" : options.log);
    const tcPlugin plugin(options.plugin.empty() ? onlyPlugin() : fromHere(options.plugin));
    const std::string spi = options.spi.empty() ? usualDevice(plugin) : options.spi;
    enterWorkdir(options.workdir);
    for (const std::string& warning : trustWarnings(plugin.path(), script))
        output.error("camhost: warning: " + warning);
    tcInterrupt::install();

    if (options.diagnose)
        return diagnose(options, plugin, spi, output);
    tcHead head(
        plugin.sensorType(), [&] { return plugin.makeBoard(spi); }, output);
    readTables(plugin, spi, head, output);
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
