/// \file
/// The image sensor: a register file that only the wire fills, and what its registers mean.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "common/register_field.h"
#include "sim/base/states.h"
#include "sim/chips/frame_start_pulses.h"
#include "sim/chips/readout_area.h"
#include "sim/journal/journal.h"

namespace sim {

/// What the FPGA looks like to a sensor that starts streaming.
struct tsReceiverSettings {
    std::uint32_t width = 0;  ///< [pixels]
    std::uint32_t height = 0; ///< [lines]
    bool pairsFlip = false;
    double clockMhz = 0;           ///< 0: the clock is in no known state
    bool pulsesRun = false;        ///< frame-start pulses
    std::uint64_t pulsePeriod = 0; ///< [clocks]
};

/// What became of the last write to a register that a driver tried.
enum class teFate : std::uint8_t {
    neverSent,
    held,
    asleep,
    refused,
    garbled,
    clearedByReset,
    clearedByPowerLoss
};

/// The sensor's registers. Takes no lock.
class tcSensor {
public:
    explicit tcSensor(tcJournal& journal) : m_journal(journal) {}

    /// One 32-bit word came over the wire.
    /// \param word     address above value
    /// \param awake    whether the sensor listens
    /// \param receiver what the FPGA is set to
    void receive(std::uint32_t word, bool awake, const tsReceiverSettings& receiver);
    /// A word that the port was to send did not reach the sensor as meant.
    void missed(std::uint32_t word, teFate fate);
    /// Reset, or a supply that went away.
    void clear(teFate fate);
    /// The rules that wait for the end of a frame, because settings may be inconsistent inside it.
    void checkFrame(const tsReceiverSettings& receiver);

    [[nodiscard]] std::optional<std::uint32_t> value(std::uint16_t address) const;
    [[nodiscard]] std::map<std::uint16_t, std::uint32_t> values() const;
    [[nodiscard]] std::uint32_t field(const tsRegisterField& field) const;
    [[nodiscard]] std::uint32_t frameState() const;
    [[nodiscard]] bool sending() const;
    /// \param number 0 to 7 \return what the area reads out; empty when it is switched off
    [[nodiscard]] std::optional<tsReadoutArea> area(std::uint16_t number) const;
    /// \return the binning that the areas were programmed with
    [[nodiscard]] bool areasBinned() const { return m_areasBinned; }
    /// \return clocks that a frame takes at least, and its rows, by the registers; 0 when they say
    ///         nothing
    [[nodiscard]] tsFrameClocks frameClocks() const;

    [[nodiscard]] tsSensorState decoded(double clockMhz) const;
    [[nodiscard]] std::vector<tsShadowDifference>
    differences(const std::map<std::uint16_t, std::uint32_t>& shadow) const;

private:
    struct tsImage {
        std::uint32_t rows = 0;
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        bool sameWidths = true;
    };
    [[nodiscard]] bool written(std::uint16_t address) const { return m_written.test(address); }
    [[nodiscard]] tsImage image() const;
    void checkValue(std::uint16_t address);
    void checkArea(std::uint16_t address);
    void limit(std::uint16_t address, bool allowed, const char* what);
    void checkStreaming(const tsReceiverSettings& receiver);
    void checkPositions();
    void checkFrameLength(const tsReceiverSettings& receiver);
    [[nodiscard]] std::uint32_t linesNeeded() const;

    static constexpr std::size_t kRegisters = 1024;
    tcJournal& m_journal;
    std::array<std::uint32_t, kRegisters> m_values{};
    std::bitset<kRegisters> m_written;
    std::array<teFate, kRegisters> m_fates{};
    bool m_areasBinned = false; // binning when the areas were last programmed
    bool m_unchecked = false;   // timing was changed while streaming
    std::uint64_t m_changedNs = 0;
};

} // namespace sim
