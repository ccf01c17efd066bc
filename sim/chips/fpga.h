/// \file
/// The FPGA's registers at their physical addresses.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "fpga/registers.h"
#include "sim/base/rules.h"
#include "sim/base/write_fates.h"
#include "sim/chips/conditions.h"
#include "sim/chips/link.h"
#include "sim/chips/sensor.h"
#include "sim/journal/journal.h"
#include <varnox/core_registers.h>

namespace sim {

/// Settings of an FPGA image.
struct tsFpgaFacts {
    std::array<std::uint32_t, 2> systemId{};
};

/// What a word of the region does.
enum class teAccess : std::uint8_t { none, readWrite, readOnly, writeOnly, clearOnWrite };

/// Register blocks with their rules. All operations but the constructor are possible in a signal
/// handler. Takes no lock.
class tcFpga {
public:
    static constexpr std::uint32_t kUnmodelledValue = 0xDEAD'BEEF;

    /// \param now which cores are silent and which words are stuck
    tcFpga(tcJournal& journal, const tsFpgaFacts& facts, const tsConditions& now, tcLink& link);

    /// One load of the program. \param width [bytes]
    std::uint32_t load(std::uint32_t address, unsigned width);
    /// One store of the program. \param width [bytes]
    void store(std::uint32_t address, unsigned width, std::uint32_t value);

    /// \return the word, unseen; empty where there is no register
    [[nodiscard]] std::optional<std::uint32_t> peek(std::uint32_t address);
    /// \return false where there is no register
    bool poke(std::uint32_t address, std::uint32_t value);

    /// \return the bad pixels in force, as the table had them when it was taken over
    std::span<const std::uint32_t> badPixels();

    /// The sensor's side of the link changed. \param frameClocks what a frame takes at least
    /// \param rowClocks what its rows take
    void sensorChanged(bool sending, bool streaming, std::uint64_t frameClocks,
                       std::uint64_t rowClocks);
    [[nodiscard]] tsReceiverSettings receiverSettings() const;
    /// \return master clock [MHz]; 0 when the clock generator is in no known state
    [[nodiscard]] double clockMhz() const { return m_clockMhz; }
    /// \return the frame-start pulses. The counter behind them begins when the pulses are enabled,
    /// and goes on when period or clock change: a period that is over then ends at once
    [[nodiscard]] const tsPulseTrain& pulses() const { return m_pulses; }
    /// \return how long a frame-start pulse is [ns]
    [[nodiscard]] std::uint64_t pulseLengthNs() const;
    /// \return whether a frame-start pulse is low, and the line rests at 1
    [[nodiscard]] bool pulsesInverted() const;
    [[nodiscard]] std::uint64_t loads() const { return m_loads; }
    [[nodiscard]] std::uint64_t stores() const { return m_stores; }

private:
    static constexpr std::size_t kPageWords = 1024;
    static constexpr std::size_t kWords = fpgaAddresses::kRegionLength / 4;

    struct tsWord {
        teAccess access = teAccess::none;
        std::uint32_t mask = 0; // bits that exist
    };

    static std::size_t indexOf(std::uint32_t address);
    void define(std::uint32_t block, std::uint32_t word, teAccess access, std::uint32_t mask,
                std::uint32_t value);
    void defineCore(std::uint32_t block, std::uint32_t id);
    void defineFrameControl();
    void defineHostCores();
    [[nodiscard]] bool silent(std::uint32_t address) const;
    [[nodiscard]] std::uint32_t word(std::uint32_t block, std::uint32_t word) const;
    void refresh(std::uint32_t address);
    void refreshStatus();
    void refreshBadPixels();
    bool badWidth(const char* what, std::uint32_t address, unsigned width);
    [[nodiscard]] teWriteFate fateOf(std::uint32_t address, unsigned width,
                                     std::uint32_t value) const;
    void tell(std::uint32_t address, std::uint32_t value, teWriteFate fate);
    void apply(std::uint32_t address, std::uint32_t value);
    void applyClockCounter();
    void applyClockUpdate(std::uint32_t value);
    void applyPulses(std::uint32_t old);
    void applyTable();
    void updateLink();
    void checkTable(std::uint32_t entries);
    [[nodiscard]] bool pulsesRun() const;
    [[nodiscard]] std::uint64_t nsOf(std::uint64_t clocks) const;
    [[nodiscard]] std::uint64_t pulseNs() const;
    [[nodiscard]] std::uint64_t frameNs() const;
    [[nodiscard]] std::uint64_t busyNs() const;
    [[nodiscard]] std::uint64_t rowsNs() const;
    void timePulses();
    void violation(teRule rule, const char* what, std::uint32_t address);

    tcJournal& m_journal;
    const tsConditions& m_now;
    tcLink& m_link;
    std::array<tsWord, kWords> m_rules{};
    std::array<std::uint32_t, kWords> m_values{};
    std::uint64_t m_loads = 0;
    std::uint64_t m_stores = 0;
    double m_clockMhz = 36.0;
    bool m_counterWritten = false;
    bool m_sending = false;
    bool m_streaming = false;
    std::uint64_t m_frameClocks = 0;
    std::uint64_t m_rowClocks = 0;
    tsPulseTrain m_pulses;
    double m_pulsesMhz = 0;         // the clock that they count
    std::uint64_t m_takeOverNs = 0; // when the table comes into force
    std::uint32_t m_takenEntries = 0;
    using tcTable = std::array<std::uint32_t, badPixelRegisters::kTableEntries>;
    tcTable m_takenTable{};
    tcTable m_tableInForce{};
    bool m_takeOverPending = false;
};

} // namespace sim
