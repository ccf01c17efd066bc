#include "sim/head/summary.h"

#include "sim/base/text.h"

namespace sim {

namespace {

std::string described(const tsLinkState& state) {
    const auto yesNo = [](bool flag) { return flag ? "yes" : "no"; };
    return std::string("enabled ") + yesNo(state.enabled) + ", locked " + yesNo(state.locked) +
           ", rgLocked " + yesNo(state.rgLocked) + ", gbLocked " + yesNo(state.gbLocked) +
           ", aligned " + yesNo(state.aligned) + "\n";
}

// " 0 1 2 - 4", and so on: a line for the lanes that are not locked.
std::string lanesOf(const tsLinkState& state) {
    std::string text;
    for (unsigned lane = 0; lane < kLinkLanes; ++lane) {
        text += (state.dpaLock >> lane & 1) != 0 ? " " + std::to_string(lane) : " -";
    }
    return text + "\n";
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

std::string inMilliseconds(std::uint64_t ns) {
    tcText text;
    return std::string(text.fixed(static_cast<double>(ns) / 1e6).add(" ms").view());
}

// As it was while the sensor streamed, for what stops a capture takes the locks away.
std::string linkOf(tcModel& head) {
    const std::optional<tsLinkState> capture = head.frameWatch.linkInCapture();
    return capture ? "  link in capture: " + described(*capture) +
                         "  lanes in capture:" + lanesOf(*capture)
                   : "  link now: " + described(head.link.state());
}

} // namespace

std::string silences(const tcModel& head) {
    std::string text;
    for (const tsSilence& silence : head.frameWatch.silences()) {
        text += "no picture came while the sensor streamed for " +
                inMilliseconds(silence.lastedNs) + " from " +
                seconds(std::chrono::nanoseconds(silence.fromNs)) + " on (a frame takes " +
                inMilliseconds(silence.intervalNs) + "): " + std::string(silence.why.view()) + "\n";
    }
    const std::uint64_t more = head.frameWatch.silenceCount() - head.frameWatch.silences().size();
    return more == 0 ? text : text + "nor " + std::to_string(more) + " more times\n";
}

std::string summary(tcModel& head) {
    const tsSensorState state = head.sensorState();
    const tsLinkState best = head.link.everReached();
    std::string text = "what the virtual head saw\n";
    text += "  supplies:";
    for (const teRail rail : {teRail::core, teRail::avddh, teRail::svdd}) {
        tcText volts;
        text += rail == teRail::core ? " " : ", ";
        text += nameOf(rail);
        text += volts.add(" ").fixed(head.supplies.volts(rail)).add(" V").view();
    }
    text += "\n  sensor: ";
    text += state.alive ? "alive" : (head.supplies.resetReleased() ? "not alive" : "in reset");
    text += ", frame state " + std::to_string(state.frameState) + ", image " +
            std::to_string(state.width) + " x " + std::to_string(state.height) + ", " +
            std::to_string(head.sensor.values().size()) + " registers written\n";
    const tsFpgaImage delivered = decodeFpga(head.fpga);
    text += "  delivered picture: " + std::to_string(delivered.roiWidth) + " x " +
            std::to_string(delivered.roiHeight) + " from x " + std::to_string(delivered.roiX) +
            " y " + std::to_string(delivered.roiY) + "\n";
    text += linkOf(head);
    text += "  link at its best: " + described(best) + "  lanes that locked:" + lanesOf(best);
    tcText clock;
    text += "  master clock: ";
    text +=
        head.fpga.clockMhz() > 0 ? clock.fixed(head.fpga.clockMhz()).add(" MHz").view() : "unknown";
    text += "\n  sensor register writes: " + std::to_string(head.spi.words());
    text += "\n  FPGA loads: " + std::to_string(head.fpga.loads()) +
            ", stores: " + std::to_string(head.fpga.stores());
    text += "\n  frames: " + std::to_string(head.link.frames()) + "\n";
    if (head.recorder.keeps()) {
        text += "  pictures: " + std::to_string(head.recorder.frames().size()) + " of " +
                std::to_string(head.recorder.delivered()) + " delivered\n";
    }
    for (const tsSilence& silence : head.frameWatch.silences()) {
        text += "  no picture from " + seconds(std::chrono::nanoseconds(silence.fromNs)) +
                " on: " + std::string(silence.why.view()) + "\n";
    }
    text += described(head.faults.records());
    if (head.journal.checker.count() == 0) {
        return text + "  violations: none\n";
    }
    text += "  violations: " + std::to_string(head.journal.checker.count()) + "\n";
    for (const tsViolation& violation : head.journal.checker.violations()) {
        tcText time;
        time.seconds(static_cast<std::uint64_t>(violation.time.count()));
        text += "    [" + std::string(time.view()) + "] " + violation.rule + ": " + violation.text +
                "\n";
    }
    return text;
}

std::string report(tcModel& head) {
    const std::string calls = std::to_string(head.tape.calls());
    if (head.tape.playing()) {
        const std::string rest = head.tape.rest();
        return "what the recording answered\n  calls: " + calls + " of " + head.tape.path() + "\n" +
               (rest.empty() ? "  played to its end\n" : rest);
    }
    const std::string kept = head.tape.recording()
                                 ? "  recording: " + calls + " calls in " + head.tape.path() + "\n"
                                 : "";
    return (head.options().hardware ? "what the devices of this machine answered\n"
                                    : summary(head)) +
           kept;
}

} // namespace sim
