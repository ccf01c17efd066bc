// Another plug-in than the product's: whatever the host application does with it, it does with any.

#include <stdexcept>
#include <string>

#include "tests/apps/fake_board.h"

extern "C" __attribute__((visibility("default"))) int sensorType() {
    return 42;
}

extern "C" __attribute__((visibility("default"))) Varnox::tcSensorBoard*
makeSensor(const char* device) {
    const std::string name(device);
    if (name == "throw")
        throw std::runtime_error("no head there");
    if (name == "throw a number")
        throw 42;
    return name == "null" ? nullptr : new tcFakeBoard(name);
}
