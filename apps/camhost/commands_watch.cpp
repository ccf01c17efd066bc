#include <iomanip>
#include <optional>
#include <sstream>

#include "apps/camhost/call.h"
#include "apps/camhost/commands.h"
#include "apps/camhost/register_file_names.h"

namespace camhost {

namespace {

constexpr std::chrono::milliseconds kEvery{20};
constexpr int kLongest = 24 * 60 * 60 * 1000; // ms

using tmWords = std::map<std::uint32_t, std::optional<std::uint32_t>>;

std::string valueText(const std::optional<std::uint32_t>& value) {
    return value ? std::to_string(*value) : "nothing";
}

/// \return for example "[    1.250 s]"
std::string timeText(std::chrono::milliseconds time) {
    std::ostringstream text;
    text << "[" << std::setw(9) << std::fixed << std::setprecision(3)
         << static_cast<double>(time.count()) / 1000.0 << " s]";
    return text.str();
}

/// Reports every word that is not what it was.
/// \return how many those were
int report(tcCall& call, tmWords& words, std::chrono::milliseconds time) {
    int changes = 0;
    for (auto& [address, value] : words) {
        const auto now = call.head().registerFile().read_word(address);
        if (now == value)
            continue;
        call.line(timeText(time) + " " + registerTitle(address) + ": " + valueText(value) + " -> " +
                  valueText(now));
        value = now;
        ++changes;
    }
    return changes;
}

std::string watch(tcCall& call, tcArguments& arguments) {
    const std::chrono::milliseconds duration(arguments.takeInt("MILLISECONDS", 0, kLongest));
    tmWords words;
    do {
        const std::uint32_t address = takeRegister(arguments);
        words[address] = call.head().registerFile().read_word(address);
        call.line(timeText(std::chrono::milliseconds(0)) + " " + registerTitle(address) + ": " +
                  valueText(words[address]));
    } while (arguments.more());

    int changes = 0;
    call.facts() = {{"changes", changes}, {"milliseconds", 0}};
    std::chrono::milliseconds watched{0};
    while (watched < duration) {
        const auto slice = std::min(kEvery, duration - watched);
        if (!call.pause(slice))
            throw tcInterrupted("watch was interrupted after " + std::to_string(changes) +
                                " changes");
        watched += slice;
        changes += report(call, words, watched);
        call.facts() = {{"changes", changes}, {"milliseconds", watched.count()}};
    }
    return "watch: " + std::to_string(changes) + " changes in " + std::to_string(duration.count()) +
           " ms";
}

} // namespace

void addWatchCommand(tcCommandTable& table) {
    tsCommand command;
    command.group = "Registers";
    command.name = "watch";
    command.arguments = "MILLISECONDS WORD...";
    command.summary = "show changes of register-file words for so long [ms]";
    command.details = "Looks every 20 ms: of changes that follow faster, the last one shows.";
    command.examples = {"watch 100 exposure frame_interval"};
    command.run = watch;
    command.choices = [](tcCall&, std::size_t index) {
        return index > 0 ? registerNameList() : std::vector<std::string>{};
    };
    table.add(std::move(command));
}

} // namespace camhost
