/// \file
/// The camera head on wires: the virtual head's model behind the pins of an emulated board.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/head/model.h"

/// One head, from its power-up to the next one's.
///
/// It gets what its wires do, without knowing who drives them, and logs as the virtual head does:
/// the same happenings give the same lines. What a wire does not tell is not there: sleeps, opened
/// files, settings of the SPI port, a level that is set and was so before. Time is the board's.
/// Takes no lock: the emulator has one.
class tcWiredHead {
public:
    /// \param scenario  file; empty: a healthy head
    /// \param log       file, made anew
    /// \param timeNs    the board's time [ns]; the head counts from there
    /// \throws std::exception for a scenario that cannot be read or a log that cannot be written
    tcWiredHead(const std::string& scenario, const std::string& log, std::uint64_t timeNs);
    tcWiredHead(const tcWiredHead&) = delete;
    tcWiredHead& operator=(const tcWiredHead&) = delete;
    ~tcWiredHead();

    /// The board's time [ns], before any of the following.
    void timeIs(std::uint64_t timeNs);

    /// A pin of the GPIO chip is driven. \param offset of its line
    void pinDriven(unsigned offset, int level);
    /// The sensor's chip select. \param selected true: low
    void chipSelect(bool selected);
    /// A byte on the sensor's data line, highest bit first. Nobody listens while it is not
    /// selected.
    void spiByte(std::uint8_t byte);
    /// The address was sent. \param reads true: the chip shall send \return whether the chip
    /// acknowledges
    bool i2cStart(bool reads);
    void i2cByteWritten(std::uint8_t byte) { m_written.push_back(byte); }
    std::uint8_t i2cByteRead();
    void i2cStop();
    /// \param width [bytes]
    std::uint32_t load(std::uint32_t address, unsigned width);
    void store(std::uint32_t address, unsigned width, std::uint32_t value);

private:
    static sim::tsHeadOptions optionsFrom(const std::string& scenario);
    void endOfWrite();
    void set(std::uint32_t request, std::uint32_t value);

    static constexpr std::uint16_t kAdcAddress = 0x49;
    static constexpr std::size_t kConversion = 2; // bytes

    sim::tcModel m_model;
    std::uint64_t m_startNs;
    int m_log;
    std::array<int, 32> m_levels;      // -1: not driven yet
    std::vector<std::uint8_t> m_frame; // since the chip select fell
    bool m_selected = false;
    std::vector<std::uint8_t> m_written; // since the address
    std::array<std::uint8_t, kConversion> m_conversion{};
    std::size_t m_read = 0; // bytes of it
};
