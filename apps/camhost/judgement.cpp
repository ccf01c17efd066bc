#include "apps/camhost/judgement.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include <sys/stat.h>

#include "apps/camhost/arguments.h"
#include "apps/camhost/results.h"

namespace camhost {

namespace {

using failures::tsFinding;

struct tsStageNames {
    teStage stage;
    const char* name; // in tables and for programs
    const char* title;
    teExit status;
};

constexpr std::array<tsStageNames, kStages> kNames{{
    {teStage::eDevices, "devices", "device files", teExit::eDevices},
    {teStage::eLines, "lines", "GPIO lines", teExit::eLines},
    {teStage::eMonitor, "monitor", "supply monitor", teExit::eMonitor},
    {teStage::eSettings, "settings", "settings file", teExit::eSettings},
    {teStage::ePort, "port", "sensor's port", teExit::ePort},
    {teStage::eSupplies, "supplies", "supplies", teExit::eSupplies},
    {teStage::eFpga, "fpga", "FPGA", teExit::eFpga},
    {teStage::ePll, "pll", "receiver's PLL", teExit::ePll},
    {teStage::eLanes, "lanes", "lanes", teExit::eLanes},
    {teStage::eAlignment, "alignment", "frame alignment", teExit::eAlignment},
    {teStage::eTiming, "timing", "exposure and interval", teExit::eTiming},
}};

const tsStageNames& namesOf(teStage stage) {
    return kNames[static_cast<std::size_t>(stage)];
}

std::optional<teStage> stageNamed(const std::string& name) {
    const auto found = std::find_if(kNames.begin(), kNames.end(),
                                    [&](const tsStageNames& one) { return name == one.name; });
    return found != kNames.end() ? std::optional(found->stage) : std::nullopt;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

// ---- Findings

/// \return whether the file's bits let the user read and write
bool bitsPermit(const tsDevice& device, const tsUser& user) {
    if (user.id == 0)
        return true;
    const auto both = [&](unsigned bits) { return (device.mode & bits) == bits; };
    if (device.owner == user.id)
        return both(S_IRUSR | S_IWUSR);
    if (std::find(user.groupIds.begin(), user.groupIds.end(), device.group) != user.groupIds.end())
        return both(S_IRGRP | S_IWGRP);
    return both(S_IROTH | S_IWOTH);
}

std::optional<tsFinding> findingOf(const tsDevice& device, const tsUser& user) {
    std::map<std::string, std::string> words{{"path", device.path},
                                             {"what", device.what},
                                             {"error", std::strerror(device.error)},
                                             {"user", user.name}};
    if (!device.there)
        return tsFinding{device.error == ENOENT ? "device-missing" : "device-error", device.name,
                         words};
    if (!device.rightKind)
        return tsFinding{"device-kind",
                         device.name,
                         {{"path", device.path}, {"what", device.what}, {"kind", device.kind}}};
    if (device.error == 0)
        return std::nullopt;
    const bool refused = device.error == EACCES || device.error == EPERM;
    if (refused && !bitsPermit(device, user)) {
        words["mode"] = octalText(device.mode);
        words["owner"] = device.ownerName;
        words["group"] = device.groupName;
        words["groups"] = joined(user.groups);
        return tsFinding{"device-permission", device.name, words};
    }
    return tsFinding{refused ? "device-refused" : "device-error", device.name, words};
}

std::optional<tsFinding> findingOf(const tsControlLine& line) {
    if (line.chip.empty())
        return tsFinding{"line-missing", line.name, {{"line", line.name}}};
    if (line.used && !line.ours)
        return tsFinding{
            "line-busy",
            line.name,
            {{"line", line.name},
             {"chip", line.chip},
             {"offset", std::to_string(line.offset)},
             {"consumer", line.consumer.empty() ? "nobody who tells a name" : line.consumer}}};
    return std::nullopt;
}

std::optional<tsFinding> findingOf(const tsMonitor& monitor) {
    const std::string& bus = monitor.fact.bus;
    std::map<std::string, std::string> words{{"chip", monitor.fact.chip},
                                             {"bus", bus},
                                             {"number", bus.substr(bus.find_last_of('-') + 1)},
                                             {"address", hexText(monitor.fact.address, 2)}};
    if (monitor.error != 0) {
        words["error"] = std::strerror(monitor.error);
        const bool busy = monitor.error == ETIMEDOUT || monitor.error == EAGAIN;
        const bool silent = monitor.error == ENXIO || monitor.error == EREMOTEIO;
        return tsFinding{busy     ? "monitor-bus-busy"
                         : silent ? "monitor-silent"
                                  : "monitor-error",
                         "", words};
    }
    if ((monitor.answer & monitor.fact.zeroBits) != 0) {
        words["byte"] = hexText(monitor.answer, 2);
        return tsFinding{"monitor-floats", "", words};
    }
    return std::nullopt;
}

std::optional<tsFinding> findingOf(const tsSettingsFile& file) {
    if (file.error != 0)
        return tsFinding{
            "settings-missing", "", {{"file", file.path}, {"error", std::strerror(file.error)}}};
    if (file.badLine != 0)
        return tsFinding{"settings-line",
                         "",
                         {{"file", file.path},
                          {"number", std::to_string(file.badLine)},
                          {"text", file.badText}}};
    if (file.writes == 0)
        return tsFinding{"settings-empty", "", {{"file", file.path}}};
    return std::nullopt;
}

std::optional<tsFinding> findingOf(const tsTiming& timing) {
    if (timing.interval >= timing.leastInterval)
        return std::nullopt;
    return tsFinding{"interval",
                     "",
                     {{"interval", std::to_string(timing.interval)},
                      {"least", std::to_string(timing.leastInterval)}}};
}

/// \return the limits that were in force
std::map<std::string, failures::tsLimits> limitsOf(const tsBringUp& bringUp) {
    std::map<std::string, failures::tsLimits> limits;
    for (const tsSupply& supply : bringUp.supplies) {
        if (supply.limits)
            limits[supply.name] = *supply.limits;
    }
    return limits;
}

// ---- The judge

class tcJudge {
public:
    tcJudge(const tsDiagnosis& diagnosis, const failures::tcFailureTable* table)
        : m_diagnosis(diagnosis), m_table(table) {}

    tsJudgement judge();

private:
    [[nodiscard]] bool isChip(const tsDevice& device) const;
    void set(teStage stage, teState state) {
        m_judgement.states[static_cast<std::size_t>(stage)] = state;
    }
    void setFrom(teStage first, teState state);
    void conclude(std::optional<teStage> stage, teExit status,
                  const std::optional<failures::tsExplanation>& explanation,
                  const std::string& otherwise);
    void conclude(teStage stage, const tsFinding& finding);
    void judgeDevices();
    void judgeLines();
    void judgeMonitor();
    void judgeSettings();
    void judgeBringUp(const tsBringUp& bringUp);
    void judgeFailure(const tsBringUp& bringUp);
    void judgeTiming(const tsBringUp& bringUp);
    void noteComplaints(const std::string& when, const std::vector<std::string>& complaints);
    void tellLeftOut();
    [[nodiscard]] std::string goodWords() const;

    const tsDiagnosis& m_diagnosis;
    const failures::tcFailureTable* m_table;
    tsJudgement m_judgement;
};

tsJudgement tcJudge::judge() {
    m_judgement.states.fill(teState::eLeftOut);
    judgeDevices();
    judgeLines();
    judgeMonitor();
    judgeSettings();
    noteComplaints("the board complained as it was made: ", m_diagnosis.complaints);
    if (m_diagnosis.broughtUp)
        judgeBringUp(*m_diagnosis.broughtUp);
    tellLeftOut();
    if (!m_diagnosis.noFacts.empty() && m_judgement.status == teExit::eSuccess)
        conclude(std::nullopt, teExit::eNoFacts, std::nullopt,
                 (m_diagnosis.broughtUp ? "the head comes up, but cannot be examined: "
                                        : "this head cannot be examined: ") +
                     m_diagnosis.noFacts);
    if (m_judgement.status == teExit::eSuccess)
        m_judgement.says = goodWords();
    return std::move(m_judgement);
}

std::string tcJudge::goodWords() const {
    const std::string but = m_judgement.notes.empty() ? "" : " but for what is noted";
    if (m_diagnosis.broughtUp)
        return "nothing is wrong with this head" + but;
    return "nothing is wrong so far" + but +
           (m_diagnosis.isUp ? "; the head was left as it is" : "; the head was not switched on");
}

void tcJudge::setFrom(teStage first, teState state) {
    for (auto stage = static_cast<std::size_t>(first); stage < kStages; ++stage)
        m_judgement.states[stage] = state;
}

/// The first thing that is wrong is the verdict: what comes after may come from it.
void tcJudge::conclude(std::optional<teStage> stage, teExit status,
                       const std::optional<failures::tsExplanation>& explanation,
                       const std::string& otherwise) {
    if (stage)
        set(*stage, teState::eWrong);
    if (m_judgement.status != teExit::eSuccess)
        return;
    m_judgement.stage = stage;
    m_judgement.status = status;
    m_judgement.says = explanation ? explanation->what : otherwise;
    if (explanation)
        m_judgement.causes = explanation->causes;
}

void tcJudge::conclude(teStage stage, const tsFinding& finding) {
    const auto explanation = m_table != nullptr ? m_table->explain(finding) : std::nullopt;
    std::string words;
    for (const auto& [name, word] : finding.words)
        words.append(words.empty() ? ": " : ", ").append(name).append(" ").append(word);
    conclude(stage, namesOf(stage).status, explanation,
             finding.name + words + "; the board's table does not know why");
}

bool tcJudge::isChip(const tsDevice& device) const {
    const auto& devices = m_table->head()->devices;
    return std::any_of(devices.begin(), devices.end(), [&](const failures::tsDeviceFact& fact) {
        return fact.name == device.name && fact.kind == failures::teDeviceKind::eGpio;
    });
}

/// Of several chips those that cannot be opened matter only when a line is missing.
void tcJudge::judgeDevices() {
    if (m_diagnosis.devices.empty())
        return;
    set(teStage::eDevices, teState::eGood);
    const auto& lines = m_diagnosis.lines;
    const bool allFound =
        !lines.empty() && std::none_of(lines.begin(), lines.end(),
                                       [](const tsControlLine& line) { return line.chip.empty(); });
    for (const tsDevice& device : m_diagnosis.devices) {
        const auto finding = findingOf(device, m_diagnosis.user);
        if (finding && !(isChip(device) && allFound))
            conclude(teStage::eDevices, *finding);
    }
}

void tcJudge::judgeLines() {
    if (m_diagnosis.lines.empty())
        return;
    const bool chip = std::any_of(
        m_diagnosis.devices.begin(), m_diagnosis.devices.end(), [&](const tsDevice& device) {
            return isChip(device) && device.there && device.rightKind && device.error == 0;
        });
    if (!chip) {
        set(teStage::eLines, teState::eUnknown);
        return;
    }
    set(teStage::eLines, teState::eGood);
    for (const tsControlLine& line : m_diagnosis.lines) {
        const auto finding = findingOf(line);
        if (finding && line.onlyFor.empty()) {
            conclude(teStage::eLines, *finding);
        } else if (finding) {
            if (m_judgement.of(teStage::eLines) == teState::eGood)
                set(teStage::eLines, teState::eNoted);
            m_judgement.notes.push_back("without the line " + line.name + " there are no " +
                                        line.onlyFor);
        }
    }
}

void tcJudge::judgeMonitor() {
    if (!m_diagnosis.monitor)
        return;
    set(teStage::eMonitor, m_diagnosis.monitor->asked ? teState::eGood : teState::eUnknown);
    if (const auto finding = findingOf(*m_diagnosis.monitor))
        conclude(teStage::eMonitor, *finding);
}

void tcJudge::judgeSettings() {
    if (!m_diagnosis.settings)
        return;
    set(teStage::eSettings, teState::eGood);
    if (const auto finding = findingOf(*m_diagnosis.settings)) {
        conclude(teStage::eSettings, *finding);
        return;
    }
    if (m_diagnosis.settings->repeats.empty())
        return;
    set(teStage::eSettings, teState::eNoted);
    std::vector<std::string> numbers;
    for (const unsigned line : m_diagnosis.settings->repeats)
        numbers.push_back(std::to_string(line));
    m_judgement.notes.push_back("the settings file has no two numbers in line " + joined(numbers) +
                                ": what is missing is repeated from the line before");
}

void tcJudge::judgeBringUp(const tsBringUp& bringUp) {
    setFrom(teStage::ePort, teState::eGood);
    if (bringUp.result != 0 || !bringUp.thrown.empty()) {
        judgeFailure(bringUp);
        return;
    }
    judgeTiming(bringUp);
    noteComplaints("the board complained: ", bringUp.complaints);
    const tsLink& link = bringUp.link;
    if (link.flags.empty())
        set(teStage::ePll, teState::eUnknown);
    if (!link.locked)
        set(teStage::eLanes, teState::eUnknown);
    if (!link.aligned)
        set(teStage::eAlignment, teState::eUnknown);
    if (bringUp.supplies.empty())
        set(teStage::eSupplies, teState::eUnknown);
}

/// Stages before the one that failed were passed; of those after it nothing is known.
void tcJudge::judgeFailure(const tsBringUp& bringUp) {
    std::optional<failures::tsExplanation> explanation;
    if (m_table != nullptr && bringUp.thrown.empty())
        explanation = m_table->withLimits(limitsOf(bringUp)).explain(bringUp.result, bringUp.lines);
    const auto stage = explanation ? stageNamed(explanation->stage) : std::nullopt;
    setFrom(stage && *stage > teStage::ePort ? *stage : teStage::ePort, teState::eUnknown);
    const std::string what = bringUp.thrown.empty()
                                 ? "the board's initialization gave " + resultText(bringUp.result)
                                 : "the board's initialization threw \"" + bringUp.thrown + "\"";
    conclude(stage, stage ? namesOf(*stage).status : teExit::eUnexplained, explanation,
             what + "; no table knows why");
}

void tcJudge::judgeTiming(const tsBringUp& bringUp) {
    if (!bringUp.timing)
        return;
    if (const auto finding = findingOf(*bringUp.timing))
        conclude(teStage::eTiming, *finding);
}

/// A head that came up although something failed on the way: a register that was not written, say.
void tcJudge::noteComplaints(const std::string& when, const std::vector<std::string>& complaints) {
    std::set<std::string> told;
    for (const std::string& line : complaints) {
        if (!line.empty() && told.insert(line).second)
            m_judgement.notes.push_back(when + line);
    }
}

void tcJudge::tellLeftOut() {
    auto& leftOut = m_judgement.leftOut;
    if (!m_diagnosis.noFacts.empty())
        leftOut.push_back("device files, GPIO lines, supply monitor, settings file: " +
                          m_diagnosis.noFacts);
    if (!m_diagnosis.power && m_diagnosis.isUp)
        leftOut.push_back(
            "supplies, FPGA, PLL, lanes, alignment, exposure: the head is up; \"info\" "
            "has what its board said, \"diagnose power anew\" brings it up once more");
    else if (!m_diagnosis.power)
        leftOut.push_back("supplies, FPGA, PLL, lanes, alignment, exposure: nothing was switched "
                          "on; \"diagnose power\" or --diagnose --power does");
    else if (!m_diagnosis.notBroughtUp.empty())
        leftOut.push_back("supplies, FPGA, PLL, lanes, alignment, exposure: " +
                          m_diagnosis.notBroughtUp);
    if (m_diagnosis.user.id != 0 && !m_diagnosis.devices.empty())
        leftOut.push_back("which processes of other users have a device file open: only root may "
                          "see that");
}

} // namespace

tsJudgement judge(const tsDiagnosis& diagnosis, const failures::tcFailureTable* table) {
    return tcJudge(diagnosis, table).judge();
}

const char* nameOf(teStage stage) {
    return namesOf(stage).name;
}

const char* titleOf(teStage stage) {
    return namesOf(stage).title;
}

const char* nameOf(teState state) {
    switch (state) {
    case teState::eGood:
        return "good";
    case teState::eNoted:
        return "noted";
    case teState::eWrong:
        return "wrong";
    case teState::eUnknown:
        return "unknown";
    case teState::eLeftOut:
        break;
    }
    return "left out";
}

std::string octalText(unsigned mode) {
    constexpr unsigned digit = 8;
    std::string text;
    for (; mode != 0; mode /= digit)
        text.insert(text.begin(), static_cast<char>('0' + mode % digit));
    constexpr std::size_t digits = 4;
    return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

std::string shortNumber(double value) {
    std::string text = std::to_string(value);
    text.erase(text.find_last_not_of('0') + 1);
    return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
}

} // namespace camhost
