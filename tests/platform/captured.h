/// \file
/// What a piece of code prints.
#pragma once

#include <string>
#include <utility>

#include <gtest/gtest.h>

/// \return what is printed on standard error while `f` runs
template<typename F>
std::string stderrOf(F&& f) {
    testing::internal::CaptureStderr();
    std::forward<F>(f)();
    return testing::internal::GetCapturedStderr();
}

/// \return what is printed on standard output while `f` runs
template<typename F>
std::string stdoutOf(F&& f) {
    testing::internal::CaptureStdout();
    std::forward<F>(f)();
    return testing::internal::GetCapturedStdout();
}
