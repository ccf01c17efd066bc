#include "sim/after/head_state.h"

#include <algorithm>
#include <stdexcept>

#include "fpga/registers.h"
#include "sim/base/timed_text.h"
#include "sim/base/write_fates.h"

namespace sim {

namespace {

constexpr std::string_view kSpiSetting = "SPI-";

std::vector<std::string_view> wordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (end != 0) {
            words.push_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

bool taken(std::string_view fate) {
    const auto* const found =
        std::find_if(kWriteFates.begin(), kWriteFates.end(),
                     [fate](const tsWriteFate& one) { return one.word == fate; });
    return found != kWriteFates.end() && found->taken;
}

} // namespace

void tcHeadState::take(std::uint64_t number, std::uint64_t timeNs, std::string_view text) {
    m_event = number;
    m_timeNs = std::max(m_timeNs, timeNs);
    m_now = timeNs;
    const tcWords words = wordsOf(text);
    if (words.empty()) {
        return;
    }
    const std::string_view what = words.front();
    if (what == "VIOLATION") {
        ++m_violations;
        return;
    }
    if (what == "NOTE") {
        takeNote(text);
        return;
    }
    const bool failed = text.find(" failed ") != std::string_view::npos;
    m_failedCalls += failed ? 1 : 0;
    try {
        if (what == "STATE" && words.size() > 1) {
            takeState(words);
        } else if (what == "ADC" && words.size() > 2) {
            const auto channel = static_cast<std::uint32_t>(numberFrom(words[1]));
            tsConversionNow conversion{{}, number, timeNs};
            if (!failed) {
                conversion.steps = static_cast<std::uint32_t>(numberFrom(words[2]));
            }
            m_conversions[channel] = conversion;
        } else if (failed) {
            return;
        } else if (what == "GPIO" && words.size() > 2) {
            takeLine(words);
        } else if (what == "READ" && words.size() == 3) {
            m_fpga[static_cast<std::uint32_t>(numberFrom(words[1]))] = holds(numberFrom(words[2]));
        } else if (what.starts_with(kSpiSetting) && words.size() == 2) {
            m_spiSettings[std::string(what.substr(kSpiSetting.size()))] = numberFrom(words[1]);
        }
    } catch (const std::runtime_error&) {
        return; // no head writes that
    }
}

void tcHeadState::lost(std::uint64_t events) {
    tcHeadState unknown;
    unknown.m_event = m_event;
    unknown.m_timeNs = m_timeNs;
    unknown.m_violations = m_violations;
    unknown.m_failedCalls = m_failedCalls;
    unknown.m_lostEvents = m_lostEvents + events;
    *this = unknown;
}

tsRegisterNow tcHeadState::holds(std::uint64_t value) const {
    return {static_cast<std::uint32_t>(value), m_event.value_or(0), m_now};
}

void tcHeadState::takeState(const tcWords& words) {
    const std::string_view name = words[1];
    if (name == "END") {
        m_ended = true;
        return;
    }
    if (name == "SENSOR-WORD") {
        takeSensorWord(words);
        return;
    }
    if (name == "FPGA-WORD") {
        takeFpgaWord(words);
        return;
    }
    tsNumbersNow now{{}, m_event.value_or(0)};
    for (std::size_t at = 2; at < words.size(); ++at) {
        now.numbers.push_back(numberFrom(words[at]));
    }
    if (name == "SENSOR-AWAKE" && !now.numbers.empty() && now.numbers.front() == 0) {
        m_sensor.clear(); // it forgets everything
    }
    m_numbers.insert_or_assign(std::string(name), std::move(now));
}

// "STATE SENSOR-WORD 0x010 - 0x000004 asleep": register, what it held, what was written, its fate.
void tcHeadState::takeSensorWord(const tcWords& words) {
    constexpr std::size_t expected = 6;
    if (words.size() != expected) {
        return;
    }
    const auto address = static_cast<std::uint32_t>(numberFrom(words[2]));
    const tsRegisterNow now = holds(numberFrom(words[4]));
    m_sent[address] = now;
    if (taken(words[5])) {
        m_sensor[address] = now;
    }
}

// "STATE FPGA-WORD 0xFF210008 0x00000000 0x000005D9 stuck"
void tcHeadState::takeFpgaWord(const tcWords& words) {
    constexpr std::size_t expected = 6;
    if (words.size() == expected && taken(words[5])) {
        m_fpga[static_cast<std::uint32_t>(numberFrom(words[2]))] = holds(numberFrom(words[4]));
    }
}

// "GPIO RESET_B out 0", "GPIO RESET_B in", "GPIO RESET_B = 1", "GPIO RESET_B released"
void tcHeadState::takeLine(const tcWords& words) {
    constexpr std::size_t withLevel = 4;
    tsLineNow& line = m_lines[std::string(words[1])];
    line.event = m_event.value_or(0);
    if (words[2] == "out" || words[2] == "in") {
        line.output = words[2] == "out";
        line.level.reset();
    }
    if (words.size() == withLevel) {
        line.level = static_cast<unsigned>(numberFrom(words[3]));
    }
}

// "NOTE fault NAME begins"; the name may have spaces
void tcHeadState::takeNote(std::string_view text) {
    constexpr std::string_view start = "NOTE fault ";
    constexpr std::string_view begins = " begins";
    constexpr std::string_view ends = " ends";
    if (!text.starts_with(start)) {
        return;
    }
    text.remove_prefix(start.size());
    if (text.ends_with(begins)) {
        text.remove_suffix(begins.size());
        m_faults.emplace_back(text);
    } else if (text.ends_with(ends)) {
        text.remove_suffix(ends.size());
        const auto found = std::find(m_faults.begin(), m_faults.end(), text);
        if (found != m_faults.end()) {
            m_faults.erase(found);
        }
    }
}

const tsNumbersNow* tcHeadState::numbers(std::string_view name) const {
    const auto found = m_numbers.find(name);
    return found == m_numbers.end() ? nullptr : &found->second;
}

bool tcHeadState::flag(std::string_view name) const {
    const tsNumbersNow* const now = numbers(name);
    return now != nullptr && !now->numbers.empty() && now->numbers.front() != 0;
}

double tcHeadState::clockMhz() const {
    using namespace pllRegisters;
    const auto counter = m_fpga.find(fpgaAddresses::kPll + 4 * kCounter.address);
    return counter != m_fpga.end() && counter->second.value == kCounter24MHz ? 24.0 : 36.0;
}

std::size_t tcHeadState::bytes() const {
    constexpr std::size_t node = 96;
    return sizeof *this +
           node * (m_numbers.size() * 2 + m_lines.size() + m_conversions.size() + m_sensor.size() +
                   m_sent.size() + m_fpga.size() + m_spiSettings.size() + m_faults.size());
}

} // namespace sim
