#include "tests/sensor/fake_adc.h"

#include <utility>

#include <dlfcn.h>

#include <pellum/ads7828.h>

namespace {
tcFakeAdc::tcVolts fakeVolts;
}

tcFakeAdc::tcFakeAdc(tcVolts volts) {
    fakeVolts = std::move(volts);
}

tcFakeAdc::~tcFakeAdc() {
    fakeVolts = {};
}

// Stands before the board-support library's own operation of this name.
bool Pellum::tcADS7828::Volts(int channel, float& reading, bool singleEnded) {
    if (fakeVolts) {
        const std::optional<float> volts = fakeVolts(channel, singleEnded);
        reading = volts.value_or(reading);
        return volts.has_value();
    }
    using tcReal = bool (*)(tcADS7828*, int, float&, bool);
    static const auto real =
        reinterpret_cast<tcReal>(dlsym(RTLD_NEXT, "_ZN6Pellum9tcADS78285VoltsEiRfb"));
    return real(this, channel, reading, singleEnded);
}
