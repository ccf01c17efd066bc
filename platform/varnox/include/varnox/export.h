/// \file
/// Marks what leaves the shared host library.
#pragma once

/// Everything else is compiled with hidden visibility.
#define VARNOX_API __attribute__((visibility("default")))

/// For what a class keeps its insides in: an exported class exports its members, too.
#define VARNOX_LOCAL __attribute__((visibility("hidden")))
