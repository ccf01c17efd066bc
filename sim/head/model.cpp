#include "sim/head/model.h"

#include <algorithm>

#include "sensor/registers.h"
#include "sim/base/states.h"
#include "sim/base/text.h"

namespace sim {

namespace {

constexpr std::string_view kResetLine = "RESET_B";
constexpr std::uint32_t kStreaming = 3; // frame state
constexpr double kUsualMhz = 36;        // of a clock generator that is in no known state

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

} // namespace

tcModel::tcModel(const tsHeadOptions& options)
    : journal(options.realTime, options.logCapacity, options.quiet, options.stateEvents),
      faults(journal, options.conditions, options.faults),
      devices(options, faults.now()),
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
    if (!options.recording.empty()) {
        tape.recordTo(options.recording);
    } else if (!options.replayed.empty()) {
        tape.playFrom(options.replayed, options.claims);
    }
}

void tcModel::showTo(tcLiveRing* ring) {
    journal.log.showTo(ring);
    recorder.showTo(ring);
}

bool tcModel::addFault(tcFaults::tcRoom& room) {
    if (!faults.add(room)) {
        return false;
    }
    m_mayChange = true;
    journal.shownTo(this);
    catchUp();
    return true;
}

bool tcModel::endFault(std::string_view name) {
    const bool any = faults.end(name);
    catchUp();
    return any;
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

void tcModel::wordArrived(std::uint32_t word, teWriteFate how) {
    recordFrames();
    const bool awake = supplies.sensorAwake();
    tellSensorWord(word, awake ? how : teWriteFate::asleep);
    sensor.receive(word, awake, fpga.receiverSettings());
    sensorChanged();
    lookAround();
}

void tcModel::wordLost(std::uint32_t word, teWriteFate why) {
    tellSensorWord(word, why);
    sensor.missed(word, teFate::garbled);
}

void tcModel::wordNotSent(std::uint32_t word) {
    sensor.missed(word, teFate::refused);
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
    fpga.sensorChanged(sensor.sending(), sensor.frameState() == kStreaming, sensor.frameClocks());
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

// From frame to frame: with the pulses, or as long as the sensor takes. 0 where its registers do
// not say.
std::uint64_t tcModel::frameIntervalNs() const {
    const tsFrameClocks clocks = sensor.frameClocks();
    const tsFrameTiming timing = fpga.pulses().frames(true, clocks);
    if (timing.framesBegin()) {
        return timing.frameNs;
    }
    const double mhz = fpga.clockMhz() > 0 ? fpga.clockMhz() : kUsualMhz;
    return static_cast<std::uint64_t>(static_cast<double>(clocks.frame) * 1000.0 / mhz);
}

void tcModel::watchFrames() {
    tsDelivery now;
    now.streaming = sensor.frameState() == kStreaming;
    if (now.streaming) {
        const tsPipeline pipeline = decodePipeline(fpga);
        now.pulses = fpga.pulses().train().periodNs != 0;
        now.triggered = sensor.field(sensorRegisters::kFrameControlMode) != 0;
        now.clockKnown = fpga.clockMhz() > 0;
        now.badPixelsRun = pipeline.badPixelsRun;
        now.pixelShiftRuns = pipeline.pixelShiftRuns;
        now.link = link.state();
        now.intervalNs = frameIntervalNs();
        now.arrived = link.frames();
    }
    frameWatch.look(now, journal.clock.now());
}

// Every change of the program's doing is seen at once, the head's own with the next call.
void tcModel::lookAround() {
    watchFrames();
    if (journal.keepsStates()) {
        m_watch.look(supplies, link, fpga);
    }
}

// What holds now held for every frame since the last call.
void tcModel::recordFrames() {
    watchFrames();
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

} // namespace sim
