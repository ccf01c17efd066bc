// What a fault can be, and how a scenario says it.

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>

#include "sim/base/calls.h"
#include "sim/base/error_names.h"
#include "sim/base/fault.h"
#include "sim/chips/gpio_chip.h"
#include "sim/scenario/faults.h"
#include "sim/scenario/reference.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

using text::whole;
using tcWords = std::span<const std::string>;
using tcNumbers = std::optional<tsFaultNumbers>;

// --- The words of a fault ---

template<std::size_t Size>
std::optional<std::uint32_t> indexIn(const std::array<std::string_view, Size>& names,
                                     std::string_view name) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(found - names.begin());
}

bool are(tcWords words, std::initializer_list<std::string_view> expected) {
    return std::equal(words.begin(), words.end(), expected.begin(), expected.end());
}

bool begin(const std::vector<std::string>& words,
           std::initializer_list<std::string_view> expected) {
    return words.size() >= expected.size() && are(tcWords(words).first(expected.size()), expected);
}

// "fails EIO", "short": how a transfer goes wrong.
tcNumbers transferError(tcWords words) {
    tsFaultNumbers numbers;
    if (are(words, {"short"})) {
        numbers.error = kShort;
        return numbers;
    }
    numbers.error = words.size() == 2 && words[0] == "fails" ? errorNamed(words[1]) : 0;
    return numbers.error == 0 ? std::nullopt : tcNumbers(numbers);
}

// "never", "late 50", "lost": how something that locks goes wrong.
constexpr std::uint32_t kLost = 1;

tcNumbers lockBehaviour(tcWords words) {
    tsFaultNumbers numbers;
    if (are(words, {"never"})) {
        numbers.timeNs = tsLinkFacts::kForEver;
        return numbers;
    }
    if (are(words, {"lost"})) {
        numbers.value = kLost;
        return numbers;
    }
    if (words.size() != 2 || words[0] != "late") {
        return std::nullopt;
    }
    const std::optional<std::uint64_t> time = text::milliseconds(words[1]);
    numbers.timeNs = time.value_or(0);
    return time ? tcNumbers(numbers) : std::nullopt;
}

// Where nothing but a fixed text is asked for.
tcNumbers nothingMore(bool good) {
    return good ? tcNumbers(tsFaultNumbers{}) : std::nullopt;
}

// --- Link ---

tcNumbers readPll(const std::vector<std::string>& words) {
    constexpr std::array<std::string_view, 4> names{"locked", "rgLocked", "gbLocked", "PLL"};
    const std::optional<std::uint32_t> name = indexIn(names, words[0]);
    tcNumbers numbers = name ? lockBehaviour(tcWords(words).subspan(1)) : std::nullopt;
    if (numbers) {
        numbers->which = *name == 3 ? 7U : 1U << *name;
    }
    return numbers;
}

void applyPll(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    tsLinkFacts& link = conditions.link;
    for (std::size_t flag = 0; flag < kPllFlags; ++flag) {
        if ((numbers.which >> flag & 1) == 0) {
            continue;
        }
        link.lostPll &= ~(1U << flag);
        if (numbers.value == kLost) {
            link.lostPll |= 1U << flag;
        } else {
            link.pllNs[flag] = numbers.timeNs;
        }
    }
}

// "lanes 3 7 late 50", "lanes all lost"
tcNumbers readLanes(const std::vector<std::string>& words) {
    if (words[0] != "lanes") {
        return std::nullopt;
    }
    std::uint32_t lanes = 0;
    std::size_t at = 1;
    if (words.size() > 1 && words[1] == "all") {
        lanes = (1U << kLinkLanes) - 1;
        ++at;
    } else {
        for (; at < words.size(); ++at) {
            const std::optional<unsigned> lane = whole<unsigned>(words[at]);
            if (!lane) {
                break;
            }
            if (*lane >= kLinkLanes) {
                return std::nullopt;
            }
            lanes |= 1U << *lane;
        }
    }
    tcNumbers numbers = lanes == 0 ? std::nullopt : lockBehaviour(tcWords(words).subspan(at));
    if (numbers) {
        numbers->which = lanes;
    }
    return numbers;
}

void applyLanes(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    tsLinkFacts& link = conditions.link;
    link.lostLanes &= ~numbers.which;
    if (numbers.value == kLost) {
        link.lostLanes |= numbers.which;
        return;
    }
    for (std::size_t lane = 0; lane < kLinkLanes; ++lane) {
        if ((numbers.which >> lane & 1) != 0) {
            link.laneNs[lane] = numbers.timeNs;
        }
    }
}

tcNumbers readAlignment(const std::vector<std::string>& words) {
    return words[0] == "alignment" ? lockBehaviour(tcWords(words).subspan(1)) : std::nullopt;
}

void applyAlignment(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    conditions.link.alignmentLost = numbers.value == kLost;
    if (numbers.value != kLost) {
        conditions.link.alignmentNs = numbers.timeNs;
    }
}

tcNumbers readPolarity(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> lanes =
        words.size() == 2 && words[0] == "polarity" ? whole<std::uint32_t>(words[1]) : std::nullopt;
    if (!lanes || *lanes >> kLinkLanes != 0) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = *lanes;
    return numbers;
}

void applyPolarity(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    conditions.link.polarity = numbers.which;
}

// --- Supplies ---

tsRailFacts& railOf(const tsFaultNumbers& numbers, tsConditions& conditions) {
    return conditions.rails[numbers.which];
}

// \return the rail of "rail NAME ..."
std::optional<teRail> railOf(const std::vector<std::string>& words) {
    return words.size() > 2 && words[0] == "rail" ? railNamed(words[1]) : std::nullopt;
}

tcNumbers readRail(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    const std::optional<double> volts =
        rail && words.size() == 3 ? text::volts(*rail, words[2]) : std::nullopt;
    if (!volts) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    numbers.volts = *volts;
    return numbers;
}

void applyRail(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    railOf(numbers, conditions).settledVolts = numbers.volts;
}

tcNumbers readDroop(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    if (!rail || words.size() != 6 || words[2] != "droops" || words[4] != "over") {
        return std::nullopt;
    }
    const std::optional<double> volts = text::number(words[3]);
    const std::optional<std::uint64_t> time = text::milliseconds(words[5]);
    if (!volts || *volts <= 0 || !time) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    numbers.volts = *volts;
    numbers.timeNs = *time;
    return numbers;
}

void applyDroop(const tsFaultNumbers& numbers, std::uint64_t beganNs, tsConditions& conditions) {
    tsRailFacts& rail = railOf(numbers, conditions);
    rail.sunkVolts = numbers.volts;
    rail.sinksFromNs = beganNs;
    rail.sinksForNs = numbers.timeNs;
}

tcNumbers readUnreadable(const std::vector<std::string>& words) {
    const std::optional<teRail> rail = railOf(words);
    if (!rail || words.size() != 3 || words[2] != "unreadable") {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = static_cast<std::uint32_t>(*rail);
    return numbers;
}

void applyUnreadable(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    railOf(numbers, conditions).unreadable = true;
}

// --- Devices ---

tcNumbers readAdc(const std::vector<std::string>& words) {
    return words[0] == "ADC" ? transferError(tcWords(words).subspan(1)) : std::nullopt;
}

tcNumbers readSpi(const std::vector<std::string>& words) {
    return words[0] == "SPI" ? transferError(tcWords(words).subspan(1)) : std::nullopt;
}

// "line RESET_B missing", "line RESET_B busy"
constexpr std::uint32_t kBusy = 1;

tcNumbers readLine(const std::vector<std::string>& words) {
    if (words.size() != 3 || words[0] != "line" || (words[2] != "missing" && words[2] != "busy")) {
        return std::nullopt;
    }
    const std::optional<unsigned> line = tcGpioChip::lineNamed(words[1]);
    if (!line) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = 1U << *line;
    numbers.value = words[2] == "busy" ? kBusy : 0;
    return numbers;
}

void applyLine(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    (numbers.value == kBusy ? conditions.busyLines : conditions.missingLines) |= numbers.which;
}

// --- FPGA ---

struct tsBlock {
    std::string_view name;
    std::uint32_t address;
};
constexpr std::array kBlocks{
    tsBlock{"base", fpgaAddresses::kBase},
    tsBlock{"clock", fpgaAddresses::kPll},
    tsBlock{"frame-control", fpgaAddresses::kFrameCtrl},
    tsBlock{"pwm", fpgaAddresses::kPwm},
    tsBlock{"bad-pixel-take-over", fpgaAddresses::kBadPixelTakeOver},
    tsBlock{"bad-pixel-table", fpgaAddresses::kBadPixelTable},
    tsBlock{"bad-pixel", fpgaAddresses::kBadPixelControl},
    tsBlock{"pixel-shift", fpgaAddresses::kPixelShift},
};

// The page of "block NAME SUFFIX", as a fault's `which`.
tcNumbers readBlock(const std::vector<std::string>& words, std::string_view suffix) {
    if (words.size() != 3 || words[0] != "block" || words[2] != suffix) {
        return std::nullopt;
    }
    for (const tsBlock& block : kBlocks) {
        if (block.name == words[1]) {
            tsFaultNumbers numbers;
            numbers.which = (block.address - fpgaAddresses::kRegion) / kPageBytes;
            return numbers;
        }
    }
    return std::nullopt;
}

tcNumbers readSilent(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> core =
        words.size() == 3 && words[0] == "block" && words[2] == "silent"
            ? indexIn(kCoreNames, words[1])
            : std::nullopt;
    if (!core) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = *core;
    return numbers;
}

void applyStuckBlock(const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
    constexpr std::size_t words = kPageBytes / 4;
    for (std::size_t word = 0; word < words; ++word) {
        conditions.stuck.set(numbers.which * words + word);
    }
}

tcNumbers readStuckWord(const std::vector<std::string>& words) {
    const std::optional<std::uint32_t> address =
        words.size() == 3 && words[0] == "word" && words[2] == "stuck"
            ? whole<std::uint32_t>(words[1])
            : std::nullopt;
    if (!address || *address % 4 != 0 ||
        *address - fpgaAddresses::kRegion >= fpgaAddresses::kRegionLength) {
        return std::nullopt;
    }
    tsFaultNumbers numbers;
    numbers.which = (*address - fpgaAddresses::kRegion) / 4;
    return numbers;
}

// --- The table ---

constexpr std::array kKinds{
    tsFaultKind{"`PLL never`, `PLL late MS` or `PLL lost`; `locked`, `rgLocked` or `gbLocked` in "
                "the place of `PLL`",
                "The receiver's PLL, or one of its flags: does not lock, takes MS milliseconds to "
                "lock, or loses its lock.",
                readPll, applyPll},
    tsFaultKind{"`lanes 3 7 never`, `lanes 3 7 late MS` or `lanes 3 7 lost`; `lanes all`",
                "Lanes, 0 to 11, in the same way.", readLanes, applyLanes},
    tsFaultKind{"`alignment never`, `alignment late MS` or `alignment lost`",
                "Frame alignment in the same way.", readAlignment, applyAlignment},
    tsFaultKind{"`polarity 0x5D8`", "Which lanes arrive inverted: what the lane inversion must be.",
                readPolarity, applyPolarity},
    tsFaultKind{"`rail VDD1.2 0.9`, or an offset with its sign: `rail VDD1.2 -0.3`",
                "The supply has another voltage at once.", readRail, applyRail},
    tsFaultKind{"`rail VDD1.2 droops 0.3 over 20`",
                "The supply sinks by so many volts within so many milliseconds, in a straight "
                "line, and stays there.",
                readDroop, applyDroop},
    tsFaultKind{"`rail VDD1.2 unreadable`",
                "The monitor acknowledges, but drives no bit of this supply's readings: they are "
                "0xFFFF, which is no code of 12 bits.",
                readUnreadable, applyUnreadable},
    tsFaultKind{"`ADC fails ERRNO` or `ADC short`",
                "Transfers with the supply monitor fail: ENXIO when nobody acknowledges, "
                "ETIMEDOUT when the bus never becomes free. Or the last message is missing.",
                readAdc,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.adcError = numbers.error;
                }},
    tsFaultKind{"`ADC floats`", "All its readings are 0xFFFF.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"ADC", "floats"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.adcFloats = true;
                }},
    tsFaultKind{"`I2C missing`", "`/dev/i2c-1` does not exist.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"I2C", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.i2cPresent = false;
                }},
    tsFaultKind{"`line RESET_B missing` or `line RESET_B busy`",
                "No line has this name; or somebody else holds it: who holds it already keeps it, "
                "and a new request is refused.",
                readLine, applyLine},
    tsFaultKind{"`GPIO missing`", "The chip's device file does not exist.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"GPIO", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.gpioPresent = false;
                }},
    tsFaultKind{"`SPI missing`", "The sensor's port does not exist: it cannot be opened.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"SPI", "missing"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.spiPresent = false;
                }},
    tsFaultKind{"`SPI settings refused`",
                "The port takes neither mode, bit order, word size nor clock.",
                [](const std::vector<std::string>& words) {
                    return nothingMore(are(words, {"SPI", "settings", "refused"}));
                },
                [](const tsFaultNumbers&, std::uint64_t, tsConditions& conditions) {
                    conditions.spiSettingsRefused = true;
                }},
    tsFaultKind{"`SPI fails ERRNO` or `SPI short`",
                "Messages fail; or give half of their bytes and send nothing.", readSpi,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.spiError = numbers.error;
                }},
    tsFaultKind{"`memory fails ERRNO`",
                "`/dev/mem` cannot be opened. Each block opens it for itself: a fault between two "
                "events `OPEN /dev/mem` meets one block.",
                [](const std::vector<std::string>& words) {
                    const bool good = begin(words, {"memory", "fails"}) && words.size() == 3;
                    tcNumbers numbers =
                        good ? transferError(tcWords(words).subspan(1)) : std::nullopt;
                    return numbers;
                },
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.memOpenError = numbers.error;
                }},
    tsFaultKind{
        "`block NAME unmappable`; NAME is base, clock, frame-control, pwm, "
        "bad-pixel-take-over, bad-pixel-table, bad-pixel or pixel-shift",
        "The block's registers cannot be mapped (ENOMEM).",
        [](const std::vector<std::string>& words) { return readBlock(words, "unmappable"); },
        [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
            conditions.mapErrors[numbers.which] = ENOMEM;
        }},
    tsFaultKind{"`block NAME silent`; NAME is frame-control, pwm, pixel-shift or bad-pixel",
                "The core's identification reads 0: it is not initialized.", readSilent,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.silent[numbers.which] = true;
                }},
    tsFaultKind{"`block NAME stuck`; NAME as for unmappable",
                "No register of the block takes what is written: a clock generator that does not "
                "follow, a pulse core that refuses.",
                [](const std::vector<std::string>& words) { return readBlock(words, "stuck"); },
                applyStuckBlock},
    tsFaultKind{"`word 0xFF204300 stuck`", "One register in the same way.", readStuckWord,
                [](const tsFaultNumbers& numbers, std::uint64_t, tsConditions& conditions) {
                    conditions.stuck.set(numbers.which);
                }},
};

const tsFaultKind* kindOf(const std::vector<std::string>& words, tsFaultNumbers& numbers) {
    if (words.empty()) {
        return nullptr;
    }
    for (const tsFaultKind& kind : kKinds) {
        if (const tcNumbers read = kind.read(words)) {
            numbers = *read;
            return &kind;
        }
    }
    return nullptr;
}

// --- When ---

// What lines of the log begin with. What the head does by itself is not always logged.
constexpr std::array<std::string_view, 17> kEvents{
    "SPI",   "SPI-MODE", "SPI-LSB", "SPI-BITS", "SPI-HZ", "GPIO",  "ADC",  "ADC-COMMAND", "READ",
    "WRITE", "SLEEP",    "OPEN",    "CLOSE",    "MAP",    "UNMAP", "NOTE", "VIOLATION"};

constexpr const char* kTimeForm = "milliseconds since the head was built, for example `450`";
constexpr const char* kEventForm =
    "`N EVENT`, or `EVENT` for the first one: the words with which a line of the log begins, for "
    "example `3 GPIO RESET_B = 1`";
constexpr const char* kLengthForm = "milliseconds, more than 0";

std::optional<tsMoment> timeFrom(const std::string& value) {
    tsMoment moment;
    moment.timeNs = text::milliseconds(value);
    return moment.timeNs ? std::optional(moment) : std::nullopt;
}

// The words of a line are separated by one blank each.
std::string joined(tcWords words) {
    std::string result;
    for (const std::string& word : words) {
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

std::optional<tsMoment> eventFrom(const std::string& value) {
    const std::vector<std::string> words = text::words(value);
    tsMoment moment;
    std::size_t first = 0;
    if (words.size() > 1) {
        if (const std::optional<std::uint64_t> nth = whole<std::uint64_t>(words[0])) {
            moment.nth = *nth;
            first = 1;
        }
    }
    if (first >= words.size() || moment.nth == 0 || !indexIn(kEvents, words[first])) {
        return std::nullopt;
    }
    moment.event = joined(tcWords(words).subspan(first));
    return moment;
}

std::optional<tsMoment> timeOrEvent(const std::string& value) {
    const std::optional<tsMoment> time = timeFrom(value);
    return time ? time : eventFrom(value);
}

std::string allKinds() {
    std::string result;
    for (const tsFaultKind& kind : kKinds) {
        result += (result.empty() ? "" : "; ") + std::string(kind.form);
    }
    return result;
}

// A key of a fault's section.
struct tsFaultKey {
    const char* name;
    std::string tsFault::*text;
    const char* values;
    const char* meaning;
    bool (*understood)(const std::string& value);
};
constexpr std::array kFaultKeys{
    tsFaultKey{"what", &tsFault::what, "one of the table below", "What goes wrong.",
               [](const std::string& value) {
                   tsFaultNumbers numbers;
                   return kindOf(text::words(value), numbers) != nullptr;
               }},
    tsFaultKey{"at", &tsFault::at, kTimeForm, "The fault begins then.",
               [](const std::string& value) { return timeFrom(value).has_value(); }},
    tsFaultKey{"after", &tsFault::after, kEventForm,
               "The fault begins with that event, counted since the head was built. Neither `at` "
               "nor `after`: from the start.",
               [](const std::string& value) { return eventFrom(value).has_value(); }},
    tsFaultKey{"for", &tsFault::lasts, kLengthForm, "The fault ends after that time.",
               [](const std::string& value) { return text::milliseconds(value).value_or(0) > 0; }},
    tsFaultKey{"until", &tsFault::until, "a time as for `at`, or an event as for `after`",
               "The fault ends then; events are counted since it began. Neither `for` nor "
               "`until`: never.",
               [](const std::string& value) { return timeOrEvent(value).has_value(); }},
};

} // namespace

std::string faultKeys() {
    std::string result;
    for (const tsFaultKey& key : kFaultKeys) {
        result += (result.empty() ? "" : ", ") + std::string(key.name);
    }
    return result;
}

std::optional<tsFaultError> setFaultText(tsFault& fault, const std::string& key,
                                         const std::string& value) {
    for (const tsFaultKey& known : kFaultKeys) {
        if (key != known.name) {
            continue;
        }
        std::string& text = fault.*known.text;
        if (!text.empty()) {
            return tsFaultError{key, value, "allowed is " + key + " once"};
        }
        if (!known.understood(value)) {
            return tsFaultError{key, value,
                                "allowed is " + (key == "what" ? allKinds() : known.values)};
        }
        text = value;
        return std::nullopt;
    }
    return tsFaultError{key, "", "unknown key; allowed are " + faultKeys()};
}

std::optional<tsPlannedFault> plannedFault(const tsFault& fault, tsFaultError& error) {
    // The texts once more, in their order: whoever builds a head in code has not been asked yet.
    tsFault checked;
    for (const tsFaultKey& key : kFaultKeys) {
        if (const std::string& text = fault.*key.text; !text.empty()) {
            if (std::optional<tsFaultError> wrong = setFaultText(checked, key.name, text)) {
                error = *wrong;
                return std::nullopt;
            }
        }
    }
    tsPlannedFault plan;
    plan.name = fault.name;
    plan.kind = kindOf(text::words(fault.what), plan.numbers);
    if (plan.kind == nullptr) {
        error = {"what", "", "is missing; allowed is " + allKinds()};
        return std::nullopt;
    }
    if (!fault.at.empty() && !fault.after.empty()) {
        error = {"after", fault.after, "allowed is at or after, not both"};
        return std::nullopt;
    }
    if (!fault.lasts.empty() && !fault.until.empty()) {
        error = {"until", fault.until, "allowed is for or until, not both"};
        return std::nullopt;
    }
    plan.from = fault.at.empty() ? eventFrom(fault.after).value_or(tsMoment{})
                                 : timeFrom(fault.at).value_or(tsMoment{});
    plan.until = timeOrEvent(fault.until).value_or(tsMoment{});
    if (!fault.lasts.empty()) {
        plan.lengthNs = text::milliseconds(fault.lasts);
    }
    if (fault.after.empty() && plan.until.timeNs &&
        *plan.until.timeNs <= plan.from.timeNs.value_or(0)) {
        error = {"until", fault.until, "allowed is a time after the fault's begin"};
        return std::nullopt;
    }
    return plan;
}

std::vector<std::string> faultKinds() {
    std::vector<std::string> forms;
    forms.reserve(kKinds.size());
    for (const tsFaultKind& kind : kKinds) {
        forms.emplace_back(kind.form);
    }
    return forms;
}

std::optional<std::size_t> faultKindOf(const std::string& what) {
    tsFaultNumbers numbers;
    const tsFaultKind* kind = kindOf(text::words(what), numbers);
    return kind == nullptr ? std::nullopt
                           : std::optional(static_cast<std::size_t>(kind - kKinds.data()));
}

std::string faultsMarkdown() {
    std::string text =
        "\n## [Fault NAME]\n\n"
        "Something that goes wrong while the program runs: `what`, from when, until when. NAME is "
        "of your\nchoice.\n\n"
        "    [Fault lanes lost]\n"
        "    what  = lanes 3 7 lost\n"
        "    after = 1 GPIO RESET_B = 1\n"
        "    for   = 20\n\n"
        "A fault acts at its time to the nanosecond, also in the middle of a sleep. Of faults that "
        "set the same\nthing at the same time, the later one of the file wins. When a fault ends, "
        "what the others and the keys\nabove say is back at once, as far as it does not need "
        "time: what locks begins its time anew. `never` and\n`late` leave locked what is locked; "
        "`lost` unlocks it. A lane that is held when it is lost locks only\nafter its next reset "
        "sequence. A sensor that a supply failed has forgotten its registers.\n\n"
        "The log says `NOTE fault NAME begins` and `NOTE fault NAME ends`. The summary names every "
        "fault with its\ntimes, and those that never struck: their event never came.\n\n"
        "| Key | Value | Meaning |\n|---|---|---|\n";
    for (const tsFaultKey& key : kFaultKeys) {
        text += "| `" + std::string(key.name) + "` | " + key.values + " | " + key.meaning + " |\n";
    }
    text += "\n| `what` | What happens |\n|---|---|\n";
    for (const tsFaultKind& kind : kKinds) {
        text += "| " + std::string(kind.form) + " | " + kind.meaning + " |\n";
    }
    return text;
}

} // namespace sim
