/// \file
/// The FPGA's registers at their physical addresses.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "sim/base/rules.h"
#include "sim/base/write_fates.h"
#include "sim/chips/bad_pixel_table.h"
#include "sim/chips/conditions.h"
#include "sim/chips/fpga_words.h"
#include "sim/chips/frame_start_pulses.h"
#include "sim/chips/link.h"
#include "sim/chips/sensor.h"
#include "sim/journal/journal.h"

namespace sim {

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

    /// The sensor's side of the link changed.
    void sensorChanged(bool sending, bool streaming, const tsFrameClocks& clocks);
    [[nodiscard]] tsReceiverSettings receiverSettings() const;
    /// \return master clock [MHz]; 0 when the clock generator is in no known state
    [[nodiscard]] double clockMhz() const { return m_clockMhz; }
    [[nodiscard]] const tcFrameStartPulses& pulses() const { return m_pulses; }
    [[nodiscard]] std::uint64_t loads() const { return m_loads; }
    [[nodiscard]] std::uint64_t stores() const { return m_stores; }

private:
    [[nodiscard]] bool silent(std::uint32_t address) const;
    [[nodiscard]] bool stuck(std::uint32_t address) const;
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
    void applyPulses();
    void takeTableOver();
    void updateLink();
    void violation(teRule rule, const char* what, std::uint32_t address);

    tcJournal& m_journal;
    const tsConditions& m_now;
    tcLink& m_link;
    tcFpgaWords m_words;
    tcFrameStartPulses m_pulses;
    tcBadPixelTable m_table;
    std::uint64_t m_loads = 0;
    std::uint64_t m_stores = 0;
    double m_clockMhz = 36.0;
    bool m_counterWritten = false;
    bool m_sending = false;
    bool m_streaming = false;
    tsFrameClocks m_frameClocks;
};

} // namespace sim
