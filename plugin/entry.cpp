#include "plugin/entry.h"

#include <stdexcept>
#include <string>

#include "plugin/board.h"

namespace {
constexpr int kSensorType = 7; // the host's code of this sensor
}

int sensorType() {
    return kSensorType;
}

Varnox::tcSensorBoard* makeSensor(const char* spiDevice) {
    if (spiDevice == nullptr) {
        // The text that hosts know, which newer C++ libraries no longer use.
        throw std::logic_error("basic_string::_M_construct null not valid");
    }
    return new Varnox::tc3U5MGXSSensorBoard(std::string(spiDevice));
}
