#include "tests/sensor/fake_adc.h"

#include <utility>

#include <dlfcn.h>

#include <pellum/ads7828.h>

namespace {
std::function<float(int channel, bool singleEnded)> fakeVolts;
}

tcFakeAdc::tcFakeAdc(std::function<float(int channel, bool singleEnded)> volts) {
    fakeVolts = std::move(volts);
}

tcFakeAdc::~tcFakeAdc() {
    fakeVolts = {};
}

// Stands before the board-support library's own operation of this name.
bool Pellum::tcADS7828::Volts(int channel, float& reading, bool singleEnded) {
    if (fakeVolts) {
        reading = fakeVolts(channel, singleEnded);
        return true;
    }
    using tcReal = bool (*)(tcADS7828*, int, float&, bool);
    static const auto real =
        reinterpret_cast<tcReal>(dlsym(RTLD_NEXT, "_ZN6Pellum9tcADS78285VoltsEiRfb"));
    return real(this, channel, reading, singleEnded);
}
