#include "apps/camhost/diagnosis_tree.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

/// A line of the tree and what hangs on it.
struct tsNode {
    std::string text;
    std::vector<tsNode> below{};
};

/// What comes from files and the kernel may hold anything.
/// \return without what would move a terminal's cursor or change its colours
std::string printable(std::string text) {
    for (char& character : text) {
        const auto byte = static_cast<unsigned char>(character);
        constexpr unsigned char del = 0x7F;
        if (byte < ' ' || byte == del)
            character = '?';
    }
    return text;
}

const char* colourOf(teState state) {
    switch (state) {
    case teState::eGood:
        return "\033[32m"; // green
    case teState::eNoted:
        return "\033[33m"; // yellow
    case teState::eWrong:
        return "\033[1;31m"; // red
    default:
        return "\033[2m"; // dim
    }
}

std::string plural(std::size_t count, const std::string& word) {
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

template<typename Items>
std::size_t widestName(const Items& items) {
    std::size_t width = 0;
    for (const auto& item : items)
        width = std::max(width, item.name.size());
    return width;
}

// ---- The stages' lines

std::string holdersOf(const tsDevice& device) {
    std::string text;
    for (const tsHolder& holder : device.holders)
        text += ", open in process " + std::to_string(holder.pid) + " (" +
                printable(holder.program) + "), too";
    return text;
}

std::string stateOf(const tsDevice& device) {
    if (!device.there)
        return std::strerror(device.error);
    if (!device.rightKind)
        return "there, but it is " + device.kind + holdersOf(device);
    if (device.error != 0)
        return std::string("does not open for reading and writing: ") +
               std::strerror(device.error) + holdersOf(device);
    return "may be read and written" + holdersOf(device);
}

std::vector<tsNode> devicesOf(const tsDiagnosis& diagnosis) {
    std::vector<tsNode> nodes;
    for (const tsDevice& device : diagnosis.devices)
        nodes.push_back({device.path + ", " + device.what + ": " + stateOf(device)});
    return nodes;
}

std::string stateOf(const tsControlLine& line) {
    if (line.chip.empty())
        return "no chip has a line of this name";
    const std::string place = line.chip + " line " + std::to_string(line.offset) + ", " +
                              (line.output ? "output" : "input");
    if (!line.used)
        return place + ", free";
    return place + (line.ours ? ", held by this session's board" : ", in use") +
           (line.consumer.empty() ? "" : " as \"" + printable(line.consumer) + "\"");
}

std::vector<tsNode> linesOf(const tsDiagnosis& diagnosis) {
    std::vector<tsNode> nodes;
    const std::size_t width = widestName(diagnosis.lines);
    for (const tsControlLine& line : diagnosis.lines)
        nodes.push_back({padded(line.name, width) + "  " + stateOf(line)});
    return nodes;
}

std::vector<tsNode> monitorOf(const tsDiagnosis& diagnosis) {
    if (!diagnosis.monitor)
        return {};
    const tsMonitor& monitor = *diagnosis.monitor;
    const std::string place = " at " + hexText(monitor.fact.address, 2) + " of " + monitor.fact.bus;
    if (!monitor.asked)
        return {{monitor.fact.chip + place + ": not asked, its bus does not open"}};
    if (monitor.error != 0)
        return {{monitor.fact.chip + place + ": no answer, " + std::strerror(monitor.error)}};
    const bool floats = (monitor.answer & monitor.fact.zeroBits) != 0;
    return {{monitor.fact.chip + place + ": answers" +
             (floats ? " with " + hexText(monitor.answer, 2) + ", which it cannot" : "")}};
}

std::vector<tsNode> settingsOf(const tsDiagnosis& diagnosis) {
    if (!diagnosis.settings)
        return {};
    const tsSettingsFile& file = *diagnosis.settings;
    if (file.error != 0)
        return {{file.path + ": " + std::strerror(file.error)}};
    std::vector<tsNode> nodes{{file.path + ": " + plural(file.lines, "line") + ", " +
                               plural(file.writes, "register write") + ", " +
                               plural(file.pauses, "pause") + " of " +
                               std::to_string(file.paused.count()) + " us"}};
    if (file.badLine != 0)
        nodes.push_back({"line " + std::to_string(file.badLine) +
                         " is not understood: " + printable(file.badText)});
    return nodes;
}

std::vector<tsNode> suppliesOf(const tsBringUp& bringUp) {
    std::vector<tsNode> nodes;
    const std::size_t width = widestName(bringUp.supplies);
    for (const tsSupply& supply : bringUp.supplies) {
        std::string text = padded(supply.name, width) + "  " + shortNumber(supply.volts) + " V";
        if (supply.limits)
            text += ", " + shortNumber(supply.limits->least) + " V to " +
                    shortNumber(supply.limits->most) + " V allowed: " +
                    (supply.good()                         ? "good"
                     : supply.volts < supply.limits->least ? "too low"
                                                           : "too high");
        nodes.push_back({text});
    }
    return nodes;
}

std::string waitText(const tsWait& wait) {
    if (wait.tries == 0)
        return "at once";
    return "after " + std::to_string(wait.tries) + (wait.tries == 1 ? " try, " : " tries, ") +
           std::to_string(wait.time.count()) + " ms";
}

std::vector<tsNode> pllOf(const tsLink& link) {
    if (link.flags.empty())
        return {};
    std::string text;
    for (const auto& [name, set] : link.flags)
        text += (text.empty() ? "" : ", ") + name + (set ? " 1" : " 0");
    return {{text + (link.pll.reached ? ": locked " : ": not locked ") + waitText(link.pll)}};
}

std::vector<tsNode> lanesOf(const tsLink& link, unsigned lanes) {
    if (!link.locked)
        return {};
    std::string bar;
    std::string dead;
    unsigned locked = 0;
    for (unsigned lane = 0; lane < lanes; ++lane) {
        const bool set = (*link.locked >> lane & 1U) != 0;
        bar += set ? '#' : '.';
        locked += set ? 1 : 0;
        if (!set)
            dead += (dead.empty() ? "" : ", ") + std::to_string(lane);
    }
    return {{"0 [" + bar + "] " + std::to_string(lanes - 1) + ": " + std::to_string(locked) +
             " of " + std::to_string(lanes) + " locked " + waitText(link.lanes) +
             (dead.empty() ? "" : ", not lane " + dead)}};
}

std::vector<tsNode> alignmentOf(const tsLink& link) {
    if (!link.aligned)
        return {};
    return {{std::string(*link.aligned ? "frames are recognised " : "no frame is recognised ") +
             waitText(link.alignment)}};
}

std::vector<tsNode> timingOf(const std::optional<tsTiming>& timing) {
    if (!timing)
        return {};
    return {{"exposure " + std::to_string(timing->exposure) + " us, at most the interval"},
            {"interval " + std::to_string(timing->interval) + " us, at least " +
             std::to_string(timing->leastInterval) + " us"}};
}

std::vector<tsNode> detailsOf(teStage stage, const tsDiagnosis& diagnosis) {
    switch (stage) {
    case teStage::eDevices:
        return devicesOf(diagnosis);
    case teStage::eLines:
        return linesOf(diagnosis);
    case teStage::eMonitor:
        return monitorOf(diagnosis);
    case teStage::eSettings:
        return settingsOf(diagnosis);
    default:
        break;
    }
    if (!diagnosis.broughtUp)
        return {};
    const tsBringUp& bringUp = *diagnosis.broughtUp;
    switch (stage) {
    case teStage::eSupplies:
        return suppliesOf(bringUp);
    case teStage::ePll:
        return pllOf(bringUp.link);
    case teStage::eLanes:
        return lanesOf(bringUp.link, diagnosis.lanesOfHead);
    case teStage::eAlignment:
        return alignmentOf(bringUp.link);
    case teStage::eTiming:
        return timingOf(bringUp.timing);
    default:
        return {};
    }
}

// ---- The verdict

std::vector<tsNode> causesOf(const tsJudgement& judgement) {
    std::vector<tsNode> nodes;
    for (std::size_t n = 0; n < judgement.causes.size(); ++n) {
        const failures::tsCause& cause = judgement.causes[n];
        const std::string number = judgement.causes.size() > 1 ? " " + std::to_string(n + 1) : "";
        nodes.push_back({"likely" + number + ": " + printable(cause.cause),
                         {{"measure: " + printable(cause.measure)}}});
    }
    return nodes;
}

class tcTree {
public:
    tcTree(const tsDiagnosis& diagnosis, const tsJudgement& judgement, bool colour)
        : m_diagnosis(diagnosis), m_judgement(judgement), m_colour(colour) {}

    std::string text() {
        m_text = printable("head on " + m_diagnosis.spi + ", by " +
                           std::filesystem::path(m_diagnosis.plugin).filename().string() +
                           ", settings in " + m_diagnosis.folder);
        print(branches(), "");
        return m_text;
    }

private:
    [[nodiscard]] std::string painted(const std::string& word, teState state) const {
        return m_colour ? colourOf(state) + word + "\033[0m" : word;
    }

    [[nodiscard]] std::vector<tsNode> branches() const {
        std::vector<tsNode> nodes;
        for (std::size_t n = 0; n < kStages; ++n) {
            const auto stage = static_cast<teStage>(n);
            const teState state = m_judgement.of(stage);
            if (state != teState::eLeftOut)
                nodes.push_back({std::string(titleOf(stage)) + ": " + painted(nameOf(state), state),
                                 detailsOf(stage, m_diagnosis)});
        }
        for (const std::string& what : m_judgement.leftOut)
            nodes.push_back({painted("left out", teState::eLeftOut) + ": " + printable(what)});
        for (const std::string& note : m_judgement.notes)
            nodes.push_back({painted("note", teState::eNoted) + ": " + printable(note)});
        if (m_diagnosis.broughtUp && !m_diagnosis.broughtUp->left.empty())
            nodes.push_back({"now: " + printable(m_diagnosis.broughtUp->left)});
        nodes.push_back(verdict());
        return nodes;
    }

    [[nodiscard]] tsNode verdict() const {
        const bool good = m_judgement.status == teExit::eSuccess;
        const std::string status =
            good ? ""
                 : " (exit status " + std::to_string(static_cast<int>(m_judgement.status)) + ")";
        return {"verdict: " +
                    painted(printable(m_judgement.says), good ? teState::eGood : teState::eWrong) +
                    status,
                causesOf(m_judgement)};
    }

    void print(const std::vector<tsNode>& nodes, const std::string& indent) {
        for (std::size_t n = 0; n < nodes.size(); ++n) {
            const bool last = n + 1 == nodes.size();
            m_text += "\n" + indent + (last ? "`-- " : "|-- ") + nodes[n].text;
            print(nodes[n].below, indent + (last ? "    " : "|   "));
        }
    }

    const tsDiagnosis& m_diagnosis;
    const tsJudgement& m_judgement;
    bool m_colour;
    std::string m_text;
};

} // namespace

std::string treeOf(const tsDiagnosis& diagnosis, const tsJudgement& judgement, bool colour) {
    return tcTree(diagnosis, judgement, colour).text();
}

} // namespace camhost
