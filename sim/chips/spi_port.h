/// \file
/// The SPI port that the sensor hangs on, as spidev shows it.
#pragma once

#include <cstdint>
#include <linux/spi/spidev.h>
#include <span>

#include "sim/base/calls.h"
#include "sim/base/write_fates.h"
#include "sim/chips/conditions.h"
#include "sim/journal/journal.h"

namespace sim {

/// What hangs on the port's wires, and takes words of 32 bits.
class tcSpiPeripheral {
public:
    tcSpiPeripheral() = default;
    tcSpiPeripheral(const tcSpiPeripheral&) = delete;
    tcSpiPeripheral& operator=(const tcSpiPeripheral&) = delete;
    virtual ~tcSpiPeripheral() = default;
    /// \param how taken, or taken otherwise than sent
    virtual void wordArrived(std::uint32_t word, teWriteFate how) = 0;
    /// The word went over the wires, and nobody took it. \param why it was lost
    virtual void wordLost(std::uint32_t word, teWriteFate why) = 0;
    /// The port refused to send the word.
    virtual void wordNotSent(std::uint32_t word) = 0;
};

/// The port's settings and what they make of the bytes handed to it. Takes no lock.
class tcSpiPort {
public:
    /// \param failFrom number of the first message that fails, from 1; 0: none
    tcSpiPort(tcSpiPeripheral& peripheral, tcJournal& journal, const tsConditions& now,
              std::uint64_t failFrom, int failError)
        : m_peripheral(peripheral),
          m_journal(journal),
          m_now(now),
          m_failFrom(failFrom),
          m_failError(failError) {}

    /// \param refusal errno or `kShort` that was asked for, else 0
    /// \return the ioctl's result, or -errno
    int ioctl(std::uint32_t request, void* argument, int refusal);
    /// `write` on the device: one message of one transfer. \return bytes, or -errno
    int write(std::span<const std::uint8_t> bytes, int refusal);
    /// `read` on the device: one message of one transfer, which sends zeroes. \return as `write`
    int read(std::span<std::uint8_t> bytes, int refusal);
    /// The last descriptor of the device is closed: the clock is the device tree's again.
    void released() { m_speedHz = kDeviceTreeHz; }

    [[nodiscard]] std::uint64_t words() const { return m_words; }
    /// \return how long the last message took on the wire [ns]
    [[nodiscard]] std::uint64_t lastWireNs() const { return m_lastWireNs; }

private:
    int set(std::uint32_t request, const void* argument, int refusal);
    int get(std::uint32_t request, void* argument) const;
    int message(std::span<spi_ioc_transfer> transfers, int refusal);
    [[nodiscard]] int check(std::span<const spi_ioc_transfer> transfers) const;
    void logFailed(std::span<const spi_ioc_transfer> transfers, int error);
    void select(const spi_ioc_transfer& transfer);
    void send(const spi_ioc_transfer& transfer);
    void shiftOut(std::uint32_t word, unsigned bits, std::uint32_t speedHz);
    void endOfSelection();
    void tellRest();
    void deliver(std::uint32_t word);

    static constexpr std::uint32_t kDeviceTreeHz = 1'000'000; // the port's largest clock there

    tcSpiPeripheral& m_peripheral;
    tcJournal& m_journal;
    const tsConditions& m_now;
    std::uint64_t m_failFrom;
    int m_failError;

    std::uint32_t m_mode = 0; // with SPI_LSB_FIRST
    std::uint8_t m_bits = 8;
    std::uint32_t m_speedHz = kDeviceTreeHz;

    std::uint64_t m_messages = 0;
    std::uint64_t m_words = 0;
    std::uint64_t m_lastWireNs = 0;
    // Of the present chip select
    std::uint64_t m_shifted = 0; // bits, oldest highest
    unsigned m_shiftedBits = 0;
    bool m_tooFast = false;
    bool m_oddWords = false;
    struct tsWire {
        std::uint32_t mode = 0;
        std::uint32_t bits = 0;
        std::uint32_t speedHz = 0;
        friend bool operator==(const tsWire&, const tsWire&) = default;
    };
    tsWire m_told;           // to whoever looks at the wires
    bool m_selected = false; // as told to whoever looks at the wires
};

} // namespace sim
