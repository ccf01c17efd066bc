/// \file
/// Marks what leaves the virtual head's shared library.
#pragma once

/// Everything else is compiled with hidden visibility.
#define SIM_API __attribute__((visibility("default")))
