/// \file
/// A sensor driver on a virtual head, with its output in the head's trace.
#pragma once

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sensor/sensor.h"
#include "sim/virtual_head.h"
#include "tests/support/file_watch.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/traced_output.h"

/// What hardware and user see: everything but the opening and closing of device files.
inline constexpr sim::tcKinds kSeen =
    sim::teEventKind::spi | sim::teEventKind::spiSetting | sim::teEventKind::gpio |
    sim::teEventKind::adc | sim::teEventKind::adcCommand | sim::teEventKind::sleep |
    sim::teEventKind::note | sim::teEventKind::read | sim::teEventKind::write;

using tcLines = std::vector<std::string>;

/// \return the lines of one after the other.
inline tcLines operator+(tcLines one, const tcLines& other) {
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

/// \return the trace line of one register write, byte by byte: value bits 7..0; value bits 15..8;
///         address bits 1..0 above value bits 21..16; address bits 9..2
inline std::string registerWrite(unsigned int address, unsigned int value) {
    char text[16] = {};
    std::snprintf(text, sizeof text, "SPI %02X %02X %02X %02X", value % 256, value / 256 % 256,
                  address % 4 * 64 + value / 65536 % 64, address / 4 % 256);
    return text;
}

/// Makes a healthy head, an empty working directory and, on demand, the driver.
///
/// "NOTE OUT text" and "NOTE ERR text" stand in the trace for each piece of output, line ends as
/// "\n". Broken rules of the head are not printed: tests of single operations write registers of a
/// sensor that sleeps, and values that no sensor takes. Tests of whole sequences ask for them.
class tcSensorFixture : public testing::Test {
protected:
    tcSensorFixture()
        : m_head(sim::aVirtualHead().withQuietViolations().build()),
          m_out(std::cout, [this](const std::string& text) { note("OUT ", text); }),
          m_err(std::cerr, [this](const std::string& text) { note("ERR ", text); }) {}

    /// Replaces the healthy head. Call before the driver is made.
    void useHead(sim::tcVirtualHeadBuilder& builder) {
        m_head.reset(); // a process has one head at a time
        m_head.emplace(builder.withQuietViolations().build());
    }

    tc3U5MGXS& makeSensor(const std::string& path = "/dev/spidev1.0") {
        m_sensor = std::make_unique<tc3U5MGXS>(path);
        forget();
        return *m_sensor;
    }

    /// A driver whose sensor is powered and listens; no settings file, so that the shadow copy
    /// holds register 0x10 alone.
    tc3U5MGXS& makePoweredSensor() {
        makeSensor();
        EXPECT_EQ(m_sensor->powerUp(), 0);
        forget();
        return *m_sensor;
    }

    void destroySensor() { m_sensor.reset(); }

    /// Empties log and gathered output.
    void forget() {
        m_head->clearLog();
        m_out.clear();
        m_err.clear();
    }

    template<class Operation>
    std::vector<std::string> trace(Operation operation, sim::tcKinds kinds = kSeen) {
        forget();
        operation();
        return m_head->lines(kinds);
    }

    /// \return the shadow copy's value; empty when the register is absent from it
    std::optional<unsigned int> shadow(unsigned short address) {
        unsigned int value = 0;
        if (m_sensor->readShadowRegister(address, value) != 0) {
            return std::nullopt;
        }
        return value;
    }

    sim::tcVirtualHead& head() { return *m_head; }
    tc3U5MGXS& sensor() { return *m_sensor; }
    tcTemporaryDirectory& directory() { return m_directory; }
    tcTracedOutput& out() { return m_out; }
    tcTracedOutput& err() { return m_err; }

    void note(const char* stream, std::string text) {
        for (auto at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 2)) {
            text.replace(at, 1, "\\n");
        }
        m_head->note(stream + text);
    }

    /// "NOTE OPENED name" and "NOTE CLOSED name" for what happened to files since the last time.
    void noteEvents(tcFileWatch& files) {
        for (const std::string& event : files.take()) {
            m_head->note(event);
        }
    }

private:
    tcTemporaryDirectory m_directory;
    std::optional<sim::tcVirtualHead> m_head;
    tcTracedOutput m_out;
    tcTracedOutput m_err;
    std::unique_ptr<tc3U5MGXS> m_sensor;
};
