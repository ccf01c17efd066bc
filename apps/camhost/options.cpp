#include "apps/camhost/options.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include "apps/camhost/bash_completion.h"
#include "apps/camhost/commands.h"

namespace camhost {

namespace {

constexpr const char* kDescription =
    "Loads a sensor-board plug-in and drives its camera head by text commands.\n"
    "Without commands and script it asks for them: \"help\" lists all. Ctrl-C ends a capture.";

constexpr const char* kFooter =
    "Exit status:\n"
    "  0    all went well\n"
    "  1    a defect of this program\n"
    "  2    the command line was not understood\n"
    "  3    the plug-in could not be loaded\n"
    "  4    the board could not be constructed\n"
    "  5    the board's initialization failed\n"
    "  6    a command failed\n"
    "  7    the script could not be read\n"
    "  8    the address to listen on could not be had\n"
    "  130  interrupted\n"
    "A diagnosis ends with 0 where nothing is wrong, else with the first stage that is:\n"
    "  20   nothing is known of the head: no table beside the plug-in\n"
    "  21   a device file          27   the FPGA\n"
    "  22   a GPIO line            28   the receiver's PLL\n"
    "  23   the supply monitor     29   a lane\n"
    "  24   the settings file      30   frame alignment\n"
    "  25   the sensor's port      31   exposure or interval\n"
    "  26   a supply               32   unknown to the table\n"
    "\n"
    "Example:\n"
    "  camhost -c init -c \"exposure 20000\"\n"
    "  camhost --plugin sensor_board_3u5mgxs.so --spi /dev/spidev1.0 -c init";

/// \return what bash is to know of the options
std::vector<tsOfferedOption> offeredOptions(const CLI::App& app) {
    std::vector<tsOfferedOption> offered;
    for (const CLI::Option* option : app.get_options()) {
        tsOfferedOption one{{}, option->get_type_name(), option->get_items_expected_max() > 0};
        for (const std::string& name : option->get_snames())
            one.names.push_back("-" + name);
        for (const std::string& name : option->get_lnames())
            one.names.push_back("--" + name);
        offered.push_back(one);
    }
    return offered;
}

void addOptions(CLI::App& app, tsOptions& options) {
    app.add_option("--plugin", options.plugin,
                   "Shared library of the sensor board; default: the installed one, if there is "
                   "one only")
        ->type_name("PLUGIN");
    app.add_option("--spi", options.spi,
                   "SPI device of the sensor; default: the usual one of the plug-in's boards")
        ->type_name("DEVICE");
    app.add_flag("--list", options.list,
                 "List installed plug-ins, SPI devices and named GPIO lines, and end");
    app.add_option("--workdir", options.workdir,
                   "Folder with the settings files that the board reads")
        ->type_name("FOLDER");
    app.add_option("--board-output", options.log,
                   "Where the board's status lines and the plug-in's own output go; - is standard "
                   "error. Standard output then carries replies only. What happens on the head's "
                   "devices is another matter: the log of virtual-head")
        ->type_name("FILE");
    app.add_option("-c,--command", options.commands,
                   "Command to carry out; may be given several "
                   "times")
        ->type_name("COMMAND")
        ->allow_extra_args(false);
    app.add_option("script", options.script, "File of commands, a line each; - is standard input")
        ->type_name("SCRIPT");
    app.add_flag("-i,--interactive", options.interactive,
                 "Ask for commands after those of the command line and the script");
    app.add_option("--listen", options.listen,
                   "Serve commands to TCP clients as well; only on this machine unless an address "
                   "is given. With commands or a script: after them")
        ->type_name("[ADDRESS:]PORT");
    app.add_flag("--keep-going", options.keepGoing, "Go on after a command that failed");
    CLI::Option* const diagnose =
        app.add_flag("--diagnose", options.diagnose,
                     "Examine the head, say what is wrong and what to measure, and end. Switches "
                     "nothing on, and makes no board");
    app.add_flag("--power", options.power,
                 "With --diagnose: bring the head up as well; it is off afterwards")
        ->needs(diagnose);
    diagnose->excludes("--command")
        ->excludes("script")
        ->excludes("--interactive")
        ->excludes("--listen");
    CLI::Option* const echo =
        app.add_flag("--echo", options.echo, "Print every command before its reply");
    app.add_flag("--json", options.json,
                 "Answer every command with one JSON object on a line; --list and --diagnose with "
                 "one. The board's output goes to standard error, unless --board-output names a "
                 "file")
        ->excludes(echo);
    app.add_flag_callback(
           "--print-completion",
           [&app] {
               std::cout << bashCompletion(offeredOptions(app), makeCommandTable());
               throw CLI::Success();
           },
           "Print the completion of this command line for bash, and end")
        ->trigger_on_parse();
}

} // namespace

std::optional<tsOptions> parseOptions(int argc, const char* const* argv, teExit& status) {
    tsOptions options;
    CLI::App app(kDescription, "camhost");
    app.set_version_flag("--version", "camhost " HEAD_VERSION, "Print the version and exit");
    app.footer(kFooter);
    addOptions(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const bool helped = app.exit(error) == 0;
        status = helped ? teExit::eSuccess : teExit::eUsage;
        return std::nullopt;
    }
    return options;
}

} // namespace camhost
