#include "sim/head/model.h"

#include <algorithm>
#include <cerrno>
#include <pthread.h>
#include <stdexcept>

#include "sensor/registers.h"
#include "sim/base/calls.h"
#include "sim/base/events.h"
#include "sim/base/fault.h"
#include "sim/base/healthy_head.h"
#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

constinit std::atomic<tcModel*> g_head{nullptr};

namespace {

constexpr std::string_view kResetLine = "RESET_B";
constexpr std::string_view kI2cPath = "/dev/i2c-1";
constexpr std::string_view kMemoryPath = "/dev/mem";
constexpr std::string_view kClockName = "clock";
constexpr std::uint32_t kDefaultPolarity = 0x5D9;
constexpr std::uint32_t kStreaming = 3; // frame state

std::optional<teRail> railOfLine(std::string_view line) {
    if (line == "PS_1.2V_EN") {
        return teRail::core;
    }
    if (line == "PS_3.3SVDD_EN") {
        return teRail::svdd;
    }
    if (line == "PS_3.3AVDDH_EN") {
        return teRail::avddh;
    }
    return std::nullopt;
}

// Transfers have a length; the calls of the other devices do not.
bool canBeShort(teCall kind, teDevice device) {
    switch (device) {
    case teDevice::spi:
        return kind == teCall::ioctl || kind == teCall::write;
    case teDevice::i2c:
        return kind == teCall::ioctl || kind == teCall::read || kind == teCall::write;
    default:
        return false;
    }
}

std::string described(const tsLinkState& state) {
    const auto yesNo = [](bool flag) { return flag ? "yes" : "no"; };
    return std::string("enabled ") + yesNo(state.enabled) + ", locked " + yesNo(state.locked) +
           ", rgLocked " + yesNo(state.rgLocked) + ", gbLocked " + yesNo(state.gbLocked) +
           ", aligned " + yesNo(state.aligned) + "\n";
}

std::string seconds(std::chrono::nanoseconds time) {
    tcText text;
    text.seconds(static_cast<std::uint64_t>(time.count()));
    return std::string(text.view());
}

// A fault whose moment never came is worth a look at its scenario.
std::string described(const std::vector<tsFaultRecord>& faults) {
    std::string text = faults.empty() ? "" : "  faults:\n";
    for (const tsFaultRecord& fault : faults) {
        text += "    " + fault.name + ": ";
        if (!fault.began) {
            text += "never struck\n";
        } else if (!fault.ended) {
            text += "from " + seconds(*fault.began) + " on\n";
        } else {
            text += "from " + seconds(*fault.began) + " to " + seconds(*fault.ended) + "\n";
        }
    }
    return text;
}

} // namespace

std::uint64_t linkTime(std::chrono::nanoseconds time) {
    if (time == kNever) {
        return tsLinkFacts::kForEver;
    }
    return time.count() < 0 ? 0 : static_cast<std::uint64_t>(time.count());
}

tsHeadOptions::tsHeadOptions() {
    for (std::size_t at = 0; at < kRails; ++at) {
        conditions.rails[at].settledVolts = nominalVolts(static_cast<teRail>(at));
    }
    fpga.systemId = {0x3505, 0x10203};
    conditions.link.pllNs.fill(linkTime(kPllLockTime));
    conditions.link.laneNs.fill(linkTime(kDpaLockTime));
    conditions.link.alignmentNs = linkTime(kAlignmentTime);
    conditions.link.polarity = kDefaultPolarity;
    // Scanned from the bottom and from the right, these are the pixels of the demonstration map.
    defects = {{0, 0, 4095}, {1296, 1028, 0}, {2491, 1855, 4095}};
}

bool possible(const tsDefect& defect) {
    constexpr std::uint16_t lastCode = 4095;
    return defect.x < tcScene::kColumns && defect.y < tcScene::kRows && defect.value <= lastCode;
}

void survivesFork() {
    static constinit std::atomic<bool> done{false};
    if (!done.exchange(true)) {
        pthread_atfork([] { g_headLock.lock(); }, [] { g_headLock.unlock(); },
                       [] { g_headLock.unlock(); });
    }
}

tcModel::tcModel(const tsHeadOptions& options)
    : journal(options.realTime, options.logCapacity, options.quiet, options.stateEvents),
      faults(journal, options.conditions, options.faults),
      supplies(journal, options.conditions.rails),
      sensor(journal),
      spi(*this, journal, faults.now(), options.spiFailFrom, options.spiFailError),
      gpio(*this, journal, faults.now()),
      adc(journal, supplies, faults.now()),
      link(journal, options.conditions.link),
      fpga(journal, options.fpga, faults.now(), link),
      recorder(options.recordedFrames),
      m_options(options),
      m_mayChange(!options.faults.empty()),
      m_watch(journal) {
    if (m_mayChange) {
        journal.shownTo(this);
    }
    for (const tsFailure& failure : options.failures) {
        fail(failure);
    }
    if (!options.recording.empty()) {
        tape.recordTo(options.recording);
    } else if (!options.replayed.empty()) {
        tape.playFrom(options.replayed, options.claims);
    }
}

void tcModel::lineDriven(std::string_view name, int level, bool requested) {
    recordFrames();
    const bool kept = supplies.sensorKeepsState();
    if (const std::optional<teRail> rail = railOfLine(name)) {
        supplies.enable(*rail, level != 0, requested);
    } else if (name == kResetLine) {
        supplies.releaseReset(level != 0);
    } else {
        return;
    }
    if (kept && !supplies.sensorKeepsState()) {
        sensor.clear(name == kResetLine ? teFate::clearedByReset : teFate::clearedByPowerLoss);
        sensorChanged();
    }
    lookAround();
}

void tcModel::sensorReceives(std::uint32_t word, teWriteFate arrived) {
    recordFrames();
    const bool awake = supplies.sensorAwake();
    tellSensorWord(word, awake ? arrived : teWriteFate::asleep);
    sensor.receive(word, awake, fpga.receiverSettings());
    sensorChanged();
    lookAround();
}

void tcModel::sensorMissed(std::uint32_t word, teFate fate) {
    sensor.missed(word, fate);
}

void tcModel::tellSensorWord(std::uint32_t word, teWriteFate fate) {
    if (!journal.keepsStates()) {
        return;
    }
    const auto address = static_cast<std::uint16_t>(word >> sensorWire::kAddressShift);
    tcText text;
    text.add("SENSOR-WORD ").hex(address, 3).add(" ");
    if (const std::optional<std::uint32_t> held = sensor.value(address)) {
        text.hex(*held, 6);
    } else {
        text.add("-");
    }
    text.add(" ").hex(word & sensorWire::kValueMask, 6).add(" ").add(describe(fate).word);
    journal.state(journal.clock.now(), text.view());
}

void tcModel::sensorChanged() {
    fpga.sensorChanged(sensor.sending(), sensor.frameState() == kStreaming, sensor.frameClocks(),
                       sensor.rowClocks());
}

std::optional<teDevice> tcModel::deviceAt(std::string_view path) const {
    if (path == m_options.spiPath) {
        return teDevice::spi;
    }
    if (path == m_options.gpioPath) {
        return teDevice::gpio;
    }
    if (path == kI2cPath) {
        return teDevice::i2c;
    }
    if (path == kMemoryPath) {
        return teDevice::memory;
    }
    if (path == kClockName) {
        return teDevice::clock;
    }
    return std::nullopt;
}

std::string_view tcModel::pathOf(teDevice device) const {
    switch (device) {
    case teDevice::spi:
        return m_options.spiPath;
    case teDevice::gpio:
        return m_options.gpioPath;
    case teDevice::i2c:
        return kI2cPath;
    case teDevice::memory:
        return kMemoryPath;
    case teDevice::clock:
        break;
    }
    return kClockName;
}

int tcModel::count(teCall kind, teDevice device) {
    std::uint64_t& calls =
        m_calls[static_cast<std::size_t>(kind)][static_cast<std::size_t>(device)];
    ++calls;
    m_used = m_used || kind == teCall::open;
    for (const tsPlannedFailure& failure : m_failures) {
        if (failure.kind == kind && failure.device == device &&
            (failure.nth == calls || (failure.lasting && failure.nth < calls))) {
            return failure.error;
        }
    }
    return 0;
}

std::uint64_t tcModel::calls(teCall kind, teDevice device) const {
    return m_calls[static_cast<std::size_t>(kind)][static_cast<std::size_t>(device)];
}

void tcModel::fail(const tsFailure& failure) {
    const std::optional<teDevice> device = deviceAt(failure.device);
    if (!device) {
        throw std::invalid_argument("virtual head: it has no device \"" + failure.device + "\"");
    }
    if (failure.error == kShort && !canBeShort(failure.kind, *device)) {
        throw std::invalid_argument("virtual head: no call of this kind on " + failure.device +
                                    " can be short");
    }
    m_failures.push_back({failure.kind, *device, failure.nth, failure.lasting, failure.error});
}

int tcModel::openError(teDevice device) const {
    switch (device) {
    case teDevice::spi:
        return faults.now().spiPresent ? 0 : ENOENT;
    case teDevice::gpio:
        return faults.now().gpioPresent ? 0 : ENOENT;
    case teDevice::i2c:
        return faults.now().i2cPresent ? 0 : ENOENT;
    case teDevice::memory:
        return faults.now().memOpenError;
    case teDevice::clock:
        break;
    }
    return ENOENT;
}

int tcModel::mapError(std::uint32_t physicalAddress) const {
    const std::optional<std::size_t> page = pageOf(physicalAddress);
    return page ? faults.now().mapErrors[*page] : 0;
}

void tcModel::sees(const tsLogEvent& event) {
    faults.sees(event);
}

std::optional<std::uint64_t> tcModel::nextChangeNs() const {
    const std::optional<std::uint64_t> fault = faults.nextNs();
    const std::optional<std::uint64_t> fall = supplies.nextFallNs();
    return fault && (!fall || *fault <= *fall) ? fault : fall;
}

// Faults have their times, but nobody calls the head then: the next call finds everything as if
// somebody had.
void tcModel::catchUpNow() {
    m_catchingUp = true;
    for (std::optional<std::uint64_t> next = nextChangeNs(); next && *next <= journal.clock.peek();
         next = nextChangeNs()) {
        journal.clock.holdAt(*next);
        changeAt(*next);
        journal.clock.release();
    }
    m_catchingUp = false;
}

void tcModel::changeAt(std::uint64_t timeNs) {
    timePassed(); // with everything as it was
    if (const std::optional<std::uint64_t> fall = supplies.nextFallNs(); fall && *fall <= timeNs) {
        supplies.fall();
    }
    if (faults.change()) {
        supplies.setRails(faults.now().rails);
        link.setFacts(faults.now().link);
    }
    if (!supplies.sensorKeepsState() && supplies.resetReleased()) {
        sensor.clear(teFate::clearedByPowerLoss);
        sensorChanged();
    }
    lookAround();
}

void tcModel::timePassed() {
    catchUp();
    sensor.checkFrame(fpga.receiverSettings());
    recordFrames();
    lookAround();
}

// Every change of the program's doing is seen at once, the head's own with the next call.
void tcModel::lookAround() {
    if (journal.keepsStates()) {
        m_watch.look(supplies, link, fpga);
    }
}

// What holds now held for every frame since the last call.
void tcModel::recordFrames() {
    const std::uint64_t frames = recorder.wanted() ? link.frames() : m_framesSeen;
    if (frames == m_framesSeen) {
        return;
    }
    if (std::optional<tsFrameSettings> settings = decodeFrame(sensor, fpga)) {
        while (m_framesSeen < frames) {
            settings->number = ++m_framesSeen;
            settings->timeNs = link.frameDoneNs(settings->number);
            recorder.record(*settings);
        }
    }
    m_framesSeen = frames;
}

std::uint32_t tcModel::load(std::uint32_t address, unsigned width) {
    timePassed();
    return fpga.load(address, width);
}

void tcModel::store(std::uint32_t address, unsigned width, std::uint32_t value) {
    timePassed();
    fpga.store(address, width, value);
    lookAround();
}

tsSensorState tcModel::sensorState() const {
    tsSensorState state = sensor.decoded(fpga.clockMhz());
    state.alive = supplies.sensorAwake();
    return state;
}

std::optional<tsFrameSettings> tcModel::frameSettings() {
    if (!link.state().aligned || sensor.frameState() != kStreaming) {
        return std::nullopt;
    }
    std::optional<tsFrameSettings> settings = decodeFrame(sensor, fpga);
    if (settings) {
        settings->timeNs = journal.clock.now();
    }
    return settings;
}

std::string tcModel::report() {
    const std::string calls = std::to_string(tape.calls());
    if (tape.playing()) {
        const std::string rest = tape.rest();
        return "what the recording answered\n  calls: " + calls + " of " + tape.path() + "\n" +
               (rest.empty() ? "  played to its end\n" : rest);
    }
    const std::string kept =
        tape.recording() ? "  recording: " + calls + " calls in " + tape.path() + "\n" : "";
    return (m_options.hardware ? "what the devices of this machine answered\n" : summary()) + kept;
}

std::string tcModel::summary() {
    const tsSensorState state = sensorState();
    const tsLinkState best = link.everReached();
    std::string text = "what the virtual head saw\n";
    text += "  supplies:";
    for (const teRail rail : {teRail::core, teRail::avddh, teRail::svdd}) {
        tcText volts;
        text += rail == teRail::core ? " " : ", ";
        text += nameOf(rail);
        text += volts.add(" ").fixed(supplies.volts(rail)).add(" V").view();
    }
    text += "\n  sensor: ";
    text += state.alive ? "alive" : (supplies.resetReleased() ? "not alive" : "in reset");
    text += ", frame state " + std::to_string(state.frameState) + ", image " +
            std::to_string(state.width) + " x " + std::to_string(state.height) + ", " +
            std::to_string(sensor.values().size()) + " registers written\n";
    const tsFpgaImage delivered = decodeFpga(fpga);
    text += "  delivered picture: " + std::to_string(delivered.roiWidth) + " x " +
            std::to_string(delivered.roiHeight) + " from x " + std::to_string(delivered.roiX) +
            " y " + std::to_string(delivered.roiY) + "\n";
    text += "  link now: " + described(link.state());
    text += "  link at its best: " + described(best) + "  lanes that locked:";
    for (unsigned lane = 0; lane < kLinkLanes; ++lane) {
        text += (best.dpaLock >> lane & 1) != 0 ? " " + std::to_string(lane) : " -";
    }
    tcText clock;
    text += "\n  master clock: ";
    text += fpga.clockMhz() > 0 ? clock.fixed(fpga.clockMhz()).add(" MHz").view() : "unknown";
    text += "\n  sensor register writes: " + std::to_string(spi.words());
    text += "\n  FPGA loads: " + std::to_string(fpga.loads()) +
            ", stores: " + std::to_string(fpga.stores());
    text += "\n  frames: " + std::to_string(link.frames()) + "\n";
    if (recorder.wanted()) {
        text += "  pictures: " + std::to_string(recorder.frames().size()) + " of " +
                std::to_string(recorder.delivered()) + " delivered\n";
    }
    text += described(faults.records());
    if (journal.checker.count() == 0) {
        return text + "  violations: none\n";
    }
    text += "  violations: " + std::to_string(journal.checker.count()) + "\n";
    for (const tsViolation& violation : journal.checker.violations()) {
        tcText time;
        time.seconds(static_cast<std::uint64_t>(violation.time.count()));
        text += "    [" + std::string(time.view()) + "] " + violation.rule + ": " + violation.text +
                "\n";
    }
    return text;
}

} // namespace sim
