// Register settings files: the sensor's initial configuration, one register write a line.

#include <chrono>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "common/mutex_guard.h"
#include "common/pause.h"
#include "common/print.h"
#include "sensor/sensor.h"

namespace {

/// Not a register: 0x400 lies above the 10 bits of an address. A line with it is a pause.
constexpr unsigned short kPauseAddress = 0x400;

[[noreturn]] void rejectLine(const std::string& fileName, unsigned int lineNumber,
                             const std::string& line, const std::istream& parser) {
    printFlushed(std::cerr, "\nError writing registers: ", fileName, " ", lineNumber, ": ", line,
                 "\n");
    printFlushed(std::cerr, "eof: ", parser.eof(), " good: ", parser.good(),
                 " fail: ", parser.fail(), " bad: ", parser.bad(), "\n");
    throw std::exception();
}

} // namespace

int tc3U5MGXS::writeRegistersFromFile(const std::string& fileName) {
    const tcMutexGuard guard(m_registerLock);
    std::ifstream file(fileName);

    // Not reset line by line: a line without numbers repeats the one before it.
    unsigned short address = 0;
    unsigned int value = 0;
    std::istringstream parser;
    parser >> std::hex;

    std::string line;
    for (unsigned int lineNumber = 1; std::getline(file, line); ++lineNumber) {
        if (!line.empty() && line.front() == '#') {
            continue;
        }
        parser.clear();
        parser.str(line);
        parser >> address >> value;
        // At the end of its text even a failed extraction counts: deliberately not guarded.
        if (!parser.good() && !parser.eof()) {
            rejectLine(fileName, lineNumber, line, parser);
        }
        applySettingsLine(address, value);
    }
    return 0;
}

void tc3U5MGXS::applySettingsLine(unsigned short address, unsigned int value) {
    if (address == kPauseAddress) {
        pauseFor(std::chrono::microseconds(value));
    } else {
        writeRegisterUnlocked(address, value);
    }
}
