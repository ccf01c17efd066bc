#include "apps/camhost/reply_json.h"

#include <algorithm>
#include <string_view>

namespace camhost {

namespace {

tcFacts linesOf(std::string_view text) {
    tcFacts lines = tcFacts::list();
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
    tcFacts object = {
        {"command", command}, {"ok", reply.ok()}, {"status", static_cast<int>(reply.status)}};
    object[reply.ok() ? "reply" : "error"] = linesOf(reply.text);
    if (!lines.empty())
        object["shown"] = lines;
    // By name: which fact a command told first is no matter of the program's.
    std::vector<tsFact> facts = reply.facts.members();
    std::sort(facts.begin(), facts.end(),
              [](const tsFact& one, const tsFact& other) { return one.name < other.name; });
    for (const auto& [name, value] : facts)
        object[name] = value;
    return jsonText(object);
}

tcFacts explanationFacts(const failures::tsExplanation& explanation) {
    tcFacts causes = tcFacts::list();
    for (const failures::tsCause& cause : explanation.causes)
        causes.push_back({{"cause", cause.cause}, {"measure", cause.measure}});
    return {{"failure", explanation.name},
            {"stage", explanation.stage},
            {"what", explanation.what},
            {"causes", causes}};
}

} // namespace camhost
