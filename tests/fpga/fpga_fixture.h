/// \file
/// FPGA objects on a virtual head, with their output in the head's trace.
#pragma once

#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/virtual_head.h"
#include "tests/support/traced_output.h"

/// "NOTE OUT text" and "NOTE ERR text" stand in the trace for each piece of output.
class tcFpgaFixture : public testing::Test {
protected:
    tcFpgaFixture()
        : m_head(sim::aVirtualHead().build()),
          m_out(std::cout, [this](const std::string& text) { note("OUT ", text); }),
          m_err(std::cerr, [this](const std::string& text) { note("ERR ", text); }) {}

    void useHead(sim::tcVirtualHeadBuilder& builder) {
        m_head.reset(); // a process has one head at a time
        m_head.emplace(builder.build());
    }

    template<class Operation>
    std::vector<std::string> trace(Operation operation, sim::tcKinds kinds = sim::tcKinds::all()) {
        m_head->clearLog();
        operation();
        return m_head->lines(kinds);
    }

    sim::tcVirtualHead& head() { return *m_head; }
    tcTracedOutput& out() { return m_out; }
    tcTracedOutput& err() { return m_err; }

private:
    void note(const char* stream, std::string text) {
        for (auto at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2)) {
            text.replace(at, 1, "\\n");
        }
        m_head->note(stream + text);
    }

    std::optional<sim::tcVirtualHead> m_head;
    tcTracedOutput m_out;
    tcTracedOutput m_err;
};
