/// \file
/// How long a test waits for what must come.
#pragma once

#include <chrono>

/// A limit that only a hang reaches: the slowest emulator on a machine with other work beside it is
/// far from it. CTest ends a test after three times as long (HEAD_HANG in tests/CMakeLists.txt).
inline constexpr std::chrono::minutes kPatience{10};

/// The same for `poll`.
inline constexpr int kPatienceMs = std::chrono::milliseconds(kPatience).count();
