/// \file
/// Marks what leaves the shared board-support library.
#pragma once

/// Everything else is compiled with hidden visibility.
#define PELLUM_API __attribute__((visibility("default")))

/// For what a class keeps its insides in: an exported class exports its members, too.
#define PELLUM_LOCAL __attribute__((visibility("hidden")))
