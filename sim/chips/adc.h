/// \file
/// The I2C bus and its supply monitor, an ADS7828.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "sim/base/calls.h"
#include "sim/chips/conditions.h"
#include "sim/chips/supplies.h"
#include "sim/journal/journal.h"

namespace sim {

/// The converter on its bus. Takes no lock.
class tcAdc {
public:
    static constexpr std::uint16_t kAddress = 0x49;

    tcAdc(tcJournal& journal, tcSupplies& supplies, const tsConditions& now)
        : m_journal(journal), m_supplies(supplies), m_now(now) {}

    /// One write transfer to a device address. \param refusal errno or `kShort` that was asked for
    /// \return 0, -errno, or -kShort: nothing was sent
    int write(std::uint16_t address, std::span<const std::uint8_t> bytes, int refusal);
    /// One read transfer from a device address. \return as `write`
    int read(std::uint16_t address, std::span<std::uint8_t> bytes, int refusal);
    /// The bus is free again.
    void stop();

private:
    void wire(std::uint16_t address, bool reads, bool acknowledged,
              std::span<const std::uint8_t> bytes);
    [[nodiscard]] int answer(std::uint16_t address, int refusal) const;
    void command(std::uint8_t byte, std::uint64_t startNs);
    [[nodiscard]] double inputVolts(unsigned channel) const;
    [[nodiscard]] bool floats() const;
    [[nodiscard]] std::uint32_t sample() const;
    [[nodiscard]] unsigned positiveChannel() const;
    void checkConversion();
    void busTime(std::size_t bytes);

    tcJournal& m_journal;
    tcSupplies& m_supplies;
    const tsConditions& m_now;
    std::uint8_t m_command = 0;
    bool m_commanded = false; // in the present transfer
    bool m_referenceOn = false;
    bool m_settled = false;     // the reference, when the present conversion began
    bool m_first = false;       // the present conversion switched the reference on
    std::uint64_t m_restNs = 0; // since when the reference charges undisturbed
};

} // namespace sim
