#include "apps/launcher/aftermath.h"

#include <filesystem>
#include <iostream>
#include <string>

#include "apps/launcher/exit_status.h"
#include "apps/launcher/files.h"
#include "apps/launcher/traces.h"
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

} // namespace

void writeSummary(const tsArguments& arguments, const tcPreparation& preparation,
                  const tsEnd& end) {
    std::string summary = allOf(preparation.leftovers(), "report.");
    const bool saysItself = !arguments.replay.empty() && end.status == kDiffers;
    if (summary.empty() && !saysItself) {
        summary = "what the virtual head saw\n  unknown: the program was killed, or did not load "
                  "the head's library (is it\n  statically linked?)\n";
    }
    say(arguments.summary, summary);
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

void writeWaveformAndReport(const tsArguments& arguments, const tcPreparation& preparation,
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
                           end.printed);
    });
}
