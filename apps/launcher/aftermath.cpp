#include "apps/launcher/aftermath.h"

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>

#include "apps/launcher/exit_status.h"
#include "apps/launcher/files.h"
#include "apps/launcher/known_failures.h"
#include "apps/launcher/traces.h"
#include "sim/after/overview.h"
#include "sim/after/report.h"
#include "sim/after/trace_reader.h"
#include "sim/after/waveform.h"
#include "sim/base/launch.h"

namespace fs = std::filesystem;

namespace {

void say(const std::string& where, const std::string& text) {
    if (where.empty()) {
        std::cerr << text << std::flush;
    } else if (where == "-") {
        std::cout << text << std::flush;
    } else {
        writeFile(where, text);
    }
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

// As a shell takes it; words that it would take apart or change stand in quotes.
std::string commandOf(const std::vector<std::string>& program) {
    constexpr const char* plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./:=,+@%";
    std::string text;
    for (const std::string& word : program) {
        const bool quoted = word.empty() || word.find_first_not_of(plain) != std::string::npos;
        text += (text.empty() ? "" : " ") + (quoted ? "'" + word + "'" : word);
    }
    return text;
}

sim::tsRunFacts factsOf(const tsArguments& arguments, const tcPreparation& preparation,
                        const tsEnd& end, pid_t process) {
    sim::tsRunFacts facts;
    facts.command = commandOf(arguments.program);
    facts.version = "virtual-head " HEAD_VERSION;
    facts.scenario = arguments.scenario;
    facts.scenarioText = arguments.scenario.empty() ? "" : contentOf(arguments.scenario);
    facts.printed = end.printed;
    facts.status = end.status;
    const auto left = [&](const char* name) {
        return contentOf(preparation.leftovers() / (name + std::to_string(process)));
    };
    if (const std::string delivered = left("delivered."); !delivered.empty()) {
        facts.pictures = std::stoull(delivered);
    }
    std::istringstream silences(left("silences."));
    for (std::string line; std::getline(silences, line);) {
        facts.silences.push_back(line);
    }
    facts.known = knownFailures();
    return facts;
}

// The picture files of a process, as one finds them from here.
std::vector<std::string> filesIn(const std::string& folder, const tcPictures& pictures,
                                 pid_t process) {
    std::vector<std::string> files;
    if (const auto made = pictures.find(process); made != pictures.end()) {
        for (const sim::tsThumbnail& picture : made->second) {
            files.push_back((fs::path(folder) / picture.file).string());
        }
    }
    return files;
}

} // namespace

void writeSummary(const tsArguments& arguments, const tcPreparation& preparation,
                  const tsEnd& end) {
    std::string summary = allOf(preparation.leftovers(), "report.");
    const bool saysItself = !arguments.replay.empty() && end.status == kDiffers;
    if (summary.empty() && !saysItself) {
        summary = "what the virtual head saw\n  unknown: the program was killed, or did not load "
                  "the head's library (is it\n  statically linked?)\n";
    }
    if (!arguments.overview || !arguments.summary.empty()) {
        say(arguments.summary, summary);
    }
}

tcPictures writePictures(const tsArguments& arguments, tcPreparation& preparation) {
    tcPictures pictures;
    if (!preparation.pictures()) {
        return pictures;
    }
    for (const fs::path& recording : filesOf(preparation.leftovers(), "frames.")) {
        const auto process =
            static_cast<pid_t>(std::stol(recording.extension().string().substr(1)));
        pictures[process] = preparation.pictures()->write(recording.string(), arguments.frames);
    }
    return pictures;
}

void writeAfterwards(const tsArguments& arguments, const tcPreparation& preparation,
                     const tsEnd& end, const tcPictures& pictures) {
    if (!wantsTrace(arguments)) {
        return;
    }
    const std::vector<tsTrace> traces = tracesIn(preparation.leftovers(), end.process);
    writeEach(arguments.vcd, traces, [](const auto& trace, pid_t) { return sim::waveform(trace); });
    writeEach(arguments.report, traces, [&](const auto& trace, pid_t process) {
        const auto made = pictures.find(process);
        return sim::report(trace,
                           made != pictures.end() ? made->second : std::vector<sim::tsThumbnail>(),
                           factsOf(arguments, preparation, end, process));
    });
    if (arguments.overview) {
        const pid_t process = traces.front().process;
        std::cout << sim::overview(sim::parseTrace(traces.front().text),
                                   factsOf(arguments, preparation, end, process),
                                   filesIn(arguments.frames, pictures, process))
                  << std::flush;
    }
}
