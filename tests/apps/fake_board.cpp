#include "tests/apps/fake_board.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include <varnox/abstract_handler.h>
#include <varnox/clock_handler.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>

namespace {

constexpr int kLongest = 1'000'000;       // us
constexpr int kLongestExposure = 700'000; // us

/// "FAKE" answers what it was told last, "FAKE N" tells it.
class tcFakeHandler : public Varnox::tcAbstractHandler {
public:
    using tcAbstractHandler::tcAbstractHandler;
    ~tcFakeHandler() override { std::puts("fake: FAKE handler deleted"); }

    std::string execute(std::string& command, std::string& arguments) override {
        if (command == "FAKE")
            return arguments.empty() ? ack(m_told.c_str()) : tell(arguments);
        if (command == "FAKE2")
            return nack(arguments.empty() ? 0 : 3);
        return tcAbstractHandler::execute(command, arguments);
    }

    void update(Varnox::tsUpdate& update) override {
        if (update.address != 0x3A074)
            return;
        update.handled = true;
        if (update.value > 1)
            update.status = 0x8FFF;
    }

private:
    std::string tell(const std::string& told) {
        m_told = told;
        return ack(nullptr);
    }

    std::string m_told = "nothing";
};

/// Head of the chain, in no table.
class tcHiddenHandler : public Varnox::tcAbstractHandler {
public:
    using tcAbstractHandler::tcAbstractHandler;
    ~tcHiddenHandler() override { std::puts("fake: hidden handler deleted"); }

    std::string execute(std::string& command, std::string& arguments) override {
        return command == "HIDDEN" ? ack("found") : tcAbstractHandler::execute(command, arguments);
    }
};

void publish(std::uint32_t address, int value) {
    Varnox::tcRegisterFile::getInstance(nullptr, true)
        ->update_word(address, static_cast<std::uint32_t>(value));
}

} // namespace

tcFakeBoard::tcFakeBoard(std::string device)
    : tcSensorBoard(0, 0, 0, 0, nullptr), tcMultipleROISensor(4), m_device(std::move(device)) {
    numberOfRegions = 1;
}

tcFakeBoard::~tcFakeBoard() {
    std::puts("fake: board deleted");
}

Varnox::tcAbstractHandler*
tcFakeBoard::getCustomHandlers(Varnox::tcAbstractHandler* next,
                               std::map<std::string, Varnox::tcAbstractHandler*>* handlers) {
    auto* const clock = new Varnox::tcClockHandler(this, next, handlers);
    auto* const fake = new tcFakeHandler(this, clock);
    if (handlers != nullptr) {
        (*handlers)["FAKE"] = fake;
        (*handlers)["FAKE2"] = fake;
    }
    return new tcHiddenHandler(this, fake);
}

int tcFakeBoard::resetFpga() {
    return 1;
}

std::string tcFakeBoard::fpgaVersion() {
    return "1.2a";
}

int tcFakeBoard::GetCameraInfo(Varnox::tsCameraInfo& info) {
    std::memcpy(info.model, "FAKE", 5);
    std::memcpy(info.maker, "Nobody", 7);
    info.fullFrame = {0, 0, 2592, 2056};
    info.flags = 0;
    info.sensorWidth = 2592;
    info.sensorHeight = 2056;
    return 0;
}

int tcFakeBoard::setClockSetting(int index) {
    if (m_capturing)
        return 5;
    if (index != 0 && index != 1)
        return 3;
    m_clock = index;
    return 0;
}

int tcFakeBoard::getClockSetting(int& index) {
    index = m_clock;
    return 0;
}

int tcFakeBoard::initialize() {
    updateStatusFMT(6, "Fake head powers up on %s", m_device.c_str());
    std::puts("fake: initialize");
    std::cout << "VFAKE: 3.25\nFake lock: 0x5" << std::endl;
    publish(0x3A004, m_exposure);
    publish(0x3A000, m_interval);
    return m_device.starts_with("init=") ? std::stoi(m_device.substr(5)) : 0;
}

int tcFakeBoard::setExposure(int microseconds) {
    if (m_device == "stubborn")
        throw std::runtime_error("the exposure is stuck");
    if (microseconds > kLongest)
        return 3;
    m_exposure = std::min({microseconds, m_interval, kLongestExposure}) / 10 * 10;
    publish(0x3A004, m_exposure);
    return 0;
}

int tcFakeBoard::getExposure() {
    return m_exposure;
}

int tcFakeBoard::getMinFrameIntervalMicroS() {
    return 12340;
}

int tcFakeBoard::setFrameInterval(int microseconds) {
    if (microseconds > kLongest)
        return 3;
    if (m_device == "rolling") {
        m_interval = microseconds / 900 * 900;
        m_exposure = std::min(m_exposure, m_interval + 25);
        return m_interval > 0 ? 0 : 3;
    }
    m_interval = std::max(microseconds, getMinFrameIntervalMicroS()) / 10 * 10;
    if (m_exposure > m_interval)
        setExposure(m_interval);
    publish(0x3A000, m_interval);
    return 0;
}

int tcFakeBoard::getFrameInterval() {
    return m_interval;
}

bool tcFakeBoard::isRegion(const Varnox::ROI& roi) const {
    return roi.y >= 0 && roi.x >= 0 && roi.width > 0 && roi.height > 0 && roi.x % 24 == 0 &&
           roi.width % 24 == 0;
}

int tcFakeBoard::setROI(Varnox::ROI roi) {
    if (m_capturing)
        return 5;
    if (!isRegion(roi))
        return 3;
    m_roi = roi;
    return 0;
}

Varnox::ROI tcFakeBoard::getROI() {
    return m_roi;
}

int tcFakeBoard::setVerticalBin(int factor) {
    return factor > 2 ? 3 : 0;
}

int tcFakeBoard::setBPP(Varnox::teBPPMode mode) {
    if (mode == Varnox::eBPP10)
        return 4;
    return pipeline().setPixelPacking(mode == Varnox::eBPP12 ? 2 : 1);
}

int tcFakeBoard::setColor(bool /*color*/) {
    return 0;
}

int tcFakeBoard::setTestPattern(Varnox::teTestPattern pattern) {
    if (pattern != 0 && pattern != 1 && pattern != 16 && pattern != 17)
        return 3;
    m_pattern = pattern;
    return 0;
}

int tcFakeBoard::getTestPattern() {
    return m_pattern;
}

int tcFakeBoard::setTrigger(Varnox::teTriggerMode mode) {
    if (mode != 0 && mode != 1)
        return 3;
    m_trigger = mode;
    return 0;
}

int tcFakeBoard::getTrigger() {
    return m_trigger;
}

int tcFakeBoard::peek(int reg, int* value) {
    const auto entry = m_registers.find(reg);
    if (entry == m_registers.end())
        return 3;
    *value = entry->second;
    return 0;
}

int tcFakeBoard::poke(int reg, int value) {
    if (reg >= 0x10000)
        return 3;
    m_registers[reg] = value;
    return 0;
}

bool tcFakeBoard::isCapturing() {
    return m_capturing;
}

int tcFakeBoard::start() {
    if (m_capturing)
        return 6;
    m_capturing = true;
    updateStatus(0, "Starting capture...");
    return 0;
}

int tcFakeBoard::stop() {
    m_capturing = false;
    updateStatus(1, "Ending capture...");
    return m_device == "stubborn" ? 6 : 0;
}

std::string tcFakeBoard::getTemperature(int index) {
    return index == 0 ? "41" : "-275";
}

int tcFakeBoard::getTempCelsius() {
    return 41;
}

std::string tcFakeBoard::getVersion() {
    return "\"FAKE 1.0\"";
}

int tcFakeBoard::save(int slot) {
    return slot == 0 ? 0 : 3;
}

int tcFakeBoard::setIODirection(int pin, int direction) {
    if (pin > 1)
        return 3;
    m_direction[pin] = direction;
    return 0;
}

int tcFakeBoard::setIOValue(int pin, int value) {
    if (pin > 1)
        return 3;
    m_level[pin] = value;
    return 0;
}

int tcFakeBoard::setIOInverter(int pin, int /*inverted*/) {
    return pin > 1 ? 3 : 0;
}

int tcFakeBoard::getIODirection(int pin) {
    return pin > 1 ? -1 : m_direction[pin];
}

int tcFakeBoard::getIOValue(int pin) {
    return pin > 1 ? -1 : m_level[pin];
}

int tcFakeBoard::getNumPins() {
    return 2;
}

int tcFakeBoard::setMirroring(bool horizontal, bool enable) {
    m_mirror[horizontal ? 1 : 0] = enable;
    return 0;
}

int tcFakeBoard::getMirroring(bool horizontal, bool* enabled) {
    *enabled = m_mirror[horizontal ? 1 : 0];
    return 0;
}

int tcFakeBoard::setAnalogGain(int step) {
    if (step < 0 || step > 3)
        return 3;
    m_gain = step;
    return 0;
}

int tcFakeBoard::getAnalogGain(int* step) {
    *step = m_gain;
    return 0;
}

int tcFakeBoard::setWhiteBalance(int red, int green, int blue) {
    if (red < 0)
        return 3;
    m_white[0] = red;
    m_white[1] = green;
    m_white[2] = blue;
    return 0;
}

int tcFakeBoard::getWhiteBalance(int* red, int* green, int* blue) {
    *red = m_white[0];
    *green = m_white[1];
    *blue = m_white[2];
    return 0;
}

int tcFakeBoard::setStrobe(int /*microseconds*/) {
    return 0;
}

int tcFakeBoard::programMultipleROI() {
    for (int i = 0; numberOfRegions > 1 && i < numberOfRegions; ++i) {
        if (!isRegion(regions.at(static_cast<std::size_t>(i))))
            return 3;
    }
    return 0;
}
