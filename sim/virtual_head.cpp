#include "sim/virtual_head.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "sim/base/real_calls.h"
#include "sim/boundary/descriptors.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/mappings.h"
#include "sim/head/summary.h"
#include "sim/pictures/frame_settings.h"
#include "sim/scenario/scenario.h"

namespace sim {

namespace {

// Holds the lock around every question to a head.
class tcLocked {
public:
    explicit tcLocked(tcModel& model) : m_model(model) {
        g_headLock.lock();
        m_model.catchUp();
    }
    tcLocked(const tcLocked&) = delete;
    tcLocked& operator=(const tcLocked&) = delete;
    ~tcLocked() { g_headLock.unlock(); }
    tcModel* operator->() const { return &m_model; }
    tcModel& operator*() const { return m_model; }

private:
    tcModel& m_model;
};

teDevice deviceNamed(const tcModel& model, std::string_view name) {
    const std::optional<teDevice> device = model.devices.deviceAt(name);
    if (!device) {
        throw std::invalid_argument("virtual head: it has no device \"" + std::string(name) + "\"");
    }
    return *device;
}

teRail requireRail(std::string_view name) {
    const std::optional<teRail> rail = railNamed(name);
    if (!rail) {
        throw std::invalid_argument("virtual head: it has no supply \"" + std::string(name) + "\"");
    }
    return *rail;
}

std::size_t requireLane(unsigned lane) {
    if (lane >= kLinkLanes) {
        throw std::invalid_argument("virtual head: it has no lane " + std::to_string(lane));
    }
    return lane;
}

unsigned requireLine(std::string_view name) {
    const std::optional<unsigned> line = tcGpioChip::lineNamed(name);
    if (!line) {
        throw std::invalid_argument("virtual head: it has no line \"" + std::string(name) + "\"");
    }
    return *line;
}

[[noreturn]] void throwNoRegister(std::uint32_t address) {
    throw std::invalid_argument("virtual head: no register at " + std::to_string(address));
}

} // namespace

tcVirtualHead::tcVirtualHead(std::unique_ptr<tcModel> model) : m_model(std::move(model)) {}
tcVirtualHead::tcVirtualHead(tcVirtualHead&&) noexcept = default;

tcVirtualHead::~tcVirtualHead() {
    if (m_model == nullptr) {
        return; // moved from
    }
    g_headLock.lock();
    g_head.store(nullptr, std::memory_order_release);
    g_mappings.forgetAll();
    g_descriptors.forgetAll();
    g_headLock.unlock();
}

std::vector<tsEvent> tcVirtualHead::log(tcKinds kinds) const {
    return tcLocked(*m_model)->journal.log.events(kinds);
}
std::vector<std::string> tcVirtualHead::lines(tcKinds kinds) const {
    return tcLocked(*m_model)->journal.log.lines(kinds, false);
}
std::vector<std::string> tcVirtualHead::timedLines(tcKinds kinds) const {
    return tcLocked(*m_model)->journal.log.lines(kinds, true);
}
void tcVirtualHead::clearLog() {
    tcLocked(*m_model)->journal.log.clear();
}
void tcVirtualHead::note(std::string_view text) {
    tcLocked(*m_model)->journal.event(teLine::note, 0, 0, 0, text);
}

std::chrono::nanoseconds tcVirtualHead::now() const {
    return std::chrono::nanoseconds(tcLocked(*m_model)->journal.clock.now());
}

void tcVirtualHead::advance(std::chrono::nanoseconds duration) {
    const auto ns = static_cast<std::uint64_t>(duration.count() < 0 ? 0 : duration.count());
    {
        const tcLocked model(*m_model);
        if (!model->journal.clock.isReal()) {
            model->journal.clock.advance(ns);
            model->timePassed();
            return;
        }
    }
    const timespec time{static_cast<time_t>(ns / 1'000'000'000),
                        static_cast<decltype(timespec::tv_nsec)>(ns % 1'000'000'000)};
    real::nanosleep(&time, nullptr);
}

double tcVirtualHead::rail(std::string_view name) const {
    const teRail which = requireRail(name);
    return tcLocked(*m_model)->supplies.volts(which);
}
std::optional<int> tcVirtualHead::line(std::string_view name) const {
    return tcLocked(*m_model)->gpio.level(name);
}

bool tcVirtualHead::sensorAlive() const {
    return tcLocked(*m_model)->supplies.sensorAwake();
}
std::optional<std::uint32_t> tcVirtualHead::sensorRegister(std::uint16_t address) const {
    return tcLocked(*m_model)->sensor.value(address);
}
std::map<std::uint16_t, std::uint32_t> tcVirtualHead::sensorRegisters() const {
    return tcLocked(*m_model)->sensor.values();
}
tsSensorState tcVirtualHead::sensorState() const {
    return tcLocked(*m_model)->sensorState();
}
std::vector<tsShadowDifference>
tcVirtualHead::compareShadow(const std::map<std::uint16_t, std::uint32_t>& shadow) const {
    return tcLocked(*m_model)->sensor.differences(shadow);
}

std::uint32_t tcVirtualHead::fpgaWord(std::uint32_t physicalAddress) const {
    const std::optional<std::uint32_t> word = tcLocked(*m_model)->fpga.peek(physicalAddress);
    if (!word) {
        throwNoRegister(physicalAddress);
    }
    return *word;
}
void tcVirtualHead::setFpgaWord(std::uint32_t physicalAddress, std::uint32_t value) {
    if (!tcLocked(*m_model)->fpga.poke(physicalAddress, value)) {
        throwNoRegister(physicalAddress);
    }
}
tsLinkState tcVirtualHead::link() const {
    return tcLocked(*m_model)->link.state();
}
std::uint64_t tcVirtualHead::frames() const {
    return tcLocked(*m_model)->link.frames();
}

std::optional<tsFrame> tcVirtualHead::frame() const {
    std::optional<tsFrameSettings> settings;
    std::shared_ptr<const tcScene> scene;
    {
        const tcLocked model(*m_model);
        settings = model->frameSettings();
        scene = model->scene;
    }
    if (!settings) {
        return std::nullopt;
    }
    if (scene == nullptr) {
        scene = std::make_shared<const tcScene>(tcScene::chart());
        tcLocked(*m_model)->scene = scene;
    }
    return render(*settings, *scene, m_model->options().defects);
}

std::vector<tsViolation> tcVirtualHead::violations() const {
    return tcLocked(*m_model)->journal.checker.violations();
}
std::uint64_t tcVirtualHead::violationCount() const {
    return tcLocked(*m_model)->journal.checker.count();
}
void tcVirtualHead::clearViolations() {
    tcLocked(*m_model)->journal.checker.clear();
}

std::uint64_t tcVirtualHead::calls(teCall kind, std::string_view device) const {
    const tcLocked model(*m_model);
    return model->devices.calls(kind, deviceNamed(*model, device));
}
void tcVirtualHead::failCall(teCall kind, std::string_view device, std::uint64_t nth, int error) {
    tcLocked(*m_model)->devices.fail({kind, std::string(device), nth, false, error});
}
void tcVirtualHead::failCallsFrom(teCall kind, std::string_view device, std::uint64_t nth,
                                  int error) {
    tcLocked(*m_model)->devices.fail({kind, std::string(device), nth, true, error});
}

std::vector<tsFaultRecord> tcVirtualHead::faults() const {
    return tcLocked(*m_model)->faults.records();
}

std::string tcVirtualHead::restOfReplay() const {
    return tcLocked(*m_model)->tape.rest();
}

std::string tcVirtualHead::summary() const {
    return sim::summary(*tcLocked(*m_model));
}

// --- Builder ---

tcVirtualHeadBuilder aVirtualHead() {
    return {};
}

tcVirtualHeadBuilder::tcVirtualHeadBuilder() : m_options(std::make_unique<tsHeadOptions>()) {}
tcVirtualHeadBuilder::tcVirtualHeadBuilder(const tcVirtualHeadBuilder& other)
    : m_options(std::make_unique<tsHeadOptions>(*other.m_options)) {}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::operator=(const tcVirtualHeadBuilder& other) {
    *m_options = *other.m_options;
    return *this;
}
tcVirtualHeadBuilder::tcVirtualHeadBuilder(tcVirtualHeadBuilder&&) noexcept = default;
tcVirtualHeadBuilder& tcVirtualHeadBuilder::operator=(tcVirtualHeadBuilder&&) noexcept = default;
tcVirtualHeadBuilder::~tcVirtualHeadBuilder() = default;

tcVirtualHeadBuilder& tcVirtualHeadBuilder::withRail(std::string_view rail, double volts) {
    if (!(volts >= 0)) {
        throw std::invalid_argument("virtual head: a supply has 0 V or more");
    }
    m_options->conditions.rails[static_cast<std::size_t>(requireRail(rail))].settledVolts = volts;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withRailOffset(std::string_view rail, double volts) {
    return withRail(rail, nominalVolts(requireRail(rail)) + volts);
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutAdc() {
    m_options->conditions.adcError = ENXIO;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutI2cBus() {
    m_options->conditions.i2cPresent = false;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withGpioChip(std::string_view path) {
    m_options->gpioPath = path;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutGpioChip() {
    m_options->conditions.gpioPresent = false;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutGpioLine(std::string_view name) {
    m_options->conditions.missingLines |= 1U << requireLine(name);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withBusyGpioLine(std::string_view name) {
    m_options->conditions.busyLines |= 1U << requireLine(name);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withSpiDevice(std::string_view path) {
    m_options->spiPath = path;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutSpiDevice() {
    m_options->conditions.spiPresent = false;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withSpiSettingsRefused() {
    m_options->conditions.spiSettingsRefused = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withSpiTransfersFailing(std::uint64_t nth, int error) {
    m_options->spiFailFrom = nth;
    m_options->spiFailError = error;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withMemOpenFailing(int error) {
    m_options->conditions.memOpenError = error;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withMapFailing(std::uint32_t physicalAddress,
                                                           int error) {
    const std::optional<std::size_t> page = pageOf(physicalAddress);
    if (!page) {
        throwNoRegister(physicalAddress);
    }
    m_options->conditions.mapErrors[*page] = error;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withSilentCore(teCore core) {
    m_options->conditions.silent[static_cast<std::size_t>(core)] = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withSystemId(std::uint32_t first,
                                                         std::uint32_t second) {
    m_options->fpga.systemId = {first, second};
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withPllFlagAfter(tePllFlag flag,
                                                             std::chrono::nanoseconds time) {
    m_options->conditions.link.pllNs[static_cast<std::size_t>(flag)] = linkTime(time);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withPllAfter(std::chrono::nanoseconds time) {
    m_options->conditions.link.pllNs.fill(linkTime(time));
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withStuckLane(unsigned lane) {
    return withLaneAfter(lane, kNever);
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withLaneAfter(unsigned lane,
                                                          std::chrono::nanoseconds time) {
    m_options->conditions.link.laneNs[requireLane(lane)] = linkTime(time);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withLanesAfter(std::chrono::nanoseconds time) {
    m_options->conditions.link.laneNs.fill(linkTime(time));
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withLanePolarity(std::uint32_t inverted) {
    m_options->conditions.link.polarity = inverted;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withAlignmentAfter(std::chrono::nanoseconds time) {
    m_options->conditions.link.alignmentNs = linkTime(time);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withScene(const std::string& path) {
    m_options->scenePath = path;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withDefect(std::uint32_t x, std::uint32_t y,
                                                       std::uint16_t value) {
    const tsDefect defect{x, y, value};
    if (!possible(defect)) {
        throw std::invalid_argument("virtual head: no defect of " + std::to_string(value) +
                                    " at column " + std::to_string(x) + ", row " +
                                    std::to_string(y));
    }
    m_options->defects.push_back(defect);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withoutDefects() {
    m_options->defects.clear();
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withFailingCall(teCall kind, std::string_view device,
                                                            std::uint64_t nth, int error) {
    m_options->failures.push_back({kind, std::string(device), nth, false, error});
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withFailingCallsFrom(teCall kind,
                                                                 std::string_view device,
                                                                 std::uint64_t nth, int error) {
    m_options->failures.push_back({kind, std::string(device), nth, true, error});
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withFault(const tsFault& fault) {
    tsFaultError error;
    const std::optional<tsPlannedFault> plan = plannedFault(fault, error);
    if (!plan) {
        throw std::invalid_argument("virtual head: fault " + fault.name + ": " + error.key +
                                    (error.value.empty() ? "" : " = " + error.value) + ": " +
                                    error.why);
    }
    if (std::any_of(m_options->faults.begin(), m_options->faults.end(),
                    [&](const tsPlannedFault& known) { return known.name == fault.name; })) {
        throw std::invalid_argument("virtual head: it has a fault " + fault.name + " already");
    }
    m_options->faults.push_back(*plan);
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withRealTime() {
    m_options->realTime = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withWireTime() {
    m_options->wireTime = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withLogCapacity(std::size_t events) {
    m_options->logCapacity = events == 0 ? 1 : events;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withStateEvents() {
    m_options->stateEvents = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withQuietViolations() {
    m_options->quiet = true;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withRecording(const std::string& path) {
    m_options->recording = path;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withReplay(const std::string& path) {
    m_options->replayed = path;
    return *this;
}
tcVirtualHeadBuilder& tcVirtualHeadBuilder::withScenario(const std::string& path) {
    applyScenario(path, *m_options);
    return *this;
}

tcVirtualHead tcVirtualHeadBuilder::build() {
    real::resolveAll();
    survivesFork();
    auto model = std::make_unique<tcModel>(*m_options);
    if (!m_options->scenePath.empty()) {
        model->scene = std::make_shared<const tcScene>(tcScene::fromPng(m_options->scenePath));
    }
    {
        const tcHeadAccess present;
        if (!present) {
            g_head.store(model.get(), std::memory_order_release);
            return tcVirtualHead(std::move(model));
        }
    }
    throw std::logic_error("virtual head: this process has a head already");
}

} // namespace sim
