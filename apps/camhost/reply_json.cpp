#include "apps/camhost/reply_json.h"

#include <map>
#include <string_view>

namespace camhost {

namespace {

tmFacts linesOf(std::string_view text) {
    tmFacts lines = tmFacts::array();
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        lines.push_back(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

} // namespace

std::string jsonText(const std::string& command, const tsReply& reply,
                     const std::vector<std::string>& lines) {
    tmFacts object = {
        {"command", command}, {"ok", reply.ok()}, {"status", static_cast<int>(reply.status)}};
    object[reply.ok() ? "reply" : "error"] = linesOf(reply.text);
    if (!lines.empty())
        object["lines"] = lines;
    // By name: which fact a command told first is no matter of the program's.
    const auto facts = reply.facts.get<std::map<std::string, tmFacts>>();
    for (const auto& [name, value] : facts)
        object[name] = value;
    return object.dump(-1, ' ', false, tmFacts::error_handler_t::replace);
}

tmFacts explanationFacts(const failures::tsExplanation& explanation) {
    tmFacts causes = tmFacts::array();
    for (const failures::tsCause& cause : explanation.causes)
        causes.push_back({{"cause", cause.cause}, {"measure", cause.measure}});
    return {{"failure", explanation.name},
            {"stage", explanation.stage},
            {"what", explanation.what},
            {"causes", causes}};
}

} // namespace camhost
