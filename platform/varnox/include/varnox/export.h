/// \file
/// Marks what leaves the shared host library.
#pragma once

/// Everything else is compiled with hidden visibility.
#define VARNOX_API __attribute__((visibility("default")))
