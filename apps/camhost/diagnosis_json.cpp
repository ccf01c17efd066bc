#include "apps/camhost/diagnosis_json.h"

#include <cstring>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

constexpr int kFormat = 1;

tcFacts orNull(const std::string& text) {
    return text.empty() ? tcFacts(nullptr) : tcFacts(text);
}

tcFacts errorOf(int error) {
    return error == 0 ? tcFacts(nullptr) : tcFacts(std::strerror(error));
}

tcFacts deviceJson(const tsDevice& device) {
    tcFacts holders = tcFacts::list();
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
            {"mode", device.there ? tcFacts(octalText(device.mode)) : tcFacts(nullptr)},
            {"owner", orNull(device.ownerName)},
            {"group", orNull(device.groupName)},
            {"held_by", holders}};
}

tcFacts lineJson(const tsControlLine& line) {
    const bool found = !line.chip.empty();
    return {{"name", line.name},
            {"chip", orNull(line.chip)},
            {"offset", found ? tcFacts(line.offset) : tcFacts(nullptr)},
            {"direction", found ? tcFacts(line.output ? "output" : "input") : tcFacts(nullptr)},
            {"in_use", line.used},
            {"consumer", orNull(line.consumer)},
            {"by_this_session", line.ours},
            {"only_for", orNull(line.onlyFor)}};
}

tcFacts monitorJson(const std::optional<tsMonitor>& monitor) {
    if (!monitor)
        return nullptr;
    return {{"chip", monitor->fact.chip},
            {"bus", monitor->fact.bus},
            {"address", monitor->fact.address},
            {"asked", monitor->asked},
            {"answers", monitor->asked && monitor->error == 0},
            {"first_byte",
             monitor->asked && monitor->error == 0 ? tcFacts(monitor->answer) : tcFacts(nullptr)},
            {"error", errorOf(monitor->error)}};
}

tcFacts settingsJson(const std::optional<tsSettingsFile>& file) {
    if (!file)
        return nullptr;
    return {{"path", file->path},
            {"error", errorOf(file->error)},
            {"lines", file->lines},
            {"register_writes", file->writes},
            {"pauses", file->pauses},
            {"paused_us", file->paused.count()},
            {"bad_line", file->badLine != 0 ? tcFacts(file->badLine) : tcFacts(nullptr)},
            {"bad_text", orNull(file->badText)},
            {"repeating_lines", file->repeats}};
}

tcFacts supplyJson(const tsSupply& supply) {
    return {{"name", supply.name},
            {"volts", supply.volts},
            {"least", supply.limits ? tcFacts(supply.limits->least) : tcFacts(nullptr)},
            {"most", supply.limits ? tcFacts(supply.limits->most) : tcFacts(nullptr)},
            {"good", supply.good()}};
}

tcFacts waitJson(tcFacts json, const tsWait& wait) {
    json["tries"] = wait.tries;
    json["milliseconds"] = wait.time.count();
    return json;
}

tcFacts pllJson(const tsLink& link) {
    if (link.flags.empty())
        return nullptr;
    tcFacts flags = tcFacts::object();
    for (const auto& [name, set] : link.flags)
        flags[name] = set;
    return waitJson({{"flags", flags}, {"locked", link.pll.reached}}, link.pll);
}

tcFacts lanesJson(const tsLink& link, unsigned lanes) {
    if (!link.locked)
        return nullptr;
    tcFacts locked = tcFacts::list();
    for (unsigned lane = 0; lane < lanes; ++lane)
        locked.push_back((*link.locked >> lane & 1U) != 0);
    return waitJson({{"locked", locked}}, link.lanes);
}

tcFacts alignmentJson(const tsLink& link) {
    if (!link.aligned)
        return nullptr;
    return waitJson({{"aligned", *link.aligned}}, link.alignment);
}

tcFacts timingJson(const std::optional<tsTiming>& timing) {
    if (!timing)
        return nullptr;
    return {{"exposure_us", timing->exposure},
            {"interval_us", timing->interval},
            {"least_interval_us", timing->leastInterval}};
}

tcFacts bringUpJson(const tsDiagnosis& diagnosis) {
    if (!diagnosis.broughtUp)
        return nullptr;
    const tsBringUp& bringUp = *diagnosis.broughtUp;
    tcFacts supplies = tcFacts::list();
    for (const tsSupply& supply : bringUp.supplies)
        supplies.push_back(supplyJson(supply));
    return {{"result", bringUp.thrown.empty() ? tcFacts(bringUp.result) : tcFacts(nullptr)},
            {"thrown", orNull(bringUp.thrown)},
            {"supplies", supplies},
            {"pll", pllJson(bringUp.link)},
            {"lanes", lanesJson(bringUp.link, diagnosis.lanesOfHead)},
            {"alignment", alignmentJson(bringUp.link)},
            {"timing", timingJson(bringUp.timing)},
            {"board_said", bringUp.lines},
            {"left", bringUp.left}};
}

tcFacts stagesJson(const tsJudgement& judgement) {
    tcFacts stages = tcFacts::object();
    for (std::size_t n = 0; n < kStages; ++n) {
        const auto stage = static_cast<teStage>(n);
        stages[nameOf(stage)] = nameOf(judgement.of(stage));
    }
    return stages;
}

tcFacts verdictJson(const tsJudgement& judgement) {
    tcFacts causes = tcFacts::list();
    for (const failures::tsCause& cause : judgement.causes)
        causes.push_back({{"cause", cause.cause}, {"measure", cause.measure}});
    return {{"status", static_cast<int>(judgement.status)},
            {"stage", judgement.stage ? tcFacts(nameOf(*judgement.stage)) : tcFacts(nullptr)},
            {"says", judgement.says},
            {"causes", causes},
            {"notes", judgement.notes}};
}

template<typename Items, typename One>
tcFacts listOf(const Items& items, One one) {
    tcFacts list = tcFacts::list();
    for (const auto& item : items)
        list.push_back(one(item));
    return list;
}

} // namespace

tcFacts diagnosisFacts(const tsDiagnosis& diagnosis, const tsJudgement& judgement) {
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
