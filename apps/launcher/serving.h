/// \file
/// The bench of a run, where the command line asks for one.
#pragma once

#include <optional>

#include "apps/launcher/command_line.h"
#include "apps/launcher/preparation.h"
#include "apps/live/live_run.h"

/// Serves a run, or does nothing. To be made before the program starts.
class tcServing {
public:
    /// Says where on standard error.
    /// \throws tcUsageError when it cannot listen there, or what is asked for makes no sense
    tcServing(const tsArguments& arguments, const tcPreparation& preparation);
    /// Where serving goes on, whoever wishes to end it from now on is heard in `waitForUser`.
    void programEnded(int status);
    /// Where serving goes on after the program's end: returns when the user ends it.
    void waitForUser() const;

private:
    bool m_keep;
    std::optional<live::tcLiveRun> m_run;
};
