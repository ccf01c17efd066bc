#include "apps/camhost/diagnosis_json.h"

#include <cstring>

#include <nlohmann/json.hpp>

#include "apps/camhost/arguments.h"

namespace camhost {

namespace {

constexpr int kFormat = 1;

using Json = nlohmann::ordered_json;

Json orNull(const std::string& text) {
    return text.empty() ? Json(nullptr) : Json(text);
}

Json errorOf(int error) {
    return error == 0 ? Json(nullptr) : Json(std::strerror(error));
}

Json deviceJson(const tsDevice& device) {
    Json holders = Json::array();
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
            {"mode", device.there ? Json(octalText(device.mode)) : Json(nullptr)},
            {"owner", orNull(device.ownerName)},
            {"group", orNull(device.groupName)},
            {"held_by", holders}};
}

Json lineJson(const tsControlLine& line) {
    const bool found = !line.chip.empty();
    return {{"name", line.name},
            {"chip", orNull(line.chip)},
            {"offset", found ? Json(line.offset) : Json(nullptr)},
            {"direction", found ? Json(line.output ? "output" : "input") : Json(nullptr)},
            {"in_use", line.used},
            {"consumer", orNull(line.consumer)},
            {"by_this_session", line.ours},
            {"only_for", orNull(line.onlyFor)}};
}

Json monitorJson(const std::optional<tsMonitor>& monitor) {
    if (!monitor)
        return nullptr;
    return {{"chip", monitor->fact.chip},
            {"bus", monitor->fact.bus},
            {"address", monitor->fact.address},
            {"asked", monitor->asked},
            {"answers", monitor->asked && monitor->error == 0},
            {"first_byte",
             monitor->asked && monitor->error == 0 ? Json(monitor->answer) : Json(nullptr)},
            {"error", errorOf(monitor->error)}};
}

Json settingsJson(const std::optional<tsSettingsFile>& file) {
    if (!file)
        return nullptr;
    return {{"path", file->path},
            {"error", errorOf(file->error)},
            {"lines", file->lines},
            {"register_writes", file->writes},
            {"pauses", file->pauses},
            {"paused_us", file->paused.count()},
            {"bad_line", file->badLine != 0 ? Json(file->badLine) : Json(nullptr)},
            {"bad_text", orNull(file->badText)},
            {"repeating_lines", file->repeats}};
}

Json supplyJson(const tsSupply& supply) {
    return {{"name", supply.name},
            {"volts", supply.volts},
            {"least", supply.limits ? Json(supply.limits->least) : Json(nullptr)},
            {"most", supply.limits ? Json(supply.limits->most) : Json(nullptr)},
            {"good", supply.good()}};
}

Json waitJson(Json json, const tsWait& wait) {
    json["tries"] = wait.tries;
    json["milliseconds"] = wait.time.count();
    return json;
}

Json pllJson(const tsLink& link) {
    if (link.flags.empty())
        return nullptr;
    Json flags = Json::object();
    for (const auto& [name, set] : link.flags)
        flags[name] = set;
    return waitJson({{"flags", flags}, {"locked", link.pll.reached}}, link.pll);
}

Json lanesJson(const tsLink& link, unsigned lanes) {
    if (!link.locked)
        return nullptr;
    Json locked = Json::array();
    for (unsigned lane = 0; lane < lanes; ++lane)
        locked.push_back((*link.locked >> lane & 1U) != 0);
    return waitJson({{"locked", locked}}, link.lanes);
}

Json alignmentJson(const tsLink& link) {
    if (!link.aligned)
        return nullptr;
    return waitJson({{"aligned", *link.aligned}}, link.alignment);
}

Json timingJson(const std::optional<tsTiming>& timing) {
    if (!timing)
        return nullptr;
    return {{"exposure_us", timing->exposure},
            {"interval_us", timing->interval},
            {"least_interval_us", timing->leastInterval}};
}

Json bringUpJson(const tsDiagnosis& diagnosis) {
    if (!diagnosis.broughtUp)
        return nullptr;
    const tsBringUp& bringUp = *diagnosis.broughtUp;
    Json supplies = Json::array();
    for (const tsSupply& supply : bringUp.supplies)
        supplies.push_back(supplyJson(supply));
    return {{"result", bringUp.thrown.empty() ? Json(bringUp.result) : Json(nullptr)},
            {"thrown", orNull(bringUp.thrown)},
            {"supplies", supplies},
            {"pll", pllJson(bringUp.link)},
            {"lanes", lanesJson(bringUp.link, diagnosis.lanesOfHead)},
            {"alignment", alignmentJson(bringUp.link)},
            {"timing", timingJson(bringUp.timing)},
            {"board_said", bringUp.lines},
            {"left", bringUp.left}};
}

Json stagesJson(const tsJudgement& judgement) {
    Json stages = Json::object();
    for (std::size_t n = 0; n < kStages; ++n) {
        const auto stage = static_cast<teStage>(n);
        stages[nameOf(stage)] = nameOf(judgement.of(stage));
    }
    return stages;
}

Json verdictJson(const tsJudgement& judgement) {
    Json causes = Json::array();
    for (const failures::tsCause& cause : judgement.causes)
        causes.push_back({{"cause", cause.cause}, {"measure", cause.measure}});
    return {{"status", static_cast<int>(judgement.status)},
            {"stage", judgement.stage ? Json(nameOf(*judgement.stage)) : Json(nullptr)},
            {"says", judgement.says},
            {"causes", causes},
            {"notes", judgement.notes}};
}

template<typename Items, typename One>
Json listOf(const Items& items, One one) {
    Json list = Json::array();
    for (const auto& item : items)
        list.push_back(one(item));
    return list;
}

} // namespace

std::string jsonOf(const tsDiagnosis& diagnosis, const tsJudgement& judgement) {
    const Json json = {{"format", kFormat},
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
    // Names and files may hold anything: what is no UTF-8 is replaced, not refused.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

} // namespace camhost
