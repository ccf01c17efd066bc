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

#include "sim/export.h"
#include "sim/frame.h"

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
    constexpr tcKinds(teEventKind kind) : m_bits(static_cast<std::uint32_t>(kind)) {}
    [[nodiscard]] constexpr bool contains(teEventKind kind) const {
        return (m_bits & static_cast<std::uint32_t>(kind)) != 0;
    }
    friend constexpr tcKinds operator|(tcKinds one, tcKinds other) {
        return tcKinds(one.m_bits | other.m_bits);
    }
    static constexpr tcKinds all() { return tcKinds(0xFFFU); }

private:
    constexpr explicit tcKinds(std::uint32_t bits) : m_bits(bits) {}
    std::uint32_t m_bits;
};
constexpr tcKinds operator|(teEventKind one, teEventKind other) {
    return tcKinds(one) | tcKinds(other);
}
/// SPI transfers, GPIO levels, ADC and every FPGA load and store: what the hardware saw.
inline constexpr tcKinds kHardwareEvents = teEventKind::spi | teEventKind::gpio | teEventKind::adc |
                                           teEventKind::adcCommand | teEventKind::read |
                                           teEventKind::write;

/// One event of the log.
struct tsEvent {
    std::chrono::nanoseconds time{0}; ///< since the head was built
    teEventKind kind = teEventKind::note;
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

/// Kinds of system call that a head answers.
enum class teCall : std::uint8_t {
    open,
    close,
    ioctl,
    mmap,
    munmap,
    read,
    write,
    sleep, ///< on the device "clock": nanosleep, clock_nanosleep, usleep
};

/// In place of an errno: the call succeeds, but does less than it was asked to. A SPI message and
/// `read` and `write` give half of their bytes, I2C_RDWR all messages but the last. Nothing of what
/// is missing happens on the wire; of a SPI message nothing at all. Calls that have no length are
/// not touched.
inline constexpr int kShort = -1;

/// Flags of the frame-control core's receiver PLL.
enum class tePllFlag : std::uint8_t { locked, rgLocked, gbLocked };

/// FPGA cores that carry an identification.
enum class teCore : std::uint8_t { frameControl, pwm, pixelShift, badPixel };

/// What the sensor's registers say, decoded.
struct tsSensorState {
    bool alive = false;           ///< supplied, out of reset and awake
    std::uint32_t frameState = 0; ///< 0 stopped, 3 streaming, 4 lanes on
    std::uint32_t frameControlMode = 0;
    std::uint32_t rows = 0;   ///< rows of the array that are read out
    std::uint32_t width = 0;  ///< of the image on the lanes [pixels]
    std::uint32_t height = 0; ///< of the image on the lanes [lines]
    bool binned = false;      ///< two rows make one
    bool verticalInvert = false;
    bool horizontalInvert = false;
    std::uint32_t analogueCoarse = 0; ///< sum of both stages' fields
    std::uint32_t analogueFine = 0;
    std::uint32_t digitalCoarse = 0;
    std::uint32_t digitalFine = 0;
    std::uint32_t testPattern = 0;
    bool testSignal = false;
    std::uint32_t frameLines = 0; ///< hd_max [lines]
    std::uint32_t lineClocks = 0; ///< hd_prd + 1 [master clocks]
    double clockMhz = 0;          ///< master clock that the FPGA makes
};

/// State of the serial link.
struct tsLinkState {
    bool enabled = false;
    bool locked = false;
    bool rgLocked = false;
    bool gbLocked = false;
    std::uint32_t dpaLock = 0; ///< one bit a lane
    bool aligned = false;
};

/// A register of which driver and sensor think differently.
struct tsShadowDifference {
    std::uint16_t address = 0;
    std::uint32_t shadow = 0;
    std::optional<std::uint32_t> sensor; ///< empty when the sensor does not hold the register
    std::string why;                     ///< for example "lost: the sensor was asleep"
};

/// Something that goes wrong while the head runs. The texts are those of a scenario's section
/// "[Fault NAME]"; docs/scenarios.md has all of them. Of faults that last at the same time and set
/// the same thing, the one that was named later wins.
struct tsFault {
    std::string name = {};  ///< of your choice, without line breaks
    std::string what = {};  ///< for example "lanes 3 7 lost"
    std::string at = {};    ///< begins: milliseconds since the head was built, "450"
    std::string after = {}; ///< begins: with an event of the log, "3 GPIO RESET_B = 1"
    std::string lasts = {}; ///< ends: milliseconds after it began (`for` in a scenario)
    std::string until = {}; ///< ends: a time as `at`, or an event as `after`
};

class tcModel;

/// The head. It answers the process's device files for as long as this object lives; there is at
/// most one. Mapped register pages of a head that is gone must not be touched any more.
class SIM_API tcVirtualHead {
public:
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

    /// \param device path of a device file, or "clock" for sleeps. Calls on a GPIO line count with
    ///               their chip, `munmap` counts with "/dev/mem".
    /// \return number of calls that the head answered, refused ones included
    [[nodiscard]] std::uint64_t calls(teCall kind, std::string_view device) const;
    /// Makes one call fail. A sleep that fails has slept half its time.
    /// \param nth   1 is the next call of this kind on this device that counts from the head's
    ///              building; see `calls`
    /// \param error errno, for example EIO, or `kShort`
    void failCall(teCall kind, std::string_view device, std::uint64_t nth, int error);
    /// As `failCall`, for the nth and every later call.
    void failCallsFrom(teCall kind, std::string_view device, std::uint64_t nth, int error);

    /// What became of a fault.
    struct tsFaultRecord {
        std::string name;
        std::optional<std::chrono::nanoseconds> began; ///< empty: it never did
        std::optional<std::chrono::nanoseconds> ended; ///< empty: it lasts, or never began
        friend bool operator==(const tsFaultRecord&, const tsFaultRecord&) = default;
    };
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

/// Names of the supplies.
inline constexpr std::string_view kRail1V2 = "VDD1.2";
inline constexpr std::string_view kRailAvddh = "VDD3.3AVDDH";
inline constexpr std::string_view kRailSvdd = "VDD3.3SVDD";

/// Times that a healthy head takes.
inline constexpr std::chrono::nanoseconds kPllLockTime = std::chrono::milliseconds(3);
inline constexpr std::chrono::nanoseconds kDpaLockTime = std::chrono::milliseconds(4);
inline constexpr std::chrono::nanoseconds kAlignmentTime = std::chrono::milliseconds(25);

/// For `with...After` calls: it does not happen.
inline constexpr std::chrono::nanoseconds kNever = std::chrono::nanoseconds::max();

struct tsHeadOptions;

/// Says what is wrong with a head, then builds it. A head of which nothing is said is healthy.
/// Every `with...` returns the builder.
class SIM_API tcVirtualHeadBuilder {
public:
    tcVirtualHeadBuilder();
    tcVirtualHeadBuilder(const tcVirtualHeadBuilder& other);
    tcVirtualHeadBuilder& operator=(const tcVirtualHeadBuilder& other);
    tcVirtualHeadBuilder(tcVirtualHeadBuilder&&) noexcept;
    tcVirtualHeadBuilder& operator=(tcVirtualHeadBuilder&&) noexcept;
    ~tcVirtualHeadBuilder();

    // --- Supplies and ADC ---

    /// The supply settles at another voltage. \param rail as `tcVirtualHead::rail` \param volts [V]
    tcVirtualHeadBuilder& withRail(std::string_view rail, double volts);
    /// As `withRail`, relative to the nominal voltage. \param volts [V]
    tcVirtualHeadBuilder& withRailOffset(std::string_view rail, double volts);
    /// Nobody answers at the ADC's address (ENXIO).
    tcVirtualHeadBuilder& withoutAdc();
    /// "/dev/i2c-1" is absent.
    tcVirtualHeadBuilder& withoutI2cBus();

    // --- GPIO ---

    /// Default "/dev/gpiochip0".
    tcVirtualHeadBuilder& withGpioChip(std::string_view path);
    tcVirtualHeadBuilder& withoutGpioChip();
    /// No line has this name.
    tcVirtualHeadBuilder& withoutGpioLine(std::string_view name);
    /// Somebody else holds the line (EBUSY).
    tcVirtualHeadBuilder& withBusyGpioLine(std::string_view name);

    // --- SPI ---

    /// Default "/dev/spidev1.0".
    tcVirtualHeadBuilder& withSpiDevice(std::string_view path);
    tcVirtualHeadBuilder& withoutSpiDevice();
    /// Every setting ioctl fails (EINVAL).
    tcVirtualHeadBuilder& withSpiSettingsRefused();
    /// Messages fail. \param nth the first that fails, from 1 \param error errno
    tcVirtualHeadBuilder& withSpiTransfersFailing(std::uint64_t nth, int error);

    // --- FPGA and serial link ---

    /// "/dev/mem" cannot be opened. \param error errno
    tcVirtualHeadBuilder& withMemOpenFailing(int error);
    /// Mapping that starts at this physical address fails. \param error errno
    tcVirtualHeadBuilder& withMapFailing(std::uint32_t physicalAddress, int error);
    /// The core's identification reads 0.
    tcVirtualHeadBuilder& withSilentCore(teCore core);
    tcVirtualHeadBuilder& withSystemId(std::uint32_t first, std::uint32_t second);
    /// How long the flag takes, `kNever` for ever. Default `kPllLockTime`.
    tcVirtualHeadBuilder& withPllFlagAfter(tePllFlag flag, std::chrono::nanoseconds time);
    /// All three flags.
    tcVirtualHeadBuilder& withPllAfter(std::chrono::nanoseconds time);
    /// The lane never locks. \param lane 0 to 11
    tcVirtualHeadBuilder& withStuckLane(unsigned lane);
    /// How long the lane takes, `kNever` for ever. Default `kDpaLockTime`. \param lane 0 to 11
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

/// A file that a scenario puts in place of one in the program's working directory.
struct tsReplacedFile {
    std::string name; ///< in the working directory
    std::string path; ///< of its replacement
};

/// \return section [Files] of a scenario, paths resolved against the scenario's folder
/// \throws std::runtime_error with file, key and what is allowed, for any key of the scenario
[[nodiscard]] SIM_API std::vector<tsReplacedFile> replacedFiles(const std::string& scenarioPath);

/// \return the forms of everything that a fault can be, as docs/scenarios.md has them
[[nodiscard]] SIM_API std::vector<std::string> faultKinds();
/// \param what as `tsFault::what` \return its index in `faultKinds`; empty when it is none
[[nodiscard]] SIM_API std::optional<std::size_t> faultKindOf(const std::string& what);

/// A rule of the checker.
struct tsRule {
    const char* name;   ///< as violations name it
    const char* what;   ///< what is not allowed
    const char* why;    ///< what the hardware would do
    const char* remedy; ///< how software keeps the rule
};

/// \return every rule
[[nodiscard]] SIM_API std::vector<tsRule> rules();

/// \return Markdown tables of every register field of sensor and FPGA
[[nodiscard]] SIM_API std::string registersMarkdown();
/// \return Markdown of every rule
[[nodiscard]] SIM_API std::string rulesMarkdown();
/// \return Markdown of every scenario key
[[nodiscard]] SIM_API std::string scenarioKeysMarkdown();

} // namespace sim
