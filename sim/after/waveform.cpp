#include "sim/after/waveform.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

constexpr unsigned kLanes = 12;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kI2cBitNs = 10'000;
constexpr std::uint64_t kI2cUnits = 20;     // of a bit, in which its edges lie:
constexpr std::uint64_t kI2cStart = 1;      // after data, the clock falls: a start
constexpr std::uint64_t kI2cData = 2;       // data changes
constexpr std::uint64_t kI2cClock = 6;      // the clock rises
constexpr std::uint64_t kI2cFall = 12;      // and falls
constexpr std::uint64_t kI2cPrepare = 14;   // before a stop, data takes its level
constexpr std::uint64_t kI2cIdle = 16;      // the clock goes high for good
constexpr std::uint64_t kI2cStop = 18;      // data rises: the bus is free
constexpr std::uint64_t kShortestBitNs = 8; // its quarters and eighths are whole
constexpr std::uint64_t kForEver = ~std::uint64_t{0};
constexpr std::uint64_t kRampSteps = 20;
constexpr std::uint64_t kFastestPulsesNs = 10'000;

// A variable of the dump, with its changes.
struct tsWire {
    std::string scope;
    std::string name;
    bool real = false;
    std::vector<std::pair<std::uint64_t, std::string>> changes; // time [ns], value
};

// What a pulse train or the frames do at present.
struct tsTrain {
    std::uint64_t periodNs = 0;
    std::uint64_t lengthNs = 0; // of a pulse
    std::uint64_t fromNs = 0;   // the first one that is to be drawn
    bool low = false;           // inverted: a pulse is low, and the line rests at 1
};

// "STATE PULSES 20000000 277 1 5000000": period and length [ns], whether they are inverted, and a
// pulse [ns].
tsTrain pulsesOf(const tsTraceLine& line) {
    if (line.words.size() != 6) {
        throw std::runtime_error("\"" + line.text +
                                 "\": expected period, length, polarity and a pulse");
    }
    return {numberFrom(line.words[2]), numberFrom(line.words[3]), numberFrom(line.words[5]),
            line.words[4] == "1"};
}

// "STATE FRAMES 100000000 25700000 5000000": from one to the next, how long the rows come, and the
// beginning of one [ns].
tsTrain framesOf(const tsTraceLine& line) {
    if (line.words.size() != 5) {
        throw std::runtime_error("\"" + line.text + "\": expected period, length and a frame");
    }
    return {numberFrom(line.words[2]), numberFrom(line.words[3]), numberFrom(line.words[4])};
}

// Bits in a row on a wire.
struct tsBits {
    std::uint64_t startNs = 0;
    std::uint64_t spanNs = 0; // what all of them take
    std::uint64_t count = 0;
    [[nodiscard]] std::uint64_t timeNs(std::uint64_t unit, std::uint64_t unitsPerBit) const {
        return startNs + unit * spanNs / (count * unitsPerBit);
    }
};

// Bits that take their nominal time, or what is left of it until something else happens on the
// wire; but no less than can be drawn.
tsBits fitted(std::uint64_t startNs, std::uint64_t untilNs, std::uint64_t count,
              std::uint64_t nominalNs, std::uint64_t shortestNs) {
    const std::uint64_t leftNs = untilNs > startNs ? untilNs - startNs : 0;
    return {startNs, std::max(std::min(leftNs, nominalNs), count * shortestNs), count};
}

class tcDump {
public:
    tcDump();
    void add(const tsTraceLine& line);
    [[nodiscard]] std::string text(std::uint64_t endNs);

private:
    std::size_t define(const char* scope, const std::string& name, const char* initial,
                       bool real = false);
    std::size_t wire(const std::string& name) const;
    void change(std::size_t wire, std::uint64_t timeNs, const std::string& value);
    void level(std::size_t wire, std::uint64_t timeNs, bool high);

    void addGpio(const tsTraceLine& line);
    void addState(const tsTraceLine& line);
    void addRail(const tsTraceLine& line);
    void addLanes(const tsTraceLine& line, const std::string& prefix);
    void addTransfer(const tsTraceLine& line);
    void setWire(const tsTraceLine& line);
    void select(std::uint64_t timeNs, bool selected);
    void drawTransfer(std::uint64_t untilNs);
    void clockOutBit(std::uint64_t startNs, std::uint64_t endNs, bool high);
    void addI2c(const tsTraceLine& line);
    void drawI2c(std::uint64_t untilNs);
    void i2cEnd(bool stop, std::uint64_t timeNs);
    void train(tsTrain& train, std::size_t wire, tsTrain next, std::uint64_t timeNs);
    void drawTrain(const tsTrain& train, std::size_t wire, std::uint64_t untilNs,
                   std::uint64_t lastNs);

    std::vector<tsWire> m_wires;
    std::map<std::string, std::size_t> m_byName;
    std::map<std::size_t, double> m_volts;
    std::uint64_t m_instantNs = 0; // of the present line
    std::uint64_t m_shiftNs = 0;   // how far its changes are moved
    // SPI
    unsigned m_mode = 0;
    unsigned m_bits = 8;
    std::uint64_t m_hertz = 1'000'000;
    std::uint64_t m_spiEndNs = 0; // of the last bit
    std::uint64_t m_spiBitNs = 0; // how long it takes
    // A transfer is drawn when it is known how long it may take: with the next event on its wires.
    std::uint64_t m_spiFromNs = 0;
    std::vector<bool> m_spiBits;
    // I2C, in the same way: bytes with their acknowledgements
    std::uint64_t m_i2cFromNs = 0;
    std::vector<bool> m_i2cBits; // of the open transfer
    tsBits m_i2cDrawn;
    std::uint64_t m_i2cEndNs = 0;
    tsTrain m_pulses;
    tsTrain m_frames;
};

constexpr const char* kUnknown = "x";
constexpr unsigned kModePhase = 1;
constexpr unsigned kModePolarity = 2;
constexpr unsigned kModeSelectHigh = 4;
constexpr unsigned kModeLsbFirst = 8;
constexpr unsigned kModeNoSelect = 0x40;

const std::array kLines{"LED_STATUS",     "HEAD_PRESENT_B", "PS_1.2V_EN",  "PS_3.3SVDD_EN",
                        "PS_3.3AVDDH_EN", "RESET_B",        "EXT_TRIG_EN", "FAN_ALERT_B"};
const std::array kRailNames{"VDD1.2", "VDD3.3SVDD", "VDD3.3AVDDH"};

tcDump::tcDump() {
    for (const char* line : kLines) {
        define("gpio", line, "0");
    }
    for (const char* rail : kRailNames) {
        define("supplies", rail, "0", true);
        define("supplies", std::string(rail) + "-GOOD", "0");
    }
    define("sensor", "SENSOR-AWAKE", "0");
    define("spi", "SPI-CS", "1");
    define("spi", "SPI-CLK", "0");
    define("spi", "SPI-MOSI", "0");
    define("i2c", "I2C-SCL", "1");
    define("i2c", "I2C-SDA", "1");
    define("link", "FRAME-START", "0");
    define("link", "CORE-ENABLED", "0");
    for (const char* flag : {"PLL-LOCKED", "PLL-RG-LOCKED", "PLL-GB-LOCKED", "ALIGNED"}) {
        define("link", flag, "0");
    }
    define("link", "FRAME-VALID", "0");
    for (const char* what : {"LANE", "DPA-RESET", "DPA-FIFO-RESET", "DPA-HOLD"}) {
        for (unsigned lane = 0; lane < kLanes; ++lane) {
            const bool lock = std::string(what) == "LANE";
            define("lanes", what + std::to_string(lane) + (lock ? "-LOCK" : ""), "0");
        }
    }
}

std::size_t tcDump::define(const char* scope, const std::string& name, const char* initial,
                           bool real) {
    m_byName[name] = m_wires.size();
    m_wires.push_back({scope, name, real, {{0, initial}}});
    return m_wires.size() - 1;
}

std::size_t tcDump::wire(const std::string& name) const {
    const auto found = m_byName.find(name);
    if (found == m_byName.end()) {
        throw std::runtime_error("the head has no wire \"" + name + "\"");
    }
    return found->second;
}

void tcDump::change(std::size_t wire, std::uint64_t timeNs, const std::string& value) {
    auto& changes = m_wires[wire].changes;
    if (changes.back().second == value) {
        return;
    }
    const std::uint64_t wanted = timeNs + (timeNs == m_instantNs ? m_shiftNs : 0);
    const std::uint64_t drawn = std::max(wanted, changes.back().first + 1);
    if (timeNs == m_instantNs) {
        m_shiftNs = drawn - timeNs; // what follows in this instant does not come before
    }
    changes.emplace_back(drawn, value);
}

void tcDump::level(std::size_t wire, std::uint64_t timeNs, bool high) {
    change(wire, timeNs, high ? "1" : "0");
}

void tcDump::add(const tsTraceLine& line) {
    const std::string& what = line.words.front();
    if (line.timeNs != m_instantNs) {
        m_instantNs = line.timeNs;
        m_shiftNs = 0;
    }
    if (line.text.find(" failed ") != std::string::npos) {
        return; // nothing happened on the wires
    }
    if (what == "SPI") {
        addTransfer(line);
    } else if (what == "GPIO") {
        addGpio(line);
    } else if (what == "STATE" && line.words.size() > 1) {
        addState(line);
    }
}

// "GPIO RESET_B = 1", "GPIO RESET_B out 0"; lines without a name are not the head's.
void tcDump::addGpio(const tsTraceLine& line) {
    if (line.words.size() != 4 || line.words[1] == "line") {
        return;
    }
    if (line.words[2] == "=" || line.words[2] == "out") {
        level(wire(line.words[1]), line.timeNs, line.words[3] == "1");
    }
}

void tcDump::addState(const tsTraceLine& line) {
    const std::string& name = line.words[1];
    const bool hasValue = line.words.size() > 2;
    if (name == "END" || name == "SENSOR-WORD" || name == "SENSOR-REST" || name == "FPGA-WORD") {
        return; // no wire
    }
    if (name == "I2C-STOP") {
        i2cEnd(true, line.timeNs);
    } else if (name == "I2C") {
        addI2c(line);
    } else if (!hasValue) {
        throw std::runtime_error("\"" + line.text + "\" says nothing");
    } else if (name == "SPI-WIRE") {
        setWire(line);
    } else if (name == "SPI-SELECT") {
        select(line.timeNs, line.words[2] == "1");
    } else if (name == "PULSES") {
        train(m_pulses, wire("FRAME-START"), pulsesOf(line), line.timeNs);
    } else if (name == "FRAMES") {
        train(m_frames, wire("FRAME-VALID"), framesOf(line), line.timeNs);
    } else if (name == "DPA-RESET" || name == "DPA-FIFO-RESET" || name == "DPA-HOLD") {
        addLanes(line, name);
    } else if (line.words.size() == 4) {
        addRail(line);
    } else {
        level(wire(name), line.timeNs, line.words[2] == "1");
    }
}

std::string realText(double value) {
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.6g", value);
    return {text.data(), static_cast<std::size_t>(length)};
}

// "STATE VDD1.2 1200000 500000": target [uV] and how long it takes [ns].
void tcDump::addRail(const tsTraceLine& line) {
    constexpr double microvolts = 1e6;
    const std::size_t rail = wire(line.words[1]);
    double from = m_volts[rail];
    const double to = static_cast<double>(numberFrom(line.words[2])) / microvolts;
    const std::uint64_t riseNs = numberFrom(line.words[3]);
    // A rail that turns on its way goes on from where it is.
    auto& changes = m_wires[rail].changes;
    while (changes.size() > 1 && changes.back().first > line.timeNs) {
        changes.pop_back();
        from = std::stod(changes.back().second);
    }
    const std::uint64_t steps = riseNs == 0 ? 1 : kRampSteps;
    for (std::uint64_t step = 1; step <= steps; ++step) {
        const double part = static_cast<double>(step) / static_cast<double>(steps);
        change(rail, line.timeNs + riseNs * step / steps, realText(from + (to - from) * part));
    }
    m_volts[rail] = to;
}

void tcDump::addLanes(const tsTraceLine& line, const std::string& prefix) {
    const std::uint64_t lanes = numberFrom(line.words[2]);
    for (unsigned lane = 0; lane < kLanes; ++lane) {
        level(wire(prefix + std::to_string(lane)), line.timeNs, (lanes >> lane & 1) != 0);
    }
}

// "STATE SPI-WIRE 0 32 10000000": mode, bits of a word, clock [Hz].
void tcDump::setWire(const tsTraceLine& line) {
    constexpr unsigned longestWord = 32;
    if (line.words.size() != 5) {
        throw std::runtime_error("\"" + line.text + "\": expected mode, bits and clock");
    }
    const std::uint64_t bits = numberFrom(line.words[3]);
    drawTransfer(line.timeNs);
    m_mode = static_cast<unsigned>(numberFrom(line.words[2]) & 0xFF);
    m_hertz = numberFrom(line.words[4]);
    if (bits == 0 || bits > longestWord || m_hertz == 0) {
        throw std::runtime_error("\"" + line.text + "\": no such word or clock");
    }
    m_bits = static_cast<unsigned>(bits);
    level(wire("SPI-CLK"), line.timeNs, (m_mode & kModePolarity) != 0);
}

void tcDump::select(std::uint64_t timeNs, bool selected) {
    drawTransfer(timeNs);
    if ((m_mode & kModeNoSelect) != 0) {
        return;
    }
    std::uint64_t at = std::max(timeNs, m_spiEndNs);
    if (!selected && m_spiEndNs == at) {
        at -= m_spiBitNs / 8;
    }
    level(wire("SPI-CS"), at, selected == ((m_mode & kModeSelectHigh) != 0));
}

void tcDump::clockOutBit(std::uint64_t startNs, std::uint64_t endNs, bool high) {
    const std::uint64_t quarter = (endNs - startNs) / 4;
    const bool idle = (m_mode & kModePolarity) != 0;
    // With the phase set, the receiver samples at the second edge: data follows the first.
    const std::uint64_t dataNs = (m_mode & kModePhase) != 0 ? startNs + quarter : startNs;
    level(wire("SPI-MOSI"), dataNs, high);
    level(wire("SPI-CLK"), startNs + quarter, !idle);
    level(wire("SPI-CLK"), endNs - quarter, idle);
}

// "SPI 0F B9 04 36": bytes in the order of the device's buffer. Words are numbers with the lowest
// byte first, as both targets keep them.
void tcDump::addTransfer(const tsTraceLine& line) {
    drawTransfer(line.timeNs);
    const std::size_t wordBytes = m_bits <= 8 ? 1 : (m_bits <= 16 ? 2 : 4);
    const std::size_t words = (line.words.size() - 1) / wordBytes;
    for (std::size_t word = 0; word < words; ++word) {
        std::uint64_t value = 0;
        for (std::size_t byte = 0; byte < wordBytes; ++byte) {
            value |= numberFrom(line.words[1 + word * wordBytes + byte], 16) << (8 * byte);
        }
        for (unsigned at = 0; at < m_bits; ++at) {
            const unsigned place = (m_mode & kModeLsbFirst) != 0 ? at : m_bits - 1 - at;
            m_spiBits.push_back((value >> place & 1) != 0);
        }
    }
    m_spiFromNs = std::max(line.timeNs, m_spiEndNs);
}

// The transfer that waits, if one does. \param untilNs when something else happens on the wires
void tcDump::drawTransfer(std::uint64_t untilNs) {
    const std::uint64_t count = m_spiBits.size();
    if (count == 0) {
        return;
    }
    const tsBits bits = fitted(m_spiFromNs, untilNs, count, count * kNsPerSecond / m_hertz,
                               std::min(kShortestBitNs, kNsPerSecond / m_hertz));
    for (std::uint64_t bit = 0; bit < count; ++bit) {
        clockOutBit(bits.timeNs(bit, 1), bits.timeNs(bit + 1, 1),
                    m_spiBits[static_cast<std::size_t>(bit)]);
    }
    m_spiEndNs = bits.timeNs(count, 1);
    m_spiBitNs = bits.spanNs / count;
    m_spiBits.clear();
}

// "STATE I2C 0x49 R ack 07 AE", "STATE I2C 0x49 W nack"
void tcDump::addI2c(const tsTraceLine& line) {
    constexpr std::size_t firstByte = 5;
    if (line.words.size() < firstByte) {
        throw std::runtime_error("\"" + line.text + "\": expected address, direction and answer");
    }
    i2cEnd(false, line.timeNs);
    const auto add = [this](std::uint64_t byte, bool acknowledged) {
        for (int at = 7; at >= 0; --at) {
            m_i2cBits.push_back((byte >> at & 1) != 0);
        }
        m_i2cBits.push_back(!acknowledged);
    };
    const bool reads = line.words[3] == "R";
    add((numberFrom(line.words[2]) & 0x7F) << 1 | (reads ? 1U : 0U), line.words[4] == "ack");
    for (std::size_t at = firstByte; at < line.words.size(); ++at) {
        // The reader does not acknowledge the last byte, so that the chip lets go of the bus.
        const bool last = at + 1 == line.words.size();
        add(numberFrom(line.words[at], 16), !(reads && last));
    }
    m_i2cFromNs = std::max(line.timeNs, m_i2cEndNs);
}

void tcDump::drawI2c(std::uint64_t untilNs) {
    const std::uint64_t count = m_i2cBits.size();
    m_i2cDrawn = fitted(m_i2cFromNs, untilNs, count, count * kI2cBitNs, kI2cUnits);
    const auto at = [this](std::uint64_t bit, std::uint64_t unit) {
        return m_i2cDrawn.timeNs(bit * kI2cUnits + unit, kI2cUnits);
    };
    level(wire("I2C-SDA"), m_i2cFromNs, false);
    level(wire("I2C-SCL"), at(0, kI2cStart), false);
    for (std::uint64_t bit = 0; bit < count; ++bit) {
        level(wire("I2C-SDA"), at(bit, kI2cData), m_i2cBits[static_cast<std::size_t>(bit)]);
        level(wire("I2C-SCL"), at(bit, kI2cClock), true);
        level(wire("I2C-SCL"), at(bit, kI2cFall), false);
    }
    m_i2cEndNs = at(count, 0);
}

// The last bit's rest holds a stop, or makes way for another start.
void tcDump::i2cEnd(bool stop, std::uint64_t timeNs) {
    if (m_i2cBits.empty()) {
        return;
    }
    drawI2c(timeNs);
    const std::uint64_t last = (m_i2cBits.size() - 1) * kI2cUnits;
    level(wire("I2C-SDA"), m_i2cDrawn.timeNs(last + kI2cPrepare, kI2cUnits), !stop);
    level(wire("I2C-SCL"), m_i2cDrawn.timeNs(last + kI2cIdle, kI2cUnits), true);
    level(wire("I2C-SDA"), m_i2cDrawn.timeNs(last + kI2cStop, kI2cUnits), true);
    m_i2cBits.clear();
}

// One train ends, and the next one begins. A pulse that is on its way when only period or length
// change comes to its end; when the pulses stop, it stops.
void tcDump::train(tsTrain& train, std::size_t wire, tsTrain next, std::uint64_t timeNs) {
    if (next.periodNs != 0 && next.fromNs < timeNs) {
        next.fromNs += (timeNs - next.fromNs + next.periodNs - 1) / next.periodNs * next.periodNs;
    }
    const bool begins = next.periodNs != 0 && next.fromNs == timeNs;
    const bool goesOn = train.periodNs >= kFastestPulsesNs && next.periodNs >= kFastestPulsesNs &&
                        train.low == next.low;
    drawTrain(train, wire, timeNs, goesOn ? next.fromNs : timeNs);
    if (!goesOn && !begins) {
        level(wire, timeNs, next.low);
    }
    train = next;
}

// Pulses that begin before `untilNs`; the last one ends before `lastNs`, or not at all.
void tcDump::drawTrain(const tsTrain& train, std::size_t wire, std::uint64_t untilNs,
                       std::uint64_t lastNs) {
    if (train.periodNs != 0 && train.periodNs < kFastestPulsesNs) {
        change(wire, train.fromNs, kUnknown);
    } else if (train.periodNs != 0 && train.lengthNs != 0) {
        for (std::uint64_t at = train.fromNs; at < untilNs; at += train.periodNs) {
            level(wire, at, !train.low);
            const std::uint64_t nextNs = at + train.periodNs;
            const std::uint64_t endNs = at + train.lengthNs;
            if (endNs < (nextNs < untilNs ? nextNs : lastNs)) {
                level(wire, endNs, train.low);
            }
        }
    }
}

// Identifiers are one or two printable characters.
std::string identifier(std::size_t number) {
    constexpr std::size_t first = '!';
    constexpr std::size_t count = '~' - '!' + 1;
    std::string text(1, static_cast<char>(first + number % count));
    if (number >= count) {
        text += static_cast<char>(first + number / count - 1);
    }
    return text;
}

std::string valueText(const tsWire& wire, std::size_t number, const std::string& value) {
    return wire.real ? "r" + value + " " + identifier(number) : value + identifier(number);
}

std::string tcDump::text(std::uint64_t endNs) {
    drawTransfer(kForEver);
    if (!m_i2cBits.empty()) {
        drawI2c(kForEver); // nothing ended it
    }
    train(m_pulses, wire("FRAME-START"), {0, 0, 0, m_pulses.low}, endNs);
    train(m_frames, wire("FRAME-VALID"), {}, endNs);
    std::string result = "$comment a run of the virtual camera head $end\n$timescale 1 ns $end\n"
                         "$scope module head $end\n";
    std::vector<std::pair<std::uint64_t, std::pair<std::size_t, std::size_t>>> order;
    std::string scope;
    for (std::size_t at = 0; at < m_wires.size(); ++at) {
        const tsWire& wire = m_wires[at];
        if (scope != wire.scope) {
            result += scope.empty() ? "" : "$upscope $end\n";
            result += "$scope module " + wire.scope + " $end\n";
            scope = wire.scope;
        }
        result += std::string("$var ") + (wire.real ? "real 64 " : "wire 1 ") + identifier(at) +
                  " " + wire.name + " $end\n";
        for (std::size_t number = 0; number < wire.changes.size(); ++number) {
            order.push_back({wire.changes[number].first, {at, number}});
        }
    }
    result += "$upscope $end\n$upscope $end\n$enddefinitions $end\n";
    std::sort(order.begin(), order.end());
    // Every wire has a first value at time 0; these come in a section of their own.
    result += "#0\n$dumpvars\n";
    std::uint64_t timeNs = 0;
    for (const auto& [changeNs, what] : order) {
        if (changeNs != timeNs) {
            result += (timeNs == 0 ? "$end\n#" : "#") + std::to_string(changeNs) + "\n";
        }
        timeNs = changeNs;
        const auto& [wire, number] = what;
        result += valueText(m_wires[wire], wire, m_wires[wire].changes[number].second) + "\n";
    }
    result += timeNs == 0 ? "$end\n" : "";
    if (endNs > timeNs) {
        result += "#" + std::to_string(endNs) + "\n";
    }
    return result;
}

} // namespace

std::string waveform(const std::vector<tsTraceLine>& trace) {
    tcDump dump;
    for (const tsTraceLine& line : trace) {
        dump.add(line);
    }
    return dump.text(trace.empty() ? 0 : trace.back().timeNs);
}

} // namespace sim
