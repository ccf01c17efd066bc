#include <limits>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/results.h"
#include "apps/camhost/setting.h"

namespace camhost {

namespace {

constexpr const char* kCaptureGroup = "Capture";
constexpr int kLongestWait = 24 * 60 * 60 * 1000; // ms

/// Makes a command without arguments of an operation that answers a result.
tsCommand operation(const char* name, const char* summary, int (Varnox::tcSensorBoard::*run)()) {
    tsCommand command;
    command.group = kCaptureGroup;
    command.name = name;
    command.summary = summary;
    command.examples = {name};
    command.run = [run](tcCall& call, tcArguments& arguments) {
        arguments.end();
        const int result = (call.board().*run)();
        requireSuccess(arguments.command(), result);
        return arguments.command() + ": " + resultText(call.told(result));
    };
    return command;
}

std::string initialize(tcCall& call, tcArguments& arguments) {
    arguments.end();
    const int result = call.head().initialize();
    requireSuccess("init", result);
    return "init: " + resultText(call.told(result));
}

std::chrono::milliseconds takeMilliseconds(tcArguments& arguments) {
    return std::chrono::milliseconds(arguments.takeInt("MILLISECONDS", 0, kLongestWait));
}

[[noreturn]] void reportInterruption(const std::string& what) {
    throw tcInterrupted(what + " was interrupted");
}

std::string wait(tcCall& call, tcArguments& arguments) {
    const auto duration = takeMilliseconds(arguments);
    arguments.end();
    call.facts()["milliseconds"] = duration.count();
    if (!call.wait(duration, "wait"))
        reportInterruption("wait");
    return "wait: " + std::to_string(duration.count()) + " ms";
}

/// Ends a capture, whatever ends it.
class tcCapture {
public:
    explicit tcCapture(Varnox::tcSensorBoard& board) : m_board(board) {}
    tcCapture(const tcCapture&) = delete;
    tcCapture& operator=(const tcCapture&) = delete;
    ~tcCapture() {
        if (!m_stopped)
            m_board.stop();
    }

    int stop() {
        m_stopped = true;
        return m_board.stop();
    }

private:
    Varnox::tcSensorBoard& m_board;
    bool m_stopped = false;
};

std::string capture(tcCall& call, tcArguments& arguments) {
    const auto duration = takeMilliseconds(arguments);
    arguments.end();
    call.facts()["milliseconds"] = duration.count();
    requireSuccess("capture: start", call.board().start());
    tcCapture running(call.board());
    const bool whole = call.wait(duration, "capture");
    const bool stillCapturing = call.board().isCapturing();
    const int result = running.stop();
    call.facts()["ended_early"] = !stillCapturing;
    if (!whole)
        reportInterruption("capture (stopped, " + resultText(call.told(result)) + ")");
    requireSuccess("capture: stop", result);
    return "capture: " + std::to_string(duration.count()) + " ms, " +
           (stillCapturing ? "" : "ended early by somebody else, ") + resultText(call.told(result));
}

std::string power(tcCall& call, tcArguments& arguments) {
    const bool on = arguments.takeSwitch("on|off");
    arguments.end();
    const int result = call.board().power(on);
    call.facts()["asked"] = onOff(on);
    requireSuccess("power " + onOff(on), result);
    return "power " + onOff(on) + ": " + resultText(call.told(result));
}

std::string reset(tcCall& call, tcArguments& arguments) {
    arguments.end();
    const int answer = call.board().resetFpga();
    call.facts()["answer"] = answer;
    // Boards answer as a switch does: 1, the reset holds.
    if (answer != 0 && answer != 1)
        requireSuccess("reset", answer);
    return "reset: answer " + std::to_string(answer);
}

tsCommand timed(const char* name, const char* summary, const char* details, const char* example,
                tsCommand::Run run) {
    tsCommand command;
    command.group = kCaptureGroup;
    command.name = name;
    command.arguments = "MILLISECONDS";
    command.summary = summary;
    command.details = details;
    command.examples = {example};
    command.run = std::move(run);
    return command;
}

} // namespace

void addCaptureCommands(tcCommandTable& table) {
    using B = Varnox::tcSensorBoard;
    tsCommand init = operation("init", "power the head up and bring its link up", &B::initialize);
    init.run = initialize;
    init.details = "The board reads its settings files in the working directory.";
    table.add(std::move(init));
    table.add(operation("start", "start capturing", &B::start));
    table.add(operation("stop", "end the capture", &B::stop));
    table.add(timed("capture", "capture for so long [ms]: start, wait, stop",
                    "An interruption ends the capture as well.", "capture 500", capture));
    table.add(timed("wait", "do nothing for so long [ms]", "", "wait 100", wait));
    table.add(operation("snap", "take a single frame", &B::snap));
    table.add(operation("validate", "check the settings for a capture", &B::validate));
    tsCommand resetCommand = operation("reset", "reset the FPGA's pipeline", &B::resetFpga);
    resetCommand.run = reset;
    resetCommand.details = "It ends a stream: capture again with \"start\" after \"stop\".";
    table.add(std::move(resetCommand));
    table.add(operation("calibrate", "calibrate the black level", &B::calibrate));
    table.add(operation("whitecal", "calibrate the white level", &B::whiteLevelCalibrate));

    tsCommand powerCommand;
    powerCommand.group = kCaptureGroup;
    powerCommand.name = "power";
    powerCommand.arguments = "on|off";
    powerCommand.summary = "switch the head's supplies";
    powerCommand.examples = {"power on"};
    powerCommand.run = power;
    powerCommand.choices = [](tcCall&, std::size_t index) {
        return index == 0 ? std::vector<std::string>{"off", "on"} : std::vector<std::string>{};
    };
    table.add(std::move(powerCommand));
}

} // namespace camhost
