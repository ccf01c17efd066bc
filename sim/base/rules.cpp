#include "sim/base/rules.h"

#include <algorithm>
#include <array>

#include "sensor/registers.h"
#include "sim/base/text.h"

namespace sim {

namespace {

using namespace limits;

// A rule's sentence, put together when the library is compiled: its numbers are the limits that the
// parts check.
constexpr std::string_view textOf(std::string_view text) {
    return text;
}
constexpr std::string_view textOf(const tcText& text) {
    return text.view();
}
template<class... Pieces>
consteval tcText said(const Pieces&... pieces) {
    tcText text;
    (text.add(textOf(pieces)), ...);
    return text;
}

consteval tcText milliseconds(std::uint64_t ns) {
    return tcText().decimal(ns / kMillisecond).add(" ms");
}

// "300,000"
consteval tcText grouped(std::uint64_t value) {
    if (value < 1000) {
        return tcText().decimal(value);
    }
    return tcText().add(grouped(value / 1000).view()).add(",").decimal(value % 1000, 3);
}

consteval tcText microseconds(std::uint64_t ns) {
    return said(grouped(ns / kMicrosecond), " us");
}

constexpr tcText kSupplyDelayWhat =
    said("The 1.2 V supply is on for at least ", milliseconds(kCoreSettlesNs),
         " before a 3.3 V supply goes on.");
constexpr tcText kSupplyDelayRemedy =
    said("Sleep ", microseconds(kCoreSettlesNs), " after PS_1.2V_EN goes high.");
constexpr tcText kResetEarlyWhat =
    said("Reset is released only when all supplies are on, the 3.3 V ones for at least ",
         milliseconds(kThreeVoltsSettleNs), ".");
constexpr tcText kResetEarlyRemedy = said("Sleep ", microseconds(kThreeVoltsSettleNs),
                                          " after PS_3.3AVDDH_EN goes high, then set RESET_B.");
constexpr tcText kAdcEarlyWhat =
    said("A supply is measured when it has settled: ", milliseconds(kCoreSettlesNs), " (1.2 V) or ",
         milliseconds(kThreeVoltsSettleNs), " (3.3 V) after it went on, and ",
         milliseconds(kWakesNs), " after reset was released.");
constexpr tcText kAdcEarlyRemedy =
    said("Sleep ", microseconds(kWakesNs), " after RESET_B goes high before the first conversion.");
constexpr tcText kAdcReferenceWhat =
    said("The ADC converts with its own reference, and the one that switches the reference on is "
         "thrown away: the next follows ",
         milliseconds(kReferenceSettlesNs), " later.");
constexpr tcText kAdcReferenceRemedy =
    said("Set PD1 in every command byte; take one reading, sleep ",
         microseconds(kReferenceSettlesNs), ", then measure.");
constexpr tcText kSensorAsleepWhat = said("A register is written only while the sensor is alive: "
                                          "all supplies up, and reset released for at least ",
                                          milliseconds(kWakesNs), ".");
constexpr tcText kSpiClockWhat =
    said("The SPI clock is at most ", tcText().decimal(kFastestSpiHz / 1'000'000), " MHz.");
constexpr tcText kSpiClockRemedy = said("Set ", grouped(kFastestSpiHz), " Hz.");
constexpr tcText kAreaLimitsWhat =
    said("A readout area starts before it ends, and lies inside the ",
         tcText().decimal(sensorArray::kColumns), " x ", tcText().decimal(sensorArray::kRows),
         " array.");
constexpr tcText kAreaLimitsRemedy = said(
    "Keep row pairs within 0 to ", tcText().decimal(kLastRowPair), " and column units within 0 to ",
    tcText().decimal(kLastColumnUnit), ", start not above end; or switch the area off.");
constexpr tcText kPulsePeriodWhat =
    said("Frame-start pulses run with a period of at least ",
         tcText().decimal(kShortestPulsePeriod), " clocks that is longer than the pulse.");
constexpr tcText kBadPixelTableWhat =
    said("A table of defective pixels has at most ", grouped(kMostBadPixels),
         " entries, in raster order and inside the full frame, when it is taken over.");

constexpr std::size_t kRules = static_cast<std::size_t>(teRule::count);

constexpr std::array<tsRule, kRules> kTable{{
    {"supply-order", "The supplies go on in the order 1.2 V, 3.3 V SVDD, 3.3 V AVDDH.",
     "A 3.3 V supply without the 1.2 V core supply drives current through the sensor's input "
     "protection.",
     "Set PS_1.2V_EN, then PS_3.3SVDD_EN, then PS_3.3AVDDH_EN."},
    {"supply-delay", kSupplyDelayWhat.view().data(),
     "The core's level shifters are undefined until its supply has settled.",
     kSupplyDelayRemedy.view().data()},
    {"reset-early", kResetEarlyWhat.view().data(),
     "The sensor latches its trimming at the end of reset and takes wrong values from a supply "
     "that still rises.",
     kResetEarlyRemedy.view().data()},
    {"supply-off-running", "No supply is switched off while reset is released.",
     "The sensor drives its outputs while its supply goes away.", "Clear RESET_B first."},
    {"adc-early", kAdcEarlyWhat.view().data(),
     "The sensor's start-up current pulls the supplies down for some milliseconds; the reading "
     "says "
     "nothing about the supply.",
     kAdcEarlyRemedy.view().data()},
    {"adc-reference", kAdcReferenceWhat.view().data(),
     "The board has no external reference, and the internal one charges its capacitor first; until "
     "then every reading is full scale.",
     kAdcReferenceRemedy.view().data()},
    {"sensor-asleep", kSensorAsleepWhat.view().data(),
     "A sleeping sensor does not listen. The write is lost.",
     "Write after the whole of the power-up sequence, and not after power-down."},
    {"spi-mode", "The port is in SPI mode 0 with plain chip select when the sensor is written.",
     "The sensor samples on the rising edge of a clock that idles low; in another mode every bit "
     "arrives one place late.",
     "Set mode 0 (SPI_IOC_WR_MODE)."},
    {"spi-word", "A register write is one 32-bit word, most significant bit first.",
     "The sensor takes 32 bits as they come: other word sizes or orders exchange them, and a rest "
     "of fewer than 32 is dropped.",
     "Set 32 bits per word, most significant bit first, and send 4 bytes a write."},
    {"spi-clock", kSpiClockWhat.view().data(),
     "The sensor misses bits of a faster clock. The write is lost.", kSpiClockRemedy.view().data()},
    {"register-limits", "A register field holds only values that mean something.",
     "The sensor's behaviour is undefined for reserved values.", "See the register reference."},
    {"area-limits", kAreaLimitsWhat.view().data(),
     "The row and column counters never meet the end and run over.",
     kAreaLimitsRemedy.view().data()},
    {"exposure-positions",
     "While the sensor streams, accumulation start, shutter positions and reset position lie "
     "inside "
     "the frame, in their order.",
     "A position behind the last line never comes: the pixels are not read or never cleared.",
     "Set hd_max first, then the positions derived from it; keep acc_fpos < gs_pos1 < hd_max."},
    {"frame-length",
     "While the sensor streams, a frame is at least as long as its readout, and the frame-start "
     "pulses come no faster than frames.",
     "The next frame starts while the last rows of this one are read: they are lost, and the "
     "receiver sees broken frames.",
     "Keep the frame interval at or above the frame readout time."},
    {"scan-direction", "When streaming starts, both places of a scan direction agree.",
     "Row (column) counter and correction memory run in opposite directions.",
     "Write 0x90 bit 17 with 0x6C bit 3, and 0x90 bit 16 with 0x6D bit 0."},
    {"pairs-flip",
     "When streaming starts, the frame-control core swaps line pairs just when the sensor reads "
     "from the bottom.",
     "Every two lines of the image change places.",
     "Set pairs flip together with the vertical scan direction."},
    {"resolution",
     "When streaming starts, the frame-control core expects just the lines and pixels that the "
     "sensor delivers.",
     "The core waits for lines that never come, or cuts the frame short.",
     "Program the resolution whenever readout areas change."},
    {"clock-range",
     "When streaming starts, the sensor's clock-range register fits the master clock.",
     "The sensor's own PLL runs outside its range: no stable lanes.",
     "Write 0xD8 after every change of the master clock."},
    {"clock-update",
     "The clock generator gets a known counter setting first and then a 1 in its update word.",
     "An update without a new setting restarts the clock for nothing; an unknown setting makes a "
     "clock that the sensor does not stand.",
     "Write 0x0F0F (36 MHz) or 0x1617 (24 MHz) to word 0xC0, then 1 to word 0."},
    {"clock-while-sending", "The master clock changes only while the sensor does not send.",
     "The sensor loses its state when the clock stops under it.",
     "Set frame state 0 and switch the frame-control core off first."},
    {"dpa-sequence",
     "While the frame-control core runs, the lanes' phase alignment is reset in the order: all PLL "
     "flags set, hold 0, DPA reset, FIFO reset, all resets clear.",
     "A lane that skips a step trains on a stale phase, and locks by chance.",
     "Write word 11 = 0, word 10 = 0xFFF, 0xFFF000, 0."},
    {"dpa-hold", "While the frame-control core runs, a lane is held only when it is locked.",
     "Hold freezes the phase, wrong as it is; the lane never locks.",
     "Wait for the lane's bit in word 12 before setting its bit in word 11."},
    {"pulse-period", kPulsePeriodWhat.view().data(),
     "The pulse output never changes, and the sensor waits for ever.",
     "Set period and pulse length before enabling the pulses."},
    {"bad-pixel-table", kBadPixelTableWhat.view().data(),
     "The core walks the table with the pixels: an entry out of order stops it.",
     "Sort the entries by line and column before writing them."},
    {"fpga-unmodelled", "Only registers that exist are accessed.",
     "Nobody answers: the bus hangs or returns whatever it held. Reads give 0xDEADBEEF here.",
     "See the register reference."},
    {"fpga-width", "Every access to a register is one aligned 32-bit load or store.",
     "The bus bridge has no byte lanes: other widths reach the neighbouring bytes or fault.",
     "Access registers through pointers to volatile 32-bit words."},
    {"fpga-read-only", "A read-only register is not written.", "The write does nothing.",
     "See the register reference."},
    {"fpga-write-only", "A write-only register is not read.",
     "The value that comes back means nothing. Reads give 0xDEADBEEF here.",
     "Keep a copy of what was written."},
    {"fpga-reserved", "Reserved bits of a register are written as 0.",
     "A later FPGA image gives them a meaning.", "Mask the value."},
    {"memory-range",
     "Only the FPGA's register region, 0xFF200000 to 0xFF217FFF, is mapped, in whole pages.",
     "Other physical memory belongs to somebody else.",
     "Map the blocks of the register reference."},
    {"memory-cached", "Registers are mapped shared, from a descriptor opened with O_SYNC.",
     "Loads and stores stay in the cache instead of reaching the register.",
     "Open \"/dev/mem\" with O_RDWR | O_SYNC and map with MAP_SHARED."},
    {"device-call", "Only calls that the devices know are made.", "The kernel refuses the call.",
     "See the documentation of spidev, the GPIO character device (v2) and i2c-dev."},
    {"log-full", "The event log is cleared before it is full.", "Later events are missing.",
     "Clear the log now and then, or build the head with a larger one."},
}};

constexpr bool complete() {
    return std::all_of(kTable.begin(), kTable.end(),
                       [](const tsRule& rule) { return rule.name != nullptr; });
}
static_assert(complete(), "every rule has its line");

} // namespace

const tsRule& describe(teRule rule) {
    return kTable[static_cast<std::size_t>(rule)];
}

std::vector<tsRule> rules() {
    return {kTable.begin(), kTable.end()};
}

} // namespace sim
