/// \file
/// Stands before the C library's `open`, `fopen` and `read`, and refuses files, or breaks their
/// reading off, with any errno: some come from disks and networks that no test has, others not to
/// the superuser.
#pragma once

#include <cstdint>
#include <string>

/// Counts the openings of the file from now on, and lets them be. \param path as the program says
/// it
void watchOpening(const std::string& path);
/// \return how often the file was opened since it was named here last, refused openings included
std::uint64_t opensOf(const std::string& path);

/// From now on the file cannot be opened.
/// \param path  as the program says it
/// \param error errno
/// \param nth   this opening alone, from 1; 0: every one
void refuseOpening(const std::string& path, int error, std::uint64_t nth = 0);

/// From now on whoever opens the file gets half of it with the first `read`; then reading fails:
/// for EINTR once, with another errno for good.
/// \param path  as the program says it. An INI file is read through a stream of the C library's
/// \param error errno; 0: nothing fails, but each `read` gives seven bytes at most
void breakReading(const std::string& path, int error);

/// The file can be opened and read again.
void allowOpening(const std::string& path);
/// \return whether the file was refused, or broken off, since it was named here last
bool wasRefused(const std::string& path);
