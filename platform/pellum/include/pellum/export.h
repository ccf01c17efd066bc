/// \file
/// Marks what leaves the shared board-support library.
#pragma once

/// Everything else is compiled with hidden visibility.
#define PELLUM_API __attribute__((visibility("default")))
