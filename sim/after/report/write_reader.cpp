#include "sim/after/report/write_reader.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "sensor/registers.h"
#include "sim/base/timed_text.h"
#include "sim/base/write_fates.h"

namespace sim {

namespace {

const tsWriteFate& fateNamed(const std::string& word) {
    const auto* const fate =
        std::find_if(kWriteFates.begin(), kWriteFates.end(),
                     [&word](const tsWriteFate& known) { return known.word == word; });
    if (fate == kWriteFates.end()) {
        throw std::runtime_error("\"" + word + "\" is no fate of a register write");
    }
    return *fate;
}

// A transfer that brought no word to the sensor.
tsWrite lostTransfer(std::uint64_t timeNs, const char* fate) {
    tsWrite write;
    write.timeNs = timeNs;
    write.sensor = true;
    write.taken = false;
    write.fate = fate;
    return write;
}

} // namespace

void tcWriteReader::takeWord(const tsTraceLine& line) {
    if (line.words.size() != 6) {
        throw std::runtime_error("\"" + line.text + "\" is no register write");
    }
    tsWrite write;
    write.timeNs = line.timeNs;
    write.sensor = line.words[1] == "SENSOR-WORD";
    write.address = static_cast<std::uint32_t>(numberFrom(line.words[2]));
    if (line.words[3] != "-") {
        write.before = static_cast<std::uint32_t>(numberFrom(line.words[3]));
    }
    write.value = static_cast<std::uint32_t>(numberFrom(line.words[4]));
    const tsWriteFate& fate = fateNamed(line.words[5]);
    write.taken = fate.taken;
    write.fate = fate.meaning;
    if (write.sensor) {
        m_run.happened("register", line.timeNs);
    }
    if (write.taken) {
        hold(write);
    }
    m_run.writes.push_back(write);
}

void tcWriteReader::hold(const tsWrite& write) {
    if (write.sensor) {
        m_exposures.takeWrite(write.timeNs, write.address);
        m_held.sensor[write.address] = write.value;
    } else {
        m_held.fpga[write.address] = write.value;
    }
}

void tcWriteReader::takeRest(const tsTraceLine& line) {
    tsWrite write = lostTransfer(line.timeNs, "lost: no whole word of 32 bits");
    write.other = line.words[2] + " bits " + line.words.back();
    m_run.writes.push_back(write);
}

void tcWriteReader::takeFailedTransfer(const tsTraceLine& line) {
    const auto end = std::find(line.words.begin(), line.words.end(), "failed");
    const std::vector<std::string> bytes(line.words.begin() + 1, end);
    tsWrite write = lostTransfer(line.timeNs, "lost: the SPI transfer failed");
    if (bytes.size() == sizeof(std::uint32_t)) {
        std::uint32_t word = 0;
        for (unsigned byte = 0; byte < bytes.size(); ++byte) {
            word |= static_cast<std::uint32_t>(numberFrom(bytes[byte], 16)) << (8 * byte);
        }
        write.address = word >> sensorWire::kAddressShift;
        write.value = word & sensorWire::kValueMask;
        const auto held = m_held.sensor.find(write.address);
        if (held != m_held.sensor.end()) {
            write.before = held->second;
        }
    } else {
        write.other = std::to_string(bytes.size()) + " bytes";
        for (const std::string& byte : bytes) {
            write.other += " " + byte;
        }
    }
    m_run.writes.push_back(write);
}

} // namespace sim
