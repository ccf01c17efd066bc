// Runs a program on the virtual head: preloads the head's library, waits for the program, and says
// what the head saw.

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <link.h>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/kept_output.h"
#include "sim/drawing.h"
#include "sim/frame_writer.h"
#include "sim/launch.h"
#include "sim/recording.h"
#include "sim/report.h"
#include "sim/trace.h"
#include "sim/virtual_head.h"
#include "sim/waveform.h"

namespace {

namespace fs = std::filesystem;

constexpr int kUsageError = 2;
// camhost, the usual program, ends with 0 to 8: nothing of the head may be taken for its own.
constexpr int kViolations = 9;
constexpr int kDiffers = 10; // from the recording that is played
constexpr int kNotStarted = 127;
constexpr int kKilledBase = 128; // plus the signal, as shells say it

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

// Something that the user got wrong.
class tcUsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A directory that is removed with everything in it.
class tcTemporaryFolder {
public:
    tcTemporaryFolder() {
        std::string name = (fs::temp_directory_path() / "virtual-head-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error(name + ": " + std::strerror(errno));
        }
        m_path = name;
    }
    tcTemporaryFolder(const tcTemporaryFolder&) = delete;
    tcTemporaryFolder& operator=(const tcTemporaryFolder&) = delete;
    ~tcTemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    [[nodiscard]] const fs::path& path() const { return m_path; }

private:
    fs::path m_path;
};

// The head's library, wherever this program was linked to it.
std::string libraryPath() {
    auto* function = &sim::aVirtualHead;
    void* address = nullptr;
    static_assert(sizeof function == sizeof address);
    std::memcpy(&address, &function, sizeof address);
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) {
        throw std::runtime_error("the virtual head's library cannot be found");
    }
    return fs::canonical(info.dli_fname).string();
}

int collectSanitizer(dl_phdr_info* info, std::size_t, void* user) {
    const std::string_view name = info->dlpi_name;
    if (name.find("/libasan.so") != std::string_view::npos ||
        name.find("/libtsan.so") != std::string_view::npos) {
        static_cast<std::vector<std::string>*>(user)->emplace_back(name);
    }
    return 0;
}

// A sanitizer's runtime must be the first library of a program.
std::string preloadList() {
    std::vector<std::string> libraries;
    dl_iterate_phdr(collectSanitizer, &libraries);
    libraries.push_back(libraryPath());
    if (const char* before = std::getenv("LD_PRELOAD"); before != nullptr && *before != '\0') {
        libraries.emplace_back(before);
    }
    std::string list;
    for (const std::string& library : libraries) {
        list += (list.empty() ? "" : ":") + library;
    }
    return list;
}

// Links to everything in `from`, with the scenario's files in the place of those they replace.
void layOut(const fs::path& from, const fs::path& to,
            const std::vector<sim::tsReplacedFile>& replaced) {
    fs::create_directory(to);
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        fs::create_symlink(fs::absolute(entry.path()), to / entry.path().filename());
    }
    for (const sim::tsReplacedFile& file : replaced) {
        fs::remove(to / file.name);
        fs::create_symlink(file.path, to / file.name);
    }
}

volatile std::sig_atomic_t s_child = 0;

void passOn(int number) {
    if (s_child > 0) {
        kill(static_cast<pid_t>(s_child), number);
    }
}

// Ctrl-C reaches the program by itself; other wishes to end are passed on to it.
void leaveSignalsToChild() {
    struct sigaction action {};
    action.sa_handler = passOn;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGHUP, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGQUIT, &action, nullptr);
}

void setVariable(const char* name, const std::string& value) {
    if (value.empty()) {
        unsetenv(name);
    } else {
        setenv(name, value.c_str(), 1);
    }
}

// What the program's process is told, by environment variables.
struct tsOrders {
    std::string preload;
    std::string scenario;
    std::string time;
    std::string log;
    std::string trace;
    std::string report;
    std::string verdict;
    std::string frames;
    std::string maxFrames;
    std::string record;
    std::string replay;
    std::string claims;
    bool hardware = false;
};

[[noreturn]] void becomeProgram(const std::vector<std::string>& program, const fs::path& folder,
                                const tsOrders& orders, int errorChannel,
                                const tcKeptOutput* output) {
    using namespace sim::launch;
    if (output != nullptr) {
        output->take();
    }
    setVariable(kPreloaded, std::to_string(getpid()));
    setVariable(kScenario, orders.scenario);
    setVariable(kTime, orders.time);
    setVariable(kLog, orders.log);
    setVariable(kFrames, orders.frames);
    setVariable(kMaxFrames, orders.maxFrames);
    setVariable(kRecord, orders.record);
    setVariable(kReplay, orders.replay);
    setVariable(kClaims, orders.claims);
    setVariable(kHardware, orders.hardware ? "1" : "");
    setVariable(kTrace, orders.trace);
    setVariable(kReport, orders.report);
    setVariable(kVerdict, orders.verdict);
    setVariable("LD_PRELOAD", orders.preload);
    std::vector<std::string> words = program;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    if (chdir(folder.c_str()) == 0) {
        execvp(arguments[0], arguments.data());
    }
    const int error = errno;
    if (write(errorChannel, &error, sizeof error) != sizeof error) {
        std::cerr << "virtual-head: " << std::strerror(error) << std::endl;
    }
    _exit(kNotStarted);
}

// Starts the program. \param output keeps what it prints; null: nobody does \return 0 or errno
int startProgram(const std::vector<std::string>& program, const fs::path& folder,
                 const tsOrders& orders, tcKeptOutput* output, pid_t& child) {
    std::array<int, 2> channel{};
    if (pipe2(channel.data(), O_CLOEXEC) != 0) {
        return errno;
    }
    child = fork();
    if (child < 0) {
        return errno;
    }
    if (child == 0) {
        becomeProgram(program, folder, orders, channel[1], output);
    }
    s_child = child;
    leaveSignalsToChild();
    if (output != nullptr) {
        output->begin();
    }
    close(channel[1]);
    int error = 0;
    const bool failed = read(channel[0], &error, sizeof error) == sizeof error;
    close(channel[0]);
    return failed ? error : 0;
}

int waitFor(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kKilledBase + WTERMSIG(status);
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// What the program's processes wrote, each into a file of its own.
std::set<fs::path> filesOf(const fs::path& folder, const std::string& prefix) {
    std::set<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with(prefix)) {
            files.insert(entry.path());
        }
    }
    return files;
}

std::string allOf(const fs::path& folder, const std::string& prefix) {
    std::string text;
    for (const fs::path& file : filesOf(folder, prefix)) {
        text += contentOf(file);
    }
    return text;
}

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
        std::ofstream file(where);
        if (!(file << text << std::flush)) {
            throw std::runtime_error(where + ": cannot be written");
        }
    }
}

std::string absolute(const std::string& path) {
    return path.empty() ? path : fs::absolute(path).string();
}

// The program as its process will find it after changing the folder.
std::vector<std::string> resolved(std::vector<std::string> program) {
    if (program.front().find('/') != std::string::npos) {
        program.front() = fs::absolute(program.front()).string();
    }
    return program;
}

// A file that cannot be written is told before the program runs, not after.
void startFile(const std::string& path) {
    if (!path.empty() && !std::ofstream(path)) {
        throw tcUsageError(path + ": cannot be written");
    }
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
        return sim::tcFrameWriter(arguments.scenario, arguments.scene);
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

void write(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    if (!(file << text << std::flush)) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

// One file a process: FILE, and FILE.2, FILE.3 when the program started others that used the head.
template<class Convert>
void writeEach(const std::string& path, const std::vector<tsTrace>& traces, Convert convert) {
    for (std::size_t at = 0; at < traces.size() && !path.empty(); ++at) {
        write(at == 0 ? path : path + "." + std::to_string(at + 1),
              convert(sim::parseTrace(traces[at].text), traces[at].process));
    }
}

// The recordings of a run: FILE, FILE.2, ... one a process.
std::string recordingOf(const std::string& path, unsigned process) {
    return process == 1 ? path : path + "." + std::to_string(process);
}

// Recordings of an earlier run would be taken for this one's.
void clearRecordings(const std::string& path) {
    startFile(path);
    for (unsigned process = 1; !path.empty() && fs::remove(recordingOf(path, process)); ++process) {
    }
}

void checkRecordings(const std::string& path) {
    for (unsigned process = 1; process == 1 || fs::exists(recordingOf(path, process)); ++process) {
        try {
            static_cast<void>(sim::readRecording(recordingOf(path, process)));
        } catch (const std::runtime_error& error) {
            throw tcUsageError(error.what());
        }
    }
}

// \return a line for each recording that no process of the program has played
std::string unplayed(const std::string& path, const std::string& claims) {
    std::string text;
    for (unsigned process = 1; fs::exists(recordingOf(path, process)); ++process) {
        if (!fs::exists(recordingOf(claims, process))) {
            text += "virtual-head: " + recordingOf(path, process) +
                    ": not played: no process of the program opened a device\n";
        }
    }
    return text;
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
    // A program at a terminal keeps it.
    std::optional<tcKeptOutput> output;
    if (!arguments.report.empty() && isatty(STDOUT_FILENO) == 0) {
        output.emplace();
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
        write(picture, sim::drawing(contentOf(dump)));
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
