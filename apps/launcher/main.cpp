// Runs a program on the virtual head: preloads the head's library, waits for the program, and says
// what the head saw.

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/launcher/child.h"
#include "apps/launcher/files.h"
#include "apps/launcher/kept_output.h"
#include "apps/launcher/recordings.h"
#include "apps/launcher/usage_error.h"
#include "sim/after/drawing.h"
#include "sim/after/report.h"
#include "sim/after/trace_reader.h"
#include "sim/after/waveform.h"
#include "sim/base/launch.h"
#include "sim/scenario/scenario_pictures.h"
#include "sim/virtual_head.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUsageError = 2;
// camhost, the usual program, ends with 0 to 8: nothing of the head may be taken for its own.
constexpr int kViolations = 9;
constexpr int kDiffers = 10; // from the recording that is played

struct tsArguments {
    std::string scenario;
    std::string workdir;
    std::string log;
    std::string summary;
    std::string vcd;
    std::string report;
    std::vector<std::string> draw; // dump, picture
    std::string time;
    std::string frames;
    unsigned maxFrames = 10;
    std::string scene;
    std::string record;
    std::string replay;
    bool hardware = false;
    bool printRegisters = false;
    bool printRules = false;
    bool printScenarioKeys = false;
    std::vector<std::string> program; // with its arguments
};

unsigned long long sumOf(const std::string& counts) {
    std::istringstream stream(counts);
    unsigned long long sum = 0;
    for (unsigned long long count = 0; stream >> count;) {
        sum += count;
    }
    return sum;
}

void say(const std::string& where, const std::string& text) {
    if (where.empty()) {
        std::cerr << text << std::flush;
    } else if (where == "-") {
        std::cout << text << std::flush;
    } else {
        writeFile(where, text);
    }
}

// The program as its process will find it after changing the folder.
std::vector<std::string> resolved(std::vector<std::string> program) {
    if (program.front().find('/') != std::string::npos) {
        program.front() = fs::absolute(program.front()).string();
    }
    return program;
}

// Whatever is wrong with scene and folder is said before the program starts.
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

// What a process of the program left.
struct tsTrace {
    pid_t process = 0;
    std::string text;
};

// The traces of the processes that used the head, the program's own first.
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

// One file a process.
template<class Convert>
void writeEach(const std::string& path, const std::vector<tsTrace>& traces, Convert convert) {
    unsigned process = 0;
    for (const tsTrace& trace : traces) {
        ++process;
        if (!path.empty()) {
            writeFile(sim::launch::fileOfProcess(path, process),
                      convert(sim::parseTrace(trace.text), trace.process));
        }
    }
}

// The status of a program that was answered from a recording.
int statusOfReplay(const tsArguments& arguments, const tsOrders& orders, int status,
                   bool cutShort) {
    const std::string left = unplayed(arguments.replay, orders.claims);
    std::cerr << left << std::flush;
    const bool differs = cutShort || !left.empty();
    return status == 0 && differs ? kDiffers : status;
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

// By process.
using tcPictures = std::map<pid_t, std::vector<sim::tsThumbnail>>;

tcPictures writePictures(const fs::path& recordings, sim::tcFrameWriter& writer,
                         const std::string& folder) {
    tcPictures pictures;
    for (const fs::path& recording : filesOf(recordings, "frames.")) {
        const auto process =
            static_cast<pid_t>(std::stol(recording.extension().string().substr(1)));
        pictures[process] = writer.write(recording.string(), folder);
    }
    return pictures;
}

bool wantsTrace(const tsArguments& arguments) {
    return !arguments.vcd.empty() || !arguments.report.empty();
}

// A run is worth more than its page's clamps: without a pseudo-terminal the page says so.
void keep(std::optional<tcKeptOutput>& output) {
    try {
        output.emplace();
    } catch (const std::runtime_error&) {
        output.reset();
    }
}

int run(const tsArguments& arguments) {
    std::vector<sim::tsReplacedFile> replaced;
    if (!arguments.scenario.empty()) {
        try {
            replaced = sim::replacedFiles(arguments.scenario);
        } catch (const std::runtime_error& error) {
            throw tcUsageError(error.what());
        }
    }
    std::optional<sim::tcFrameWriter> writer = frameWriter(arguments);
    const tcTemporaryFolder temporary;
    fs::path folder = arguments.workdir.empty() ? fs::current_path() : fs::path(arguments.workdir);
    if (!fs::is_directory(folder)) {
        throw tcUsageError(folder.string() + ": no such directory");
    }
    if (!replaced.empty()) {
        layOut(folder, temporary.path() / "work", replaced);
        folder = temporary.path() / "work";
    }
    clearRecordings(arguments.record);
    if (!arguments.replay.empty()) {
        checkRecordings(arguments.replay);
    }
    startFile(arguments.log);
    startFile(arguments.vcd);
    startFile(arguments.report);
    clearPictures(arguments.frames);
    const tsOrders orders{preloadList(),
                          absolute(arguments.scenario),
                          arguments.time,
                          absolute(arguments.log),
                          wantsTrace(arguments) ? (temporary.path() / "trace").string() : "",
                          (temporary.path() / "report").string(),
                          (temporary.path() / "verdict").string(),
                          writer ? (temporary.path() / "frames").string() : "",
                          std::to_string(arguments.maxFrames),
                          absolute(arguments.record),
                          absolute(arguments.replay),
                          (temporary.path() / "played").string(),
                          arguments.hardware};
    std::optional<tcKeptOutput> output;
    if (!arguments.report.empty()) {
        keep(output);
    }
    pid_t child = 0;
    const int error = startProgram(resolved(arguments.program), folder, orders,
                                   output ? &*output : nullptr, child);
    const int status = waitFor(child);
    const std::optional<std::string> printed =
        output ? std::optional(output->finish()) : std::nullopt;
    if (error != 0) {
        std::cerr << "virtual-head: " << arguments.program.front() << ": " << std::strerror(error)
                  << std::endl;
        return kNotStarted;
    }
    std::string report = allOf(temporary.path(), "report.");
    const bool saysItself = !arguments.replay.empty() && status == kDiffers;
    if (report.empty() && !saysItself) {
        report = "what the virtual head saw\n  unknown: the program was killed, or did not load "
                 "the head's library (is it\n  statically linked?)\n";
    }
    say(arguments.summary, report);
    tcPictures pictures;
    if (writer) {
        pictures = writePictures(temporary.path(), *writer, arguments.frames);
    }
    if (wantsTrace(arguments)) {
        const std::vector<tsTrace> traces = tracesIn(temporary.path(), child);
        writeEach(arguments.vcd, traces,
                  [](const auto& trace, pid_t) { return sim::waveform(trace); });
        writeEach(arguments.report, traces, [&](const auto& trace, pid_t process) {
            return sim::report(trace, pictures[process], printed);
        });
    }
    const bool violated = sumOf(allOf(temporary.path(), "verdict.")) != 0;
    if (!arguments.replay.empty()) {
        return statusOfReplay(arguments, orders, status, violated);
    }
    return status == 0 && violated ? kViolations : status;
}

void declare(CLI::App& app, tsArguments& arguments) {
    app.add_option("--scenario", arguments.scenario, "INI file that says what is wrong");
    app.add_option("--workdir", arguments.workdir, "the program's working directory");
    app.add_option("--log", arguments.log, "file for every event, one a line");
    app.add_option("--summary", arguments.summary,
                   "file for the summary, - for standard output; default: standard error");
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
                   "PNG picture before the sensor; default: the scenario's, or the test chart")
        ->needs(frames);
    auto* const record =
        app.add_option("--record", arguments.record, "file for every call on the device files");
    auto* const replay =
        app.add_option("--replay", arguments.replay, "recording that answers in place of the head");
    auto* const hardware = app.add_flag("--hardware", arguments.hardware,
                                        "record the machine's own devices, no virtual head");
    hardware->needs(record);
    // Without a model there is nothing wrong with it, and nothing to be seen of it.
    for (const char* modelled :
         {"--scenario", "--log", "--vcd", "--report", "--time", "--frames"}) {
        app.get_option(modelled)->excludes(replay)->excludes(hardware);
    }
    record->excludes(replay);
    app.add_flag("--print-registers", arguments.printRegisters, "print the register reference");
    app.add_flag("--print-rules", arguments.printRules, "print the rules of the head");
    app.add_flag("--print-scenario-keys", arguments.printScenarioKeys,
                 "print the keys of a scenario");
    app.footer("Usage: virtual-head [OPTIONS] -- PROGRAM [ARGUMENTS]\n"
               "Exit status: the program's; 9 when that is 0 and a rule of the head was broken;\n"
               "10 when that is 0 and the program did not do all that the recording says;\n"
               "2 for wrong usage; 127 when the program cannot be started.");
}

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

bool print(const tsArguments& arguments) {
    if (arguments.printRegisters) {
        std::cout << sim::registersMarkdown();
    }
    if (arguments.printRules) {
        std::cout << sim::rulesMarkdown();
    }
    if (arguments.printScenarioKeys) {
        std::cout << sim::scenarioKeysMarkdown();
    }
    return arguments.printRegisters || arguments.printRules || arguments.printScenarioKeys;
}

// Does what the command line asks for. \return the exit status; throws what cannot be read or
// started
int obey(int count, char** values) {
    tsArguments arguments;
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
    if (print(arguments)) {
        return EXIT_SUCCESS;
    }
    if (!arguments.draw.empty()) {
        draw(arguments.draw[0], arguments.draw[1]);
        return EXIT_SUCCESS;
    }
    if (arguments.program.empty()) {
        throw tcUsageError("no program given; usage: virtual-head [OPTIONS] -- PROGRAM "
                           "[ARGUMENTS]");
    }
    return run(arguments);
}

} // namespace

int main(int count, char** values) {
    try {
        return obey(count, values);
    } catch (const tcUsageError& error) {
        std::cerr << "virtual-head: " << error.what() << std::endl;
        return kUsageError;
    } catch (const std::exception& error) {
        std::cerr << "virtual-head: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
