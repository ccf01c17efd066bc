/// \file
/// Stands before the C library's `mmap` and keeps the file offsets of shared mappings: the virtual
/// head takes the lowest 32 bits of one, a kernel all of it.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <vector>

/// The `mmap` that was called, and with which offset.
struct tsMapCall {
    bool wide = false; ///< `mmap64`, or an `off_t` of 64 bits
    std::int64_t offset = 0;
    bool operator==(const tsMapCall&) const = default;
};

/// How a failing test shows a call.
void PrintTo(const tsMapCall& call, std::ostream* stream);

/// \return the calls since the last time
std::vector<tsMapCall> takeMapCalls();
