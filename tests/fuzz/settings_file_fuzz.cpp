// The register settings file: what an independent reading of its text predicts must be what the
// sensor's port sees.

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>

#include "common/pause.h"
#include "sensor/sensor.h"
#include "tests/fuzz/settings_prediction.h"
#include "tests/fuzz/support.h"

namespace {

std::vector<std::string> steps;

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

} // namespace

// Stands before the product's own: virtual time.
void pauseFor(std::chrono::microseconds duration) {
    steps.push_back("PAUSE " + std::to_string(duration.count()) + " us");
}

// Stands before the host library's SPI device: a port that remembers.
struct tcSPIDevice::tsPort {};
tcSPIDevice::tcSPIDevice(std::string /*path*/) {}
tcSPIDevice::~tcSPIDevice() = default;
bool tcSPIDevice::isOpen() const {
    return true;
}
tsSPIConfiguration tcSPIDevice::getConfiguration() {
    return {};
}
bool tcSPIDevice::setConfiguration(const tsSPIConfiguration& /*configuration*/) {
    return true;
}
int tcSPIDevice::write(const void* bytes, std::size_t count) {
    fuzz::require(count == 4, "a frame has four bytes");
    const auto* const sent = static_cast<const std::uint8_t*>(bytes);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "SPI %02X %02X %02X %02X", sent[0], sent[1], sent[2],
                  sent[3]);
    steps.emplace_back(text.data());
    return 4;
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    fuzz::silenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::tcErrorCollector errors;
    static tc3U5MGXS sensor("/dev/spidev1.0");
    static const fuzz::tcMemoryFile file;

    const std::string text = fuzz::text({data, size});
    file.write(text);
    steps.clear();
    errors.clear();
    bool thrown = false;
    try {
        fuzz::require(sensor.writeRegistersFromFile(file.path()) == 0, "the result is 0");
    } catch (const std::exception& exception) {
        fuzz::requireEqual("the exception is a plain one", std::exception().what(),
                           exception.what());
        thrown = true;
    }
    const fuzz::tsPrediction prediction = fuzz::predict(text, file.path());
    fuzz::requireEqual("what the sensor sees", joined(prediction.steps), joined(steps));
    fuzz::requireEqual("the report", prediction.report, errors.collected());
    fuzz::require(thrown == !prediction.report.empty(), "a report and an exception come together");
    return 0;
}
