// Tests that pass, fail, and end their process in every way: for run_tests_test.py.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(Good, Passes) {}

TEST(Good, PrintsLikeAnEnd) {
    std::puts("[       OK ] Good.PrintsLikeAnEnd2 (0 ms)");
    std::fputs("no newline", stdout);
}

TEST(Bad, Fails) {
    ADD_FAILURE() << "seven";
}

TEST(Bad, BreaksMemory) {
    std::fputs("before the signal", stderr);
    std::raise(SIGSEGV);
}

TEST(Bad, Aborts) {
    std::abort();
}

TEST(Bad, EndsTheProcessAsIfAllWereWell) {
    ::_exit(0);
}

TEST(Bad, Hangs) {
    for (;;)
        ::pause();
}

TEST(Good, PassesAfterAllThat) {}

TEST(Skips, SaysSo) {
    GTEST_SKIP() << "not here";
}

TEST(Off, DISABLED_NeverRuns) {
    FAIL();
}

class Numbers : public testing::TestWithParam<int> {};

TEST_P(Numbers, AreOdd) {
    EXPECT_EQ(GetParam() % 2, 1);
}

INSTANTIATE_TEST_SUITE_P(Some, Numbers, testing::Values(1, 2, 3));

// Leaves a status, although every test passed: what a leak checker does.
TEST(Late, EndsBadly) {
    if (std::getenv("END_BADLY") != nullptr)
        std::atexit([] { ::_exit(23); });
}

} // namespace
