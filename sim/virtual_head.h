/// \file
/// The virtual camera head, as a test sees it.
///
/// A program that links the library `virtual_head` builds one head, runs the software under test
/// on it and asks the head what happened:
///
///     auto head = sim::aVirtualHead().withStuckLane(3).build();
///     ... open "/dev/spidev1.0", map "/dev/mem" ...
///     EXPECT_THAT(head.lines(sim::teEventKind::spi), ElementsAre("SPI 0F B9 04 36"));
///     EXPECT_TRUE(head.violations().empty());
///
/// While a head exists, the process's device files "/dev/spidev*", "/dev/gpiochip*", "/dev/i2c-*"
/// and "/dev/mem" are the head's: those it does not have are absent (ENOENT). Without a head every
/// call goes to the kernel.
///
/// Time is virtual unless told otherwise: it stands still except that a sleep advances it by just
/// the duration asked for, a SPI message by its time on the wire and an I2C transfer by its time
/// on the bus. A register access takes no time. CLOCK_MONOTONIC reads that time. The sleeps of
/// several threads add up. A program that does nothing but read the clock sees it move after 1,000
/// readings in a row, by a microsecond a reading, so that waiting for a deadline ends.
///
/// All operations may be called from several threads.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/calls.h"
#include "sim/base/events.h"
#include "sim/base/export.h"
#include "sim/base/fault.h"
#include "sim/base/frame.h"
#include "sim/base/healthy_head.h"
#include "sim/base/rules.h"
#include "sim/base/states.h"
#include "sim/scenario/reference.h"

namespace sim {

class tcModel;
struct tsHeadOptions;

/// The head. It answers the process's device files for as long as this object lives; there is at
/// most one. Mapped register pages of a head that is gone must not be touched any more.
class SIM_API tcVirtualHead {
public:
    /// The head moves; it goes on answering.
    tcVirtualHead(tcVirtualHead&&) noexcept;
    tcVirtualHead& operator=(tcVirtualHead&&) = delete;
    tcVirtualHead(const tcVirtualHead&) = delete;
    tcVirtualHead& operator=(const tcVirtualHead&) = delete;
    ~tcVirtualHead();

    // --- Event log ---

    /// \return the events of these kinds, oldest first
    [[nodiscard]] std::vector<tsEvent> log(tcKinds kinds = tcKinds::all()) const;
    /// \return the events' lines without their times, oldest first
    [[nodiscard]] std::vector<std::string> lines(tcKinds kinds = tcKinds::all()) const;
    /// \return the events' lines as "[    0.301003200] SPI 0F B9 04 36", oldest first
    [[nodiscard]] std::vector<std::string> timedLines(tcKinds kinds = tcKinds::all()) const;
    /// Forgets the events. Violations, counters and the hardware's state stay.
    void clearLog();
    /// Puts a "NOTE text" into the log, to order a program's output against what the hardware saw.
    void note(std::string_view text);

    // --- Time ---

    /// \return time since the head was built
    [[nodiscard]] std::chrono::nanoseconds now() const;
    /// Lets virtual time pass. Nothing is logged. In real time this sleeps.
    void advance(std::chrono::nanoseconds duration);

    // --- Supplies and lines ---

    /// \param name "VDD1.2", "VDD3.3AVDDH" or "VDD3.3SVDD"
    /// \return [V], as measured now
    /// \throws std::invalid_argument for any other name
    [[nodiscard]] double rail(std::string_view name) const;
    /// \param name for example "RESET_B"
    /// \return level of the line; empty when the chip has no such line
    [[nodiscard]] std::optional<int> line(std::string_view name) const;

    // --- Sensor ---

    /// \return whether the sensor takes register writes now
    [[nodiscard]] bool sensorAlive() const;
    /// \return the register's value; empty when nothing was written since power-up or reset
    [[nodiscard]] std::optional<std::uint32_t> sensorRegister(std::uint16_t address) const;
    /// \return every register written since power-up or reset
    [[nodiscard]] std::map<std::uint16_t, std::uint32_t> sensorRegisters() const;
    /// \return what the sensor's registers say, decoded
    [[nodiscard]] tsSensorState sensorState() const;
    /// Compares a driver's copy of the registers with what the sensor holds.
    /// \return where they differ, and why; empty when the copy is right. A register that the sensor
    ///         holds and the copy does not know is a difference too.
    [[nodiscard]] std::vector<tsShadowDifference>
    compareShadow(const std::map<std::uint16_t, std::uint32_t>& shadow) const;

    // --- FPGA ---

    /// Looks at a register without being seen: nothing is logged, nothing happens.
    /// \param physicalAddress of the word, for example 0xFF210004
    /// \throws std::invalid_argument where there is no register
    [[nodiscard]] std::uint32_t fpgaWord(std::uint32_t physicalAddress) const;
    /// Puts a value into a register past all its rules, read-only ones as well (lock and alignment
    /// flags excepted: the link's state makes them anew).
    /// \throws std::invalid_argument where there is no register
    void setFpgaWord(std::uint32_t physicalAddress, std::uint32_t value);
    /// \return state of the serial link
    [[nodiscard]] tsLinkState link() const;
    /// \return frames that arrived whole over an aligned link since the head was built
    [[nodiscard]] std::uint64_t frames() const;
    /// The picture that would leave the FPGA if a frame were complete now: the scene through the
    /// sensor and the FPGA with their registers as they stand. It takes a while, and no lock.
    /// \return empty unless the sensor streams over an aligned link, frame-start pulses run, and
    ///         the FPGA's pixel shift and bad-pixel replacement run
    [[nodiscard]] std::optional<tsFrame> frame() const;

    // --- Checker ---

    /// \return the violations so far, at most the first 1,024
    [[nodiscard]] std::vector<tsViolation> violations() const;
    /// \return number of violations so far
    [[nodiscard]] std::uint64_t violationCount() const;
    /// Forgets the violations, so that each rule is reported again.
    void clearViolations();

    // --- System calls ---

    /// \param kind   what was called
    /// \param device path of a device file, or "clock" for sleeps. Calls on a GPIO line count with
    ///               their chip, `munmap` counts with "/dev/mem".
    /// \return number of calls that the head answered, refused ones included
    [[nodiscard]] std::uint64_t calls(teCall kind, std::string_view device) const;
    /// Makes one call fail. A sleep that fails has slept half its time.
    /// \param kind   what is called
    /// \param device as for `calls`
    /// \param nth   1 is the next call of this kind on this device that counts from the head's
    ///              building; see `calls`
    /// \param error errno, for example EIO, or `kShort`
    void failCall(teCall kind, std::string_view device, std::uint64_t nth, int error);
    /// As `failCall`, for the nth and every later call.
    void failCallsFrom(teCall kind, std::string_view device, std::uint64_t nth, int error);

    /// \return every fault of the head, in the order in which they were named
    [[nodiscard]] std::vector<tsFaultRecord> faults() const;

    /// \return what the recording that is played would go on with, as text for a person; empty when
    ///         it was played to its end or none is played
    [[nodiscard]] std::string restOfReplay() const;

    /// \return what the head saw, as text: supplies, sensor, link, clock, counts, violations
    [[nodiscard]] std::string summary() const;

private:
    friend class tcVirtualHeadBuilder;
    explicit tcVirtualHead(std::unique_ptr<tcModel> model);
    std::unique_ptr<tcModel> m_model;
};

/// Says what is wrong with a head, then builds it. A head of which nothing is said is healthy.
/// Every `with...` returns the builder.
class SIM_API tcVirtualHeadBuilder {
public:
    /// A healthy head; `aVirtualHead` says it shorter.
    tcVirtualHeadBuilder();
    /// A head like another one, to go on from.
    tcVirtualHeadBuilder(const tcVirtualHeadBuilder& other);
    /// Takes over what was said of another head.
    tcVirtualHeadBuilder& operator=(const tcVirtualHeadBuilder& other);
    /// The other builder can only be destroyed or assigned to.
    tcVirtualHeadBuilder(tcVirtualHeadBuilder&&) noexcept;
    /// The other builder can only be destroyed or assigned to.
    tcVirtualHeadBuilder& operator=(tcVirtualHeadBuilder&&) noexcept;
    ~tcVirtualHeadBuilder();

    // --- Supplies and ADC ---

    /// The supply settles at another voltage. \param rail as `tcVirtualHead::rail` \param volts [V]
    tcVirtualHeadBuilder& withRail(std::string_view rail, double volts);
    /// As `withRail`, relative to the nominal voltage. \param rail as `tcVirtualHead::rail`
    /// \param volts [V]
    tcVirtualHeadBuilder& withRailOffset(std::string_view rail, double volts);
    /// Nobody answers at the ADC's address (ENXIO).
    tcVirtualHeadBuilder& withoutAdc();
    /// "/dev/i2c-1" is absent.
    tcVirtualHeadBuilder& withoutI2cBus();

    // --- GPIO ---

    /// Default "/dev/gpiochip0".
    tcVirtualHeadBuilder& withGpioChip(std::string_view path);
    /// No "/dev/gpiochip*" is there.
    tcVirtualHeadBuilder& withoutGpioChip();
    /// No line has this name.
    tcVirtualHeadBuilder& withoutGpioLine(std::string_view name);
    /// Somebody else holds the line (EBUSY).
    tcVirtualHeadBuilder& withBusyGpioLine(std::string_view name);

    // --- SPI ---

    /// Default "/dev/spidev1.0".
    tcVirtualHeadBuilder& withSpiDevice(std::string_view path);
    /// No "/dev/spidev*" is there.
    tcVirtualHeadBuilder& withoutSpiDevice();
    /// Every setting ioctl fails (EINVAL).
    tcVirtualHeadBuilder& withSpiSettingsRefused();
    /// Messages fail. \param nth the first that fails, from 1 \param error errno
    tcVirtualHeadBuilder& withSpiTransfersFailing(std::uint64_t nth, int error);

    // --- FPGA and serial link ---

    /// "/dev/mem" cannot be opened. \param error errno
    tcVirtualHeadBuilder& withMemOpenFailing(int error);
    /// Mapping that starts at this address fails. \param physicalAddress of a page \param error
    /// errno
    tcVirtualHeadBuilder& withMapFailing(std::uint32_t physicalAddress, int error);
    /// The core's identification reads 0.
    tcVirtualHeadBuilder& withSilentCore(teCore core);
    /// What the FPGA says of itself. \param first and \param second word of its identification
    tcVirtualHeadBuilder& withSystemId(std::uint32_t first, std::uint32_t second);
    /// How long the flag takes, `kNever` for ever. Default `kPllLockTime`.
    tcVirtualHeadBuilder& withPllFlagAfter(tePllFlag flag, std::chrono::nanoseconds time);
    /// All three flags.
    tcVirtualHeadBuilder& withPllAfter(std::chrono::nanoseconds time);
    /// The lane never locks. \param lane 0 to 11
    tcVirtualHeadBuilder& withStuckLane(unsigned lane);
    /// How long the lane takes, `kNever` for ever. Default `kDpaLockTime`. \param lane 0 to 11
    /// \param time until it locks
    tcVirtualHeadBuilder& withLaneAfter(unsigned lane, std::chrono::nanoseconds time);
    /// All twelve lanes.
    tcVirtualHeadBuilder& withLanesAfter(std::chrono::nanoseconds time);
    /// Which lanes arrive inverted, one bit a lane. Default 0x5D9.
    tcVirtualHeadBuilder& withLanePolarity(std::uint32_t inverted);
    /// How long alignment takes, `kNever` for ever. Default `kAlignmentTime`.
    tcVirtualHeadBuilder& withAlignmentAfter(std::chrono::nanoseconds time);

    // --- Pictures ---

    /// What lies before the sensor: a PNG picture, scaled to the array. Default: the test chart.
    tcVirtualHeadBuilder& withScene(const std::string& path);
    /// One more pixel that always gives the same. By default there are three, at (0, 0), (1296,
    /// 1028) and (2491, 1855). \param x column and \param y row of the array \param value of the
    /// ADC, 0 to 4095
    tcVirtualHeadBuilder& withDefect(std::uint32_t x, std::uint32_t y, std::uint16_t value);
    /// A sensor without defects; those of `withDefect` come after it.
    tcVirtualHeadBuilder& withoutDefects();

    // --- System calls ---

    /// As `tcVirtualHead::failCall`.
    tcVirtualHeadBuilder& withFailingCall(teCall kind, std::string_view device, std::uint64_t nth,
                                          int error);
    /// As `tcVirtualHead::failCallsFrom`.
    tcVirtualHeadBuilder& withFailingCallsFrom(teCall kind, std::string_view device,
                                               std::uint64_t nth, int error);

    // --- Faults that come and go ---

    /// \throws std::invalid_argument with what is allowed, for a text that says no fault, and for
    ///         a name that is there already
    tcVirtualHeadBuilder& withFault(const tsFault& fault);

    // --- Time, log, scenario ---

    /// Sleeps really sleep and the clock is the kernel's.
    tcVirtualHeadBuilder& withRealTime();
    /// In real time a SPI message keeps its caller busy for its time on the wire.
    tcVirtualHeadBuilder& withWireTime();
    /// Events that the log holds, default 2,097,152. One more is a violation and is not recorded.
    tcVirtualHeadBuilder& withLogCapacity(std::size_t events);
    /// The log also says what the head does by itself: supplies that rise, locks that come and go,
    /// chip selects, frame-start pulses. Such events carry the time at which they happened and are
    /// logged with the next call of the program.
    tcVirtualHeadBuilder& withStateEvents();
    /// Violations are not printed on standard error.
    tcVirtualHeadBuilder& withQuietViolations();
    /// Everything that a scenario file says. Its section [Files] is left to the launcher.
    /// \throws std::runtime_error with file, key and what is allowed
    tcVirtualHeadBuilder& withScenario(const std::string& path);

    /// Keeps every call on the device files in this file, or, when it is there already, in the
    /// first free one of FILE.2, FILE.3, ...; it is made when the first device is opened.
    tcVirtualHeadBuilder& withRecording(const std::string& path);
    /// Calls are answered from such a file and not by the head, which does nothing then. The
    /// program is ended with status 10 when it does something else than the recording says, and
    /// aborted when the file is no recording.
    tcVirtualHeadBuilder& withReplay(const std::string& path);

    /// \throws std::logic_error when the process has a head already
    /// \throws std::invalid_argument for a name or number that no head has
    /// \throws std::runtime_error for a scene that cannot be read
    [[nodiscard]] tcVirtualHead build();

private:
    std::unique_ptr<tsHeadOptions> m_options;
};

/// \return a builder of a healthy head
[[nodiscard]] SIM_API tcVirtualHeadBuilder aVirtualHead();

/// \return Markdown tables of every register field of sensor and FPGA
[[nodiscard]] SIM_API std::string registersMarkdown();
/// \return the same registers as JSON: docs/register-table.md
[[nodiscard]] SIM_API std::string registersJson();
/// \return Markdown of every rule
[[nodiscard]] SIM_API std::string rulesMarkdown();
} // namespace sim
