/// \file
/// What the launcher ends with.
#pragma once

class tcPreparation;
struct tsArguments;
struct tsEnd;

inline constexpr int kUsageError = 2; ///< the command line, or a file that it names, is no use
// camhost, the usual program, ends with 0 to 8 and 20 to 32: nothing of the head may be taken for
// its own.
inline constexpr int kViolations = 9;   ///< the program succeeded, but broke a rule of the head
inline constexpr int kDiffers = 10;     ///< it did something else than the recording that is played
inline constexpr int kNoPictures = 11;  ///< it succeeded, but no picture came while it captured
inline constexpr int kNotStarted = 127; ///< it cannot be started; as shells have it

/// After a run. Recordings that no process has played are told, and captures without a picture.
/// \return the program's status, unless that is 0 and there is something to be said
[[nodiscard]] int exitStatus(const tsArguments& arguments, const tcPreparation& preparation,
                             const tsEnd& end);
