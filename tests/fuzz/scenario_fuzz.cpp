// The virtual head's scenario file: it is read as a whole or refused with a text that names it. A
// head that is built with it lives: its faults come and go when a second reading of the file says.

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <ini.h>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/fuzz/support.h"
#include "tests/sim/head_user.h"

namespace {

using std::chrono::nanoseconds;
using tcFault = sim::tsFaultRecord;

constexpr const char* kFile = "scenario.ini";

/// \return the refusal; empty when the scenario is accepted
template<class Reader>
std::string refusal(Reader reader) {
    try {
        reader();
        return {};
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        fuzz::require(text.starts_with("scenario.ini: ") && text.size() > 14,
                      "a refusal names the file and says why");
        return text;
    }
}

// --- Second reading of an accepted scenario ---

using tcKeys = std::map<std::string, std::string>;

/// Sections in the order of the file; of a key that is there twice, the last value.
struct tsReading {
    std::vector<std::string> faults; // names
    std::map<std::string, tcKeys> sections;
};

int onKey(void* user, const char* section, const char* name, const char* value) {
    auto& reading = *static_cast<tsReading*>(user);
    std::string title = section;
    if (title.starts_with("Fault ") && title.size() > 6) {
        const std::size_t begin = title.find_first_not_of(" \t", 6);
        title = begin == std::string::npos
                    ? ""
                    : title.substr(begin, title.find_last_not_of(" \t") - begin + 1);
        if (std::find(reading.faults.begin(), reading.faults.end(), title) == reading.faults.end())
            reading.faults.push_back(title);
        title = "Fault " + title;
    }
    reading.sections[title][name] = value;
    return 1;
}

tsReading readAgain() {
    tsReading reading;
    fuzz::require(ini_parse(kFile, onKey, &reading) == 0, "only INI files are accepted");
    return reading;
}

/// \return the keys that a section may have; empty: any
std::set<std::string> keysOf(const std::string& section) {
    static const std::map<std::string, std::set<std::string>> known{
        {"Supplies", {"VDD1.2", "VDD3.3AVDDH", "VDD3.3SVDD"}},
        {"ADC", {"answers", "bus"}},
        {"GPIO", {"chip", "missing", "busy"}},
        {"SPI", {"device", "settings", "fail-from"}},
        {"Memory", {"open", "unmappable"}},
        {"FPGA", {"silent", "system-id"}},
        {"Link",
         {"locked", "rgLocked", "gbLocked", "alignment", "polarity", "lanes", "lane0", "lane1",
          "lane2", "lane3", "lane4", "lane5", "lane6", "lane7", "lane8", "lane9", "lane10",
          "lane11"}},
        {"Scene", {"picture"}},
        {"Defects", {}},
        {"Time", {"mode", "wire"}},
        {"Failures", {}},
        {"Files", {}}};
    if (section.starts_with("Fault "))
        return {"what", "at", "after", "for", "until"};
    const auto found = known.find(section);
    fuzz::require(found != known.end(), "an unknown section is refused");
    return found->second;
}

void checkKeys(const tsReading& reading) {
    for (const auto& [section, keys] : reading.sections) {
        const std::set<std::string> known = keysOf(section);
        for (const auto& [name, value] : keys)
            fuzz::require(known.empty() || known.contains(name), "an unknown key is refused");
    }
}

/// \return the key's value; empty where it is not there
std::string valueOf(const tsReading& reading, const std::string& section, const std::string& key) {
    const auto found = reading.sections.find(section);
    if (found == reading.sections.end() || !found->second.contains(key))
        return {};
    return found->second.at(key);
}

std::optional<double> numberIn(const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    return text.empty() || *end != '\0' ? std::nullopt : std::optional(number);
}

std::optional<nanoseconds> timeIn(const std::string& text) {
    const auto milliseconds = numberIn(text);
    return milliseconds ? std::optional(nanoseconds(std::llround(*milliseconds * 1e6)))
                        : std::nullopt;
}

void checkPolarity(const tsReading& reading) {
    const std::string lanes = valueOf(reading, "Link", "polarity");
    fuzz::require(std::strtoul(lanes.c_str(), nullptr, 0) <= 4095, "polarity has 12 bits");
}

// --- A head ---

/// What a fault's moment says: a time, or the Nth event that begins with these words.
struct tsMoment {
    std::optional<nanoseconds> time;
    std::uint64_t nth = 1;
    std::string event;
};

tsMoment momentIn(const std::string& text) {
    tsMoment moment;
    moment.time = timeIn(text);
    std::istringstream words(text);
    std::vector<std::string> all;
    for (std::string word; words >> word;)
        all.push_back(word);
    std::size_t first = 0;
    if (all.size() > 1 && std::isdigit(static_cast<unsigned char>(all[0][0])) != 0) {
        const bool hexadecimal = all[0].starts_with("0x") || all[0].starts_with("0X");
        moment.nth = std::stoull(all[0], nullptr, hexadecimal ? 16 : 10);
        first = 1;
    }
    for (std::size_t at = first; at < all.size(); ++at)
        moment.event += (at == first ? "" : " ") + all[at];
    return moment;
}

/// \return how many events of a time begin with the moment's words; both ends count
std::size_t eventsIn(const std::vector<sim::tsEvent>& log, const tsMoment& moment, nanoseconds from,
                     nanoseconds to) {
    return static_cast<std::size_t>(
        std::count_if(log.begin(), log.end(), [&](const sim::tsEvent& event) {
            return event.time >= from && event.time <= to &&
                   (event.text + " ").starts_with(moment.event + " ");
        }));
}

std::string shown(const std::optional<nanoseconds>& time) {
    return time ? std::to_string(time->count()) + " ns" : "not yet";
}

/// Fails unless a thing that is due at a time came then, or is still to come.
void requireTime(const char* what, nanoseconds due, nanoseconds now,
                 const std::optional<nanoseconds>& came) {
    fuzz::requireEqual(what, shown(due <= now ? std::optional(due) : std::nullopt), shown(came));
}

constexpr std::size_t kRecords = 1024; // of the log

/// A head that lives with a scenario.
class tcLife {
public:
    explicit tcLife(const tsReading& reading)
        : m_reading(reading),
          m_head(sim::aVirtualHead()
                     .withScenario(kFile)
                     .withLogCapacity(kRecords)
                     .withStateEvents()
                     .withQuietViolations()
                     .build()) {}

    // Supplies and reset, as far as the scenario lets them, with time for faults before and after.
    void live() {
        constexpr std::chrono::milliseconds aWhile(20);
        check();
        const tcDescriptor chip = openDevice("/dev/gpiochip0");
        pass(aWhile);
        const tcDescriptor core = requestOutput(chip.get(), lines::kCore, 1);
        pass(aWhile);
        const tcDescriptor svdd = requestOutput(chip.get(), lines::kSvdd, 1);
        const tcDescriptor avddh = requestOutput(chip.get(), lines::kAvddh, 1);
        usleep(300'000);
        check();
        checkRail("VDD1.2", 1.2, core.valid());
        checkRail("VDD3.3SVDD", 3.3, svdd.valid());
        checkRail("VDD3.3AVDDH", 3.3, avddh.valid());
        const tcDescriptor reset = requestOutput(chip.get(), lines::kReset, 1);
        pass(std::chrono::seconds(2));
        static_cast<void>(setLevel(core, 0));
        pass(std::chrono::hours(300)); // longer than any time of a scenario
    }

private:
    void pass(nanoseconds time) {
        m_head.advance(time);
        check();
    }

    void check() {
        const auto faults = m_head.faults();
        const std::vector<sim::tsEvent> log = m_head.log();
        fuzz::require(faults.size() == m_reading.faults.size(), "every fault is there");
        for (std::size_t at = 0; at < faults.size(); ++at) {
            fuzz::requireEqual("name of a fault", m_reading.faults[at], faults[at].name);
            checkBegin(faults[at], log);
            checkEnd(faults[at], log);
        }
        for (const char* rail : {"VDD1.2", "VDD3.3SVDD", "VDD3.3AVDDH"})
            fuzz::require(m_head.rail(rail) >= 0, "no supply is below ground");
    }

    void checkBegin(const tcFault& fault, const std::vector<sim::tsEvent>& log) const {
        fuzz::require(!fault.began || *fault.began <= m_head.now(),
                      "no fault begins in the future");
        const std::string after = valueOf(m_reading, "Fault " + fault.name, "after");
        const std::string at = valueOf(m_reading, "Fault " + fault.name, "at");
        if (after.empty())
            return requireTime("begin of a fault", timeIn(at).value_or(nanoseconds(0)),
                               m_head.now(), fault.began);
        if (log.size() < kRecords / 4) { // nothing of it is missing
            const tsMoment from = momentIn(after);
            const std::size_t events =
                eventsIn(log, from, nanoseconds(0), fault.began.value_or(m_head.now()));
            fuzz::require(fault.began.has_value() == (events >= from.nth),
                          "a fault begins with its event");
        }
    }

    void checkEnd(const tcFault& fault, const std::vector<sim::tsEvent>& log) const {
        fuzz::require(!fault.ended || (fault.began && *fault.began <= *fault.ended),
                      "a fault ends after it began");
        fuzz::require(!fault.ended || *fault.ended <= m_head.now(), "no fault ends in the future");
        if (!fault.began)
            return;
        const std::string lasts = valueOf(m_reading, "Fault " + fault.name, "for");
        const std::string until = valueOf(m_reading, "Fault " + fault.name, "until");
        const tsMoment to = momentIn(until);
        if (const auto length = timeIn(lasts))
            return requireTime("end of a fault", *fault.began + *length, m_head.now(), fault.ended);
        if (to.time)
            return requireTime("end of a fault", std::max(*fault.began, *to.time), m_head.now(),
                               fault.ended);
        if (until.empty())
            return fuzz::require(!fault.ended, "a fault without an end lasts");
        if (log.size() >= kRecords / 4)
            return;
        if (fault.ended)
            fuzz::require(eventsIn(log, to, *fault.began, *fault.ended) >= to.nth,
                          "a fault ends with its event");
        else
            fuzz::require(eventsIn(log, to, *fault.began + nanoseconds(1), m_head.now()) < to.nth,
                          "a fault lasts until its event");
    }

    /// A supply that is on has the voltage that the scenario says, unless a fault changes it.
    void checkRail(const char* rail, double nominal, bool on) const {
        for (const std::string& name : m_reading.faults) {
            if (valueOf(m_reading, "Fault " + name, "what").starts_with("rail"))
                return;
        }
        const std::string said = valueOf(m_reading, "Supplies", rail);
        const double number = numberIn(said).value_or(0);
        const bool offset = said.empty() || said[0] == '+' || said[0] == '-';
        const double expected = on ? (offset ? nominal + number : number) : 0;
        fuzz::requireEqual(rail, std::to_string(expected), std::to_string(m_head.rail(rail)));
    }

    const tsReading& m_reading;
    sim::tcVirtualHead m_head;
};

// In real time it would take too long.
void run(const tsReading& reading) {
    if (valueOf(reading, "Time", "mode") == "real")
        return;
    std::optional<tcLife> life;
    try {
        life.emplace(reading);
    } catch (const std::runtime_error&) {
        fuzz::require(!valueOf(reading, "Scene", "picture").empty(),
                      "only a picture that is none keeps a head from being built");
        return;
    }
    life->live();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::enterScratchFolder();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::writeFile(kFile, fuzz::text({data, size}));
    const std::string forHead = refusal([] { sim::aVirtualHead().withScenario(kFile); });
    const std::string forLauncher = refusal([] { static_cast<void>(sim::replacedFiles(kFile)); });
    if (!forHead.empty()) {
        fuzz::requireEqual("head and launcher refuse the same", forHead, forLauncher);
        return 0;
    }
    // The launcher also wants the files of [Files] to exist.
    fuzz::require(forLauncher.empty() || forLauncher.starts_with("scenario.ini: [Files] "),
                  "head and launcher accept the same");
    const tsReading reading = readAgain();
    checkKeys(reading);
    checkPolarity(reading);
    run(reading);
    return 0;
}
