/// \file
/// An executor on a board without hardware.
#pragma once

#include <atomic>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "apps/camhost/executor.h"
#include "tests/apps/fake_board.h"
#include "tests/support/patience.h"

/// Carries out lines on a fake board. What board and log print goes nowhere.
class CamhostTest : public testing::Test {
protected:
    explicit CamhostTest(const std::string& device = "x") {
        testing::internal::CaptureStdout();
        head = std::make_unique<camhost::tcHead>(
            42, [device] { return std::make_unique<tcFakeBoard>(device); }, output);
        executor = std::make_unique<camhost::tcExecutor>(*head, table, output);
    }
    ~CamhostTest() override {
        head.reset();
        const std::string printed = testing::internal::GetCapturedStdout();
        if (HasFailure())
            std::cout << printed; // the failures are in it
    }

    /// \return the reply's text; a failure where it is none
    std::string reply(const std::string& line) {
        const camhost::tsReply got = run(line);
        EXPECT_TRUE(got.ok()) << line << ": " << got.text;
        return got.text;
    }

    /// \return the text of the refusal; a failure where it is none
    std::string refusal(const std::string& line) {
        const camhost::tsReply got = run(line);
        EXPECT_FALSE(got.ok()) << line << ": " << got.text;
        return got.text;
    }

    camhost::tsReply run(const std::string& line) {
        camhost::tsCaller caller;
        caller.line = [this](const std::string& text) {
            lines.push_back(text);
            ++shown;
        };
        caller.progress = [](const std::string&) {};
        return executor->execute(line, caller);
    }

    /// Waits, on another thread than the one that runs a command, for what the command does.
    template<class Condition>
    static void waitUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!condition()) { // asked no more once it holds: it may not hold for long
            if (std::chrono::steady_clock::now() > end) {
                ADD_FAILURE() << "waited in vain";
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }

    camhost::tcOutput output;
    camhost::tcCommandTable table = camhost::makeCommandTable();
    std::unique_ptr<camhost::tcHead> head;
    std::unique_ptr<camhost::tcExecutor> executor;
    std::vector<std::string> lines;    ///< that came before a reply
    std::atomic<std::size_t> shown{0}; ///< how many, for other threads
};
