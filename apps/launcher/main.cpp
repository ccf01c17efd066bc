// Runs a program on the virtual head: preloads the head's library, waits for the program, and says
// what the head saw.

#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>

#include "apps/launcher/aftermath.h"
#include "apps/launcher/command_line.h"
#include "apps/launcher/draw.h"
#include "apps/launcher/exit_status.h"
#include "apps/launcher/preparation.h"
#include "apps/launcher/reference_pages.h"
#include "apps/launcher/run.h"
#include "apps/launcher/serving.h"
#include "apps/launcher/usage_error.h"

namespace {

// \return the exit status; throws what cannot be read or started
int runOnHead(const tsArguments& arguments) {
    tcPreparation preparation(arguments);
    tcServing serving(arguments, preparation);
    const tsEnd end = runProgram(arguments, preparation);
    serving.programEnded(end.status);
    if (end.error != 0) {
        std::cerr << "virtual-head: " << arguments.program.front() << ": "
                  << std::strerror(end.error) << std::endl;
        return kNotStarted;
    }
    writeSummary(arguments, preparation, end);
    const tcPictures pictures = writePictures(arguments, preparation);
    writeAfterwards(arguments, preparation, end, pictures);
    serving.waitForUser();
    return exitStatus(arguments, preparation, end);
}

// Does what the command line asks for. \return the exit status; throws what cannot be read or
// started
int obey(int count, char** values) {
    tsArguments arguments;
    if (const std::optional<int> ended = readCommandLine(count, values, arguments)) {
        return *ended;
    }
    if (printReferencePages(arguments)) {
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
    if (!arguments.scene.empty() && arguments.frames.empty() && arguments.serve.empty()) {
        throw tcUsageError("--scene needs --frames or --serve: nobody looks at a picture");
    }
    return runOnHead(arguments);
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
