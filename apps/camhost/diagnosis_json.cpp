#include "apps/camhost/diagnosis_json.h"

#include <cstring>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

constexpr int kFormat = 1;

tmFacts orNull(const std::string& text) {
    return text.empty() ? tmFacts(nullptr) : tmFacts(text);
}

tmFacts errorOf(int error) {
    return error == 0 ? tmFacts(nullptr) : tmFacts(std::strerror(error));
}

tmFacts deviceJson(const tsDevice& device) {
    tmFacts holders = tmFacts::array();
    for (const tsHolder& holder : device.holders)
        holders.push_back({{"pid", holder.pid}, {"program", holder.program}});
    const bool opens = device.there && device.rightKind && device.error == 0;
    return {{"name", device.name},
            {"what", device.what},
            {"path", device.path},
            {"there", device.there},
            {"right_kind", device.there && device.rightKind},
            {"opens", opens},
            {"error", errorOf(device.error)},
            {"mode", device.there ? tmFacts(octalText(device.mode)) : tmFacts(nullptr)},
            {"owner", orNull(device.ownerName)},
            {"group", orNull(device.groupName)},
            {"held_by", holders}};
}

tmFacts lineJson(const tsControlLine& line) {
    const bool found = !line.chip.empty();
    return {{"name", line.name},
            {"chip", orNull(line.chip)},
            {"offset", found ? tmFacts(line.offset) : tmFacts(nullptr)},
            {"direction", found ? tmFacts(line.output ? "output" : "input") : tmFacts(nullptr)},
            {"in_use", line.used},
            {"consumer", orNull(line.consumer)},
            {"by_this_session", line.ours},
            {"only_for", orNull(line.onlyFor)}};
}

tmFacts monitorJson(const std::optional<tsMonitor>& monitor) {
    if (!monitor)
        return nullptr;
    return {{"chip", monitor->fact.chip},
            {"bus", monitor->fact.bus},
            {"address", monitor->fact.address},
            {"asked", monitor->asked},
            {"answers", monitor->asked && monitor->error == 0},
            {"first_byte",
             monitor->asked && monitor->error == 0 ? tmFacts(monitor->answer) : tmFacts(nullptr)},
            {"error", errorOf(monitor->error)}};
}

tmFacts settingsJson(const std::optional<tsSettingsFile>& file) {
    if (!file)
        return nullptr;
    return {{"path", file->path},
            {"error", errorOf(file->error)},
            {"lines", file->lines},
            {"register_writes", file->writes},
            {"pauses", file->pauses},
            {"paused_us", file->paused.count()},
            {"bad_line", file->badLine != 0 ? tmFacts(file->badLine) : tmFacts(nullptr)},
            {"bad_text", orNull(file->badText)},
            {"repeating_lines", file->repeats}};
}

tmFacts supplyJson(const tsSupply& supply) {
    return {{"name", supply.name},
            {"volts", supply.volts},
            {"least", supply.limits ? tmFacts(supply.limits->least) : tmFacts(nullptr)},
            {"most", supply.limits ? tmFacts(supply.limits->most) : tmFacts(nullptr)},
            {"good", supply.good()}};
}

tmFacts waitJson(tmFacts json, const tsWait& wait) {
    json["tries"] = wait.tries;
    json["milliseconds"] = wait.time.count();
    return json;
}

tmFacts pllJson(const tsLink& link) {
    if (link.flags.empty())
        return nullptr;
    tmFacts flags = tmFacts::object();
    for (const auto& [name, set] : link.flags)
        flags[name] = set;
    return waitJson({{"flags", flags}, {"locked", link.pll.reached}}, link.pll);
}

tmFacts lanesJson(const tsLink& link, unsigned lanes) {
    if (!link.locked)
        return nullptr;
    tmFacts locked = tmFacts::array();
    for (unsigned lane = 0; lane < lanes; ++lane)
        locked.push_back((*link.locked >> lane & 1U) != 0);
    return waitJson({{"locked", locked}}, link.lanes);
}

tmFacts alignmentJson(const tsLink& link) {
    if (!link.aligned)
        return nullptr;
    return waitJson({{"aligned", *link.aligned}}, link.alignment);
}

tmFacts timingJson(const std::optional<tsTiming>& timing) {
    if (!timing)
        return nullptr;
    return {{"exposure_us", timing->exposure},
            {"interval_us", timing->interval},
            {"least_interval_us", timing->leastInterval}};
}

tmFacts bringUpJson(const tsDiagnosis& diagnosis) {
    if (!diagnosis.broughtUp)
        return nullptr;
    const tsBringUp& bringUp = *diagnosis.broughtUp;
    tmFacts supplies = tmFacts::array();
    for (const tsSupply& supply : bringUp.supplies)
        supplies.push_back(supplyJson(supply));
    return {{"result", bringUp.thrown.empty() ? tmFacts(bringUp.result) : tmFacts(nullptr)},
            {"thrown", orNull(bringUp.thrown)},
            {"supplies", supplies},
            {"pll", pllJson(bringUp.link)},
            {"lanes", lanesJson(bringUp.link, diagnosis.lanesOfHead)},
            {"alignment", alignmentJson(bringUp.link)},
            {"timing", timingJson(bringUp.timing)},
            {"board_said", bringUp.lines},
            {"left", bringUp.left}};
}

tmFacts stagesJson(const tsJudgement& judgement) {
    tmFacts stages = tmFacts::object();
    for (std::size_t n = 0; n < kStages; ++n) {
        const auto stage = static_cast<teStage>(n);
        stages[nameOf(stage)] = nameOf(judgement.of(stage));
    }
    return stages;
}

tmFacts verdictJson(const tsJudgement& judgement) {
    tmFacts causes = tmFacts::array();
    for (const failures::tsCause& cause : judgement.causes)
        causes.push_back({{"cause", cause.cause}, {"measure", cause.measure}});
    return {{"status", static_cast<int>(judgement.status)},
            {"stage", judgement.stage ? tmFacts(nameOf(*judgement.stage)) : tmFacts(nullptr)},
            {"says", judgement.says},
            {"causes", causes},
            {"notes", judgement.notes}};
}

template<typename Items, typename One>
tmFacts listOf(const Items& items, One one) {
    tmFacts list = tmFacts::array();
    for (const auto& item : items)
        list.push_back(one(item));
    return list;
}

} // namespace

tmFacts diagnosisFacts(const tsDiagnosis& diagnosis, const tsJudgement& judgement) {
    return {{"format", kFormat},
            {"plugin", diagnosis.plugin},
            {"spi", diagnosis.spi},
            {"folder", diagnosis.folder},
            {"user", {{"name", diagnosis.user.name}, {"groups", diagnosis.user.groups}}},
            {"power", diagnosis.power},
            {"verdict", verdictJson(judgement)},
            {"stages", stagesJson(judgement)},
            {"devices", listOf(diagnosis.devices, deviceJson)},
            {"lines", listOf(diagnosis.lines, lineJson)},
            {"monitor", monitorJson(diagnosis.monitor)},
            {"settings", settingsJson(diagnosis.settings)},
            {"brought_up", bringUpJson(diagnosis)},
            {"left_out", judgement.leftOut}};
}

} // namespace camhost
