/// \file
/// What the launcher's user got wrong.
#pragma once

#include <stdexcept>

/// The command line or a file that it names is no use; the text says which and why. Nothing has
/// been started.
class tcUsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
