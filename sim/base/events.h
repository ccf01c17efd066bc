/// \file
/// Events of the head's log.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

/// What an event of the log is.
enum class teEventKind : std::uint32_t {
    spi = 1U << 0,        ///< "SPI 0F B9 04 36": bytes of one transfer as handed to the device
    spiSetting = 1U << 1, ///< "SPI-MODE 0", "SPI-LSB 0", "SPI-BITS 32", "SPI-HZ 10000000"
    gpio = 1U << 2,       ///< "GPIO RESET_B out 0", "GPIO RESET_B = 1", "GPIO RESET_B released"
    adc = 1U << 3,        ///< "ADC 0 0x7AE": channel and result of a conversion
    adcCommand = 1U << 4, ///< "ADC-COMMAND 0x8C"
    read = 1U << 5,       ///< "READ 0xFF210004 0x0000000F": one FPGA load
    write = 1U << 6,      ///< "WRITE 0xFF210000 0x80000000": one FPGA store
    sleep = 1U << 7,      ///< "SLEEP 300000000 ns": one call, the duration asked for
    device = 1U << 8, ///< "OPEN /dev/mem", "MAP 0xFF210000 16384", "UNMAP ...", "CLOSE /dev/mem"
    note = 1U << 9,   ///< "NOTE text": put there with `tcVirtualHead::note`
    violation = 1U << 10, ///< "VIOLATION rule: text"
    state = 1U << 11,     ///< "STATE VDD1.2-GOOD 1": what the head did by itself; see
                          ///< `tcVirtualHeadBuilder::withStateEvents`
};

/// A set of kinds. A single kind converts to it; `|` unites.
class tcKinds {
public:
    /// A set of one. \param kind what is in it
    constexpr tcKinds(teEventKind kind) : m_bits(static_cast<std::uint32_t>(kind)) {}
    /// \return whether a kind is in the set
    [[nodiscard]] constexpr bool contains(teEventKind kind) const {
        return (m_bits & static_cast<std::uint32_t>(kind)) != 0;
    }
    /// \return what is in one of the sets or both
    friend constexpr tcKinds operator|(tcKinds one, tcKinds other) {
        return tcKinds(one.m_bits | other.m_bits);
    }
    /// \return the set of every kind
    static constexpr tcKinds all() { return tcKinds(0xFFFU); }

private:
    constexpr explicit tcKinds(std::uint32_t bits) : m_bits(bits) {}
    std::uint32_t m_bits;
};
/// \return the set of both kinds
constexpr tcKinds operator|(teEventKind one, teEventKind other) {
    return tcKinds(one) | tcKinds(other);
}
/// SPI transfers, GPIO levels, ADC and every FPGA load and store: what the hardware saw.
inline constexpr tcKinds kHardwareEvents = teEventKind::spi | teEventKind::gpio | teEventKind::adc |
                                           teEventKind::adcCommand | teEventKind::read |
                                           teEventKind::write;

/// One event of the log.
struct tsEvent {
    std::chrono::nanoseconds time{0};     ///< since the head was built
    teEventKind kind = teEventKind::note; ///< what happened
    std::string subject;             ///< device path, GPIO line name or rule, where there is one
    std::uint32_t address = 0;       ///< FPGA physical address; ADC channel
    std::uint64_t value = 0;         ///< FPGA word; ADC result; level; SPI setting; [ns]; [bytes]
    std::vector<std::uint8_t> bytes; ///< SPI transfer, as handed to the device
    int error = 0;                   ///< errno of a refused or failed call, `kShort`, else 0
    std::string text;                ///< the event's line, without its time
};

/// One broken rule of the head.
struct tsViolation {
    std::chrono::nanoseconds time{0}; ///< since the head was built
    std::string rule;                 ///< name of the rule, for example "supply-order"
    std::string text;                 ///< what happened, with the numbers
};

} // namespace sim
