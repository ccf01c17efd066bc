#include "apps/launcher/command_line.h"

#include <cstdlib>
#include <string_view>

#include <CLI/CLI.hpp>

#include "apps/launcher/exit_status.h"

namespace {

void declare(CLI::App& app, tsArguments& arguments) {
    app.add_option("--scenario", arguments.scenario, "INI file that says what is wrong");
    app.add_option("--workdir", arguments.workdir,
                   "the program's working directory; what the program is "
                   "given relatively means from there");
    app.add_option("--log", arguments.log,
                   "file for every event at the device boundary, one a line");
    app.add_option("--summary", arguments.summary,
                   "file for the summary, - for standard output; default: standard error");
    app.add_flag("--overview", arguments.overview,
                 "stages, lanes, settings, pictures and a verdict in place of the program's "
                 "standard output and the summary");
    app.add_option("--vcd", arguments.vcd, "file for a value-change dump of every wire");
    app.add_option("--report", arguments.report, "file for a page about the run (HTML)");
    app.add_option("--draw", arguments.draw, "draw a value-change dump: DUMP PICTURE.svg")
        ->expected(2);
    app.add_option("--time", arguments.time, "default: virtual")
        ->check(CLI::IsMember({"virtual", "real"}));
    auto* const frames =
        app.add_option("--frames", arguments.frames, "folder for a PNG picture of each frame");
    app.add_option("--max-frames", arguments.maxFrames, "pictures at most; default: 10")
        ->check(CLI::Range(1U, 1000U))
        ->needs(frames);
    app.add_option("--scene", arguments.scene,
                   "PNG picture before the sensor; default: the scenario's, or the test chart");
    auto* const record =
        app.add_option("--record", arguments.record, "file for every call on the device files");
    auto* const replay =
        app.add_option("--replay", arguments.replay, "recording that answers in place of the head");
    auto* const hardware = app.add_flag("--hardware", arguments.hardware,
                                        "record the machine's own devices, no virtual head");
    hardware->needs(record);
    auto* const serve = app.add_option("--serve", arguments.serve,
                                       "[ADDRESS:]PORT at which a page shows the head while the "
                                       "program runs; port 0: any");
    app.add_flag("--keep-serving", arguments.keepServing,
                 "serve on when the program has ended, until Ctrl-C")
        ->needs(serve);
    app.add_flag("--stopped", arguments.stopped,
                 "stop the program's calls before the first one; the page lets it go on")
        ->needs(serve);
    // Without a model there is nothing wrong with it, and nothing to be seen of it.
    for (const char* modelled : {"--scenario", "--log", "--overview", "--vcd", "--report", "--time",
                                 "--frames", "--serve"}) {
        app.get_option(modelled)->excludes(replay)->excludes(hardware);
    }
    record->excludes(replay);
    app.add_flag("--print-registers", arguments.printRegisters, "print the register reference");
    app.add_flag("--print-register-table", arguments.printRegisterTable,
                 "print the same registers as JSON");
    app.add_flag("--print-rules", arguments.printRules, "print the rules of the head");
    app.add_flag("--print-scenario-keys", arguments.printScenarioKeys,
                 "print the keys of a scenario");
    app.footer("Usage: virtual-head [OPTIONS] -- PROGRAM [ARGUMENTS]\n"
               "Exit status: the program's; 9 when that is 0 and a rule of the head was broken;\n"
               "10 when that is 0 and the program did not do all that the recording says;\n"
               "11 when that is 0 and no picture came while the sensor streamed;\n"
               "2 for wrong usage; 127 when the program cannot be started.");
}

} // namespace

std::optional<int> readCommandLine(int count, char** values, tsArguments& arguments) {
    std::vector<char*> options;
    int at = 0;
    for (; at < count && std::string_view(values[at]) != "--"; ++at) {
        options.push_back(values[at]);
    }
    for (++at; at < count; ++at) {
        arguments.program.emplace_back(values[at]);
    }
    CLI::App app("Runs a program on the virtual camera head.", "virtual-head");
    app.set_version_flag("--version", "virtual-head " HEAD_VERSION, "print the version");
    declare(app, arguments);
    try {
        app.parse(static_cast<int>(options.size()), options.data());
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageError;
    }
    return std::nullopt;
}
