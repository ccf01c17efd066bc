#include "apps/live/interface.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <nlohmann/json.hpp>

#include "apps/live/state_json.h"
#include "fpga/registers.h"
#include "sim/after/drawing.h"
#include "sim/after/trace_reader.h"
#include "sim/after/waveform.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/pictures/png_file.h"
#include "sim/scenario/reference.h"

namespace live {

namespace {

using tcJson = nlohmann::ordered_json;

constexpr unsigned kBadRequest = 400;
constexpr unsigned kNotFound = 404;
constexpr unsigned kNotAllowed = 405;
constexpr unsigned kConflict = 409;
constexpr unsigned kTooLong = 413;
constexpr unsigned kWrongType = 415;

/// What is wrong with a request.
class tcWrong : public std::runtime_error {
public:
    tcWrong(unsigned status, const std::string& why) : std::runtime_error(why), m_status(status) {}
    [[nodiscard]] unsigned status() const { return m_status; }

private:
    unsigned m_status;
};

// A text that is not UTF-8 is still told, with its odd bytes replaced.
std::string dumped(const tcJson& json) {
    return json.dump(-1, ' ', false, tcJson::error_handler_t::replace);
}

tsReply reply(const tcJson& json) {
    return {200, "application/json", dumped(json) + "\n", {}};
}

std::uint64_t numberIn(const std::string& name, const std::string& text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc{} || end != text.data() + text.size()) {
        throw tcWrong(kBadRequest, name + " \"" + text +
                                       "\" is no number of an event; allowed is " +
                                       "a whole number from 0");
    }
    return value;
}

std::optional<std::uint64_t> numberOf(const tsRequest& request, const std::string& name) {
    const auto found = request.query.find(name);
    return found == request.query.end() ? std::nullopt
                                        : std::optional(numberIn(name, found->second));
}

tcJson eventJson(const tsShownEvent& event) {
    const std::size_t end = std::min(event.text.find(' '), event.text.size());
    std::string kind = event.text.substr(0, end);
    return {{"event", event.number},
            {"process", event.process},
            {"time_ns", event.timeNs},
            {"kind", kind},
            {"text", event.text}};
}

std::string lineOf(std::uint64_t timeNs, const std::string& text) {
    sim::tcText stamp;
    return std::string(stamp.stamp(timeNs).view()) + text;
}

// Flags of the head that have a wire each.
constexpr std::array<std::string_view, 9> kFlags{
    "VDD1.2-GOOD", "VDD3.3SVDD-GOOD", "VDD3.3AVDDH-GOOD", "SENSOR-AWAKE", "CORE-ENABLED",
    "PLL-LOCKED",  "PLL-RG-LOCKED",   "PLL-GB-LOCKED",    "ALIGNED"};

// The wires as they were before the first event of a piece, as lines of a trace.
std::vector<std::string> linesOf(const sim::tcHeadState& state, std::uint64_t timeNs) {
    std::vector<std::string> result;
    for (const auto& [name, line] : state.lines()) {
        if (line.level) {
            result.push_back(lineOf(timeNs, "GPIO " + name + (line.output ? " out " : " = ") +
                                                std::to_string(*line.level)));
        }
    }
    const auto addFlag = [&](std::string_view name) {
        if (state.flag(name)) {
            result.push_back(lineOf(timeNs, "STATE " + std::string(name) + " 1"));
        }
    };
    for (const std::string_view name : kFlags) {
        addFlag(name);
    }
    for (std::size_t lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        addFlag("LANE" + std::to_string(lane) + "-LOCK");
    }
    return result;
}

tcJson settingsJson(const std::string& text) {
    tcJson result = tcJson::object();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        constexpr std::string_view separator = ": ";
        const std::size_t at = line.find(separator);
        if (at != std::string::npos) {
            result[line.substr(0, at)] = line.substr(at + separator.size());
        }
    }
    return result;
}

tcJson bodyOf(const tsRequest& request) {
    if (request.body.size() > kLongestBody) {
        throw tcWrong(kTooLong, "the body has more than 16384 bytes");
    }
    if (request.contentType != "application/json") {
        throw tcWrong(kWrongType,
                      "the body is of type \"" + request.contentType + "\"; send application/json");
    }
    tcJson body = tcJson::parse(request.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        throw tcWrong(kBadRequest, "the body is no JSON object");
    }
    return body;
}

// \param allowed members, all of them texts
std::map<std::string, std::string> textsOf(const tcJson& body,
                                           const std::vector<std::string>& allowed) {
    std::map<std::string, std::string> texts;
    for (const auto& [name, value] : body.items()) {
        if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
            std::string why = "unknown member \"" + name + "\"; allowed are";
            const char* separator = " ";
            for (const std::string& one : allowed) {
                why.append(separator).append(one);
                separator = ", ";
            }
            throw tcWrong(kBadRequest, why);
        }
        if (!value.is_string()) {
            throw tcWrong(kBadRequest, "member \"" + name + "\" is no text");
        }
        texts[name] = value.get<std::string>();
    }
    return texts;
}

bool goodName(const std::string& name) {
    constexpr std::size_t longest = 64;
    return !name.empty() && name.size() <= longest && name.front() != ' ' && name.back() != ' ' &&
           std::all_of(name.begin(), name.end(), [](char one) {
               return (one >= 'a' && one <= 'z') || (one >= 'A' && one <= 'Z') ||
                      (one >= '0' && one <= '9') || one == ' ' || one == '-' || one == '_' ||
                      one == '.';
           });
}

bool oneLine(const std::string& text) {
    constexpr std::size_t longest = 500;
    return text.size() <= longest && std::all_of(text.begin(), text.end(), [](char one) {
               return static_cast<unsigned char>(one) >= ' ' && one != '\x7F';
           });
}

} // namespace

tsReply complaint(unsigned status, const std::string& why) {
    tsReply result = reply({{"error", why}});
    result.status = status;
    return result;
}

struct tcInterface::tsRoute {
    const char* method;
    std::string path; // with "*" at its end: the rest is a name
    std::vector<std::string> query;
    tsReply (tcInterface::*answer)(const tsRequest&);
};

const std::vector<tcInterface::tsRoute>& tcInterface::routes() {
    static const std::vector<tsRoute> all{
        {"GET", "/v1", {}, &tcInterface::about},
        {"GET", "/v1/state", {"at"}, &tcInterface::state},
        {"GET", "/v1/registers", {"at"}, &tcInterface::registers},
        {"GET", "/v1/events", {"from", "limit"}, &tcInterface::events},
        {"GET", "/v1/picture", {}, &tcInterface::picture},
        {"GET", "/v1/picture.png", {}, &tcInterface::picturePng},
        {"GET", "/v1/picture.raw", {}, &tcInterface::pictureRaw},
        {"GET", "/v1/waveform.svg", {"from", "to"}, &tcInterface::waveform},
        {"GET", "/v1/faults", {}, &tcInterface::faults},
        {"POST", "/v1/faults", {}, &tcInterface::makeFault},
        {"DELETE", "/v1/faults/*", {}, &tcInterface::endFault},
        {"GET", "/v1/scenario", {}, &tcInterface::scenario},
        {"GET", "/v1/rules", {}, &tcInterface::rules},
        {"POST", "/v1/look", {}, &tcInterface::look},
        {"GET", "/v1/time", {}, &tcInterface::time},
        {"POST", "/v1/time", {}, &tcInterface::setTime},
    };
    return all;
}

tcInterface::tcInterface(tsRunAbout about, tcTimeLine& timeLine, tcPrograms& programs,
                         tcFaultSession& faults, const sim::tcFrameWriter& pictures)
    : m_about(std::move(about)),
      m_timeLine(timeLine),
      m_programs(programs),
      m_faults(faults),
      m_pictures(pictures) {}

tsReply tcInterface::answer(const tsRequest& request) {
    std::string allowed;
    for (const tsRoute& route : routes()) {
        const bool named = route.path.back() == '*';
        const std::string start = route.path.substr(0, route.path.size() - (named ? 1 : 0));
        if (named ? !request.path.starts_with(start) || request.path == start
                  : request.path != start) {
            continue;
        }
        if (request.method != route.method) {
            allowed += std::string(allowed.empty() ? "" : ", ") + route.method;
            continue;
        }
        for (const auto& [name, value] : request.query) {
            if (std::find(route.query.begin(), route.query.end(), name) == route.query.end()) {
                return complaint(kBadRequest,
                                 "unknown parameter \"" + name + "\" of " + request.path);
            }
        }
        try {
            return (this->*route.answer)(request);
        } catch (const tcWrong& wrong) {
            return complaint(wrong.status(), wrong.what());
        } catch (const tcRefused& refused) {
            return complaint(kConflict, refused.what());
        }
    }
    if (!allowed.empty()) {
        tsReply result = complaint(kNotAllowed, request.method + " is not for " + request.path +
                                                    "; allowed is " + allowed);
        result.headers["Allow"] = allowed;
        return result;
    }
    return complaint(kNotFound, "there is no " + request.path + "; GET /v1 lists what there is");
}

void tcInterface::ended(int status) {
    const std::lock_guard lock(m_mutex);
    m_status = status;
}

tsReply tcInterface::about(const tsRequest& /*unused*/) {
    tcJson paths = tcJson::array();
    for (const tsRoute& route : routes()) {
        paths.push_back(std::string(route.method) + " " + route.path);
    }
    paths.push_back("GET /v1/stream");
    const tsProcess process = m_programs.process();
    const std::lock_guard lock(m_mutex);
    return reply({{"interface", kVersion},
                  {"virtual_head", m_about.version},
                  {"program", m_about.program},
                  {"scenario", m_about.scenario},
                  {"run", m_about.run},
                  {"status", m_status ? tcJson(*m_status) : tcJson(nullptr)},
                  {"process", process.number},
                  {"first_event", m_timeLine.first()},
                  {"next_event", m_timeLine.next()},
                  {"paths", paths}});
}

namespace {

tcJson processJson(const tsProcess& process) {
    if (process.number == 0) {
        return nullptr;
    }
    return {{"number", process.number},
            {"pid", process.id},
            {"time", process.realTime ? "real" : "virtual"},
            {"running", process.running},
            {"stopped", process.stopped},
            {"pictures", process.pictures}};
}

// The state that a request asks for.
sim::tcHeadState stateFor(const tsRequest& request, const tcTimeLine& timeLine) {
    const std::optional<std::uint64_t> at = numberOf(request, "at");
    if (!at) {
        return timeLine.state();
    }
    std::optional<sim::tcHeadState> state = timeLine.stateAt(*at);
    if (!state) {
        throw tcWrong(kNotFound, "event " + std::to_string(*at) + " is not kept; there are " +
                                     std::to_string(timeLine.first()) + " to " +
                                     std::to_string(timeLine.next()) + ", the last one left out");
    }
    return *std::move(state);
}

} // namespace

tsReply tcInterface::state(const tsRequest& request) {
    tcJson state = stateJson(stateFor(request, m_timeLine));
    state["process"] = processJson(m_programs.process());
    return reply(state);
}

tsReply tcInterface::registers(const tsRequest& request) {
    return reply(registersJson(stateFor(request, m_timeLine)));
}

tsReply tcInterface::events(const tsRequest& request) {
    const std::uint64_t from = numberOf(request, "from").value_or(m_timeLine.first());
    const std::uint64_t limit = numberOf(request, "limit").value_or(kMostEvents);
    if (limit == 0 || limit > kMostEvents) {
        throw tcWrong(kBadRequest, "limit " + std::to_string(limit) + "; allowed is 1 to 1000");
    }
    tcJson events = tcJson::array();
    std::uint64_t next = std::max(from, m_timeLine.first());
    for (const tsShownEvent& event : m_timeLine.events(from, static_cast<std::size_t>(limit))) {
        events.push_back(eventJson(event));
        next = event.number + 1;
    }
    return reply({{"events", events},
                  {"next", next},
                  {"first_event", m_timeLine.first()},
                  {"next_event", m_timeLine.next()}});
}

std::optional<tsReply> tcInterface::streamBegin(const tsRequest& request,
                                                std::uint64_t& from) const {
    for (const auto& [name, value] : request.query) {
        if (name != "from") {
            return complaint(kBadRequest, "unknown parameter \"" + name + "\" of " + request.path);
        }
    }
    try {
        from = numberOf(request, "from").value_or(m_timeLine.next());
    } catch (const tcWrong& wrong) {
        return complaint(wrong.status(), wrong.what());
    }
    return std::nullopt;
}

std::string tcInterface::streamed(std::uint64_t& from) const {
    constexpr std::size_t atOnce = 200;
    std::string text;
    const std::uint64_t first = m_timeLine.first();
    if (from < first) {
        text += "event: gap\ndata: " + dumped({{"from", from}, {"next", first}}) + "\n\n";
        from = first;
    }
    const std::vector<tsShownEvent> events = m_timeLine.events(from, atOnce);
    if (!events.empty()) {
        tcJson list = tcJson::array();
        for (const tsShownEvent& event : events) {
            list.push_back(eventJson(event));
        }
        from = events.back().number + 1;
        text += "id: " + std::to_string(from) + "\nevent: events\ndata: " + dumped(list) + "\n\n";
    }
    return text;
}

std::string tcInterface::farewell() const {
    const std::lock_guard lock(m_mutex);
    return m_status ? "event: end\ndata: " + dumped({{"status", *m_status}}) + "\n\n" : "";
}

tcInterface::tsPainted tcInterface::painted() {
    const tsProcess process = m_programs.process();
    const std::lock_guard lock(m_mutex);
    if (!m_painted || m_painted->process != process.number ||
        m_painted->pictures != process.pictures) {
        std::optional<sim::tsFrame> frame = m_pictures.picture(m_programs.frame());
        if (!frame) {
            throw tcWrong(kNotFound, "no picture was delivered yet; the program has to stream");
        }
        std::string png = sim::pngOf(*frame);
        m_painted = {process.number, process.pictures, *std::move(frame), std::move(png)};
    }
    return *m_painted;
}

tsReply tcInterface::picture(const tsRequest& /*unused*/) {
    const tsPainted now = painted();
    return reply({{"process", now.process},
                  {"pictures", now.pictures},
                  {"time_ns", now.frame.time.count()},
                  {"width", now.frame.width},
                  {"height", now.frame.height},
                  {"settings", settingsJson(now.frame.settings)}});
}

tsReply tcInterface::picturePng(const tsRequest& /*unused*/) {
    const tsPainted now = painted();
    return {200, "image/png", now.png, {{"X-Pictures", std::to_string(now.pictures)}}};
}

tsReply tcInterface::pictureRaw(const tsRequest& /*unused*/) {
    const tsPainted now = painted();
    std::string bytes;
    bytes.reserve(2 * now.frame.pixels.size());
    for (const std::uint16_t pixel : now.frame.pixels) {
        constexpr unsigned byte = 8;
        bytes.push_back(static_cast<char>(pixel & 0xFF));
        bytes.push_back(static_cast<char>(pixel >> byte));
    }
    return {200,
            "application/octet-stream",
            bytes,
            {{"X-Pictures", std::to_string(now.pictures)},
             {"X-Width", std::to_string(now.frame.width)},
             {"X-Height", std::to_string(now.frame.height)}}};
}

tsReply tcInterface::waveform(const tsRequest& request) {
    const std::uint64_t newest = m_timeLine.next();
    constexpr std::uint64_t usual = 200;
    const std::uint64_t from =
        numberOf(request, "from").value_or(newest > usual ? newest - usual : 0);
    const std::uint64_t to = numberOf(request, "to").value_or(newest);
    if (to < from || to - from > kMostDrawnEvents) {
        throw tcWrong(kBadRequest, "from " + std::to_string(from) + " to " + std::to_string(to) +
                                       "; allowed are up to 2000 events, in their order");
    }
    std::vector<std::string> lines;
    const auto events = m_timeLine.events(from, static_cast<std::size_t>(to - from));
    if (events.empty()) {
        throw tcWrong(kNotFound, "no event from " + std::to_string(from) + " to " +
                                     std::to_string(to) + " is kept");
    }
    // Of another head, the state says nothing of this one.
    const bool piece = from != 0 && m_timeLine.processAt(from - 1) == events.back().process;
    if (const auto before = piece ? m_timeLine.stateAt(from - 1) : std::nullopt) {
        lines = linesOf(*before, events.front().timeNs);
    }
    for (const tsShownEvent& event : events) {
        if (event.process == events.back().process && !event.text.starts_with("LOST ")) {
            lines.push_back(lineOf(event.timeNs, event.text));
        }
    }
    try {
        return {200,
                "image/svg+xml",
                sim::drawing(sim::waveform(sim::parseTrace(lines)),
                             piece ? sim::teDrawn::piece : sim::teDrawn::run),
                {}};
    } catch (const std::runtime_error& error) {
        throw tcWrong(kConflict, std::string("these events make no waveform: ") + error.what());
    }
}

tsReply tcInterface::faults(const tsRequest& /*unused*/) {
    const std::vector<std::string> lasting = m_timeLine.state().faults();
    tcJson made = tcJson::array();
    for (const tsMadeFault& one : m_faults.faults()) {
        made.push_back({{"name", one.fault.name},
                        {"what", one.fault.what},
                        {"at", one.fault.at},
                        {"after", one.fault.after},
                        {"for", one.fault.lasts},
                        {"until", one.fault.until}});
    }
    return reply({{"kinds", sim::faultKinds()}, {"made", made}, {"lasting", lasting}});
}

tsReply tcInterface::makeFault(const tsRequest& request) {
    std::map<std::string, std::string> texts =
        textsOf(bodyOf(request), {"name", "what", "at", "after", "for", "until"});
    for (const auto& [name, text] : texts) {
        if (!oneLine(text)) {
            throw tcWrong(kBadRequest, name +
                                           " has line breaks or control characters, or is longer "
                                           "than 500 bytes");
        }
    }
    if (!texts.contains("name")) {
        texts["name"] = m_faults.freeName();
    }
    const std::string name = texts["name"];
    if (!goodName(name)) {
        throw tcWrong(kBadRequest, "name \"" + name + "\"; allowed are up to 64 letters, digits, " +
                                       "blanks, points, hyphens and underlines");
    }
    if (m_faults.has(name)) {
        throw tcWrong(kConflict, "there is a fault \"" + name + "\" already; choose another name");
    }
    if (!sim::faultKindOf(texts["what"])) {
        throw tcWrong(kBadRequest, "what \"" + texts["what"] + "\" is no fault; GET /v1/faults " +
                                       "lists the kinds");
    }
    const sim::tsFault fault{name,           texts["what"], texts["at"],
                             texts["after"], texts["for"],  texts["until"]};
    const tsProcess process = m_programs.process();
    const tsMadeFault made{fault, process.running ? process.number : 0, m_timeLine.next()};
    m_programs.addFault(fault);
    m_faults.add(made);
    tsReply result = reply({{"name", name}});
    result.status = 201;
    return result;
}

tsReply tcInterface::endFault(const tsRequest& request) {
    const std::string name = request.path.substr(std::string("/v1/faults/").size());
    if (!oneLine(name)) {
        throw tcWrong(kNotFound, "there is no fault of that name");
    }
    m_programs.endFault(name);
    return reply({{"name", name}});
}

tsReply tcInterface::scenario(const tsRequest& /*unused*/) {
    return {200, "text/plain; charset=utf-8", m_faults.scenario(), {}};
}

tsReply tcInterface::rules(const tsRequest& /*unused*/) {
    tcJson list = tcJson::array();
    for (const sim::tsRule& rule : sim::rules()) {
        list.push_back({{"name", rule.name},
                        {"rule", rule.what},
                        {"reason", rule.why},
                        {"remedy", rule.remedy}});
    }
    return reply(list);
}

tsReply tcInterface::look(const tsRequest& request) {
    if (!request.body.empty()) {
        throw tcWrong(kBadRequest, "POST /v1/look has no body");
    }
    m_programs.look();
    return reply({{"next_event", m_timeLine.next()}});
}

tsReply tcInterface::time(const tsRequest& /*unused*/) {
    tcJson now = processJson(m_programs.process());
    if (now.is_null()) {
        now = tcJson::object();
    }
    now["time_ns"] = m_timeLine.state().timeNs();
    return reply(now);
}

tsReply tcInterface::setTime(const tsRequest& request) {
    const std::map<std::string, std::string> texts = textsOf(bodyOf(request), {"action"});
    const auto action = texts.find("action");
    if (action == texts.end() ||
        (action->second != "stop" && action->second != "step" && action->second != "go")) {
        throw tcWrong(kBadRequest, "member \"action\"; allowed are stop, step and go");
    }
    if (action->second == "stop") {
        m_programs.stop();
    } else if (action->second == "step") {
        m_programs.step();
    } else {
        m_programs.go();
    }
    return time(request);
}

} // namespace live
