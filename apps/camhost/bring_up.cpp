#include "apps/camhost/bring_up.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <exception>

#include <ini.h>
#include <strings.h>

namespace camhost {

namespace {

// ---- Link

constexpr int kHexadecimal = 16;

enum class tePhase { ePll, eLanes, eAlignment };

/// Takes the lines of a training one by one: flags, then masks of the lanes, then flags again.
class tcLinkReader {
public:
    tcLinkReader(const failures::tsLinkFact& fact, unsigned lanes) : m_fact(fact), m_lanes(lanes) {}

    /// \return whether there may be more of the training
    bool take(const tsHeard& line) {
        if (m_fact.end.fits(line.text))
            return false;
        if (const auto lanes = m_fact.lanes.in(line.text))
            takeLanes(lanes->front(), line.at);
        else if (const auto flags = m_fact.status.in(line.text))
            takeFlags(*flags, line.at);
        return true;
    }

    [[nodiscard]] const tsLink& link() const { return m_link; }

private:
    using tTime = std::chrono::steady_clock::time_point;

    void takeLanes(const std::string& mask, tTime at) {
        enter(tePhase::eLanes);
        std::uint32_t bits = 0;
        std::from_chars(mask.data(), mask.data() + mask.size(), bits, kHexadecimal);
        m_link.locked = bits;
        constexpr unsigned widest = 32; // a table has 1 to 32 lanes
        const std::uint32_t all = ~std::uint32_t{0} >> (widest - m_lanes);
        look(m_link.lanes, at, (bits & all) == all);
    }

    void takeFlags(const std::vector<std::string>& told, tTime at) {
        m_link.flags.clear();
        bool locked = true;
        bool aligned = false;
        for (std::size_t flag = 0; flag < m_fact.flags.size(); ++flag) {
            const bool set = told[flag] == "1";
            if (m_fact.flags[flag] == m_fact.aligned) {
                aligned = set;
                continue;
            }
            m_link.flags.emplace_back(m_fact.flags[flag], set);
            locked = locked && set;
        }
        if (m_phase == tePhase::ePll) {
            look(m_link.pll, at, locked);
            return;
        }
        enter(tePhase::eAlignment);
        m_link.aligned = aligned;
        look(m_link.alignment, at, aligned);
    }

    void enter(tePhase phase) {
        if (m_phase != phase)
            m_looks = 0;
        m_phase = phase;
    }

    void look(tsWait& wait, tTime at, bool reached) {
        if (m_looks == 0)
            m_since = at;
        wait.reached = reached;
        wait.tries = m_looks++;
        wait.time = std::chrono::round<std::chrono::milliseconds>(at - m_since);
    }

    const failures::tsLinkFact& m_fact;
    unsigned m_lanes;
    tsLink m_link;
    tePhase m_phase = tePhase::ePll;
    unsigned m_looks = 0; // in this phase
    tTime m_since;
};

// ---- Limits of the head's own

struct tsLimitsFile {
    const failures::tsLimitsFact& fact;
    std::map<std::string, failures::tsLimits>& limits;
    std::vector<std::string> taken; // of a key that is there twice the first one counts
};

extern "C" int onLimit(void* user, const char* section, const char* name, const char* value) {
    auto& file = *static_cast<tsLimitsFile*>(user);
    const bool least = ::strcasecmp(section, file.fact.least.c_str()) == 0;
    if (!least && ::strcasecmp(section, file.fact.most.c_str()) != 0)
        return 1;
    const auto supply =
        std::find_if(file.limits.begin(), file.limits.end(), [&](const auto& entry) {
            return ::strcasecmp(entry.first.c_str(), name) == 0;
        });
    char* end = nullptr;
    const double volts = std::strtod(value, &end);
    const std::string key = (least ? "least " : "most ") + std::string(name);
    if (supply == file.limits.end() || end == value ||
        std::find(file.taken.begin(), file.taken.end(), key) != file.taken.end())
        return 1;
    file.taken.push_back(key);
    (least ? supply->second.least : supply->second.most) = volts;
    return 1;
}

// ---- What holds then

std::vector<tsSupply> suppliesOf(tcHead& head) {
    std::vector<tsSupply> supplies;
    std::map<std::string, failures::tsLimits> limits;
    if (head.failures() != nullptr)
        limits = limitsInForce(*head.failures());
    for (const auto& [name, volts] : head.talk().supplies()) {
        const auto limit = limits.find(name);
        supplies.push_back(
            {name, volts, limit != limits.end() ? std::optional(limit->second) : std::nullopt});
    }
    return supplies;
}

} // namespace

tsLink linkIn(const std::vector<tsHeard>& lines, const failures::tsLinkFact& fact, unsigned lanes) {
    tcLinkReader reader(fact, lanes);
    for (const tsHeard& line : lines) {
        if (!reader.take(line))
            break;
    }
    return reader.link();
}

std::map<std::string, failures::tsLimits> limitsInForce(const failures::tcFailureTable& table) {
    std::map<std::string, failures::tsLimits> limits = table.supplies();
    if (table.head() && table.head()->limits) {
        tsLimitsFile file{*table.head()->limits, limits, {}};
        ::ini_parse(file.fact.file.c_str(), onLimit, &file); // a missing file limits nothing
    }
    return limits;
}

tsBringUp bringUp(tcHead& head) {
    tsBringUp found;
    head.beginCommand();
    head.talk().forgetSupplies();
    try {
        found.result = head.initialize();
    } catch (const std::exception& exception) {
        found.thrown = exception.what();
    }
    found.lines = head.builtWith();
    const std::vector<std::string> now = head.lines();
    found.lines.insert(found.lines.end(), now.begin(), now.end());
    found.complaints = head.complaints();
    found.supplies = suppliesOf(head);
    const failures::tcFailureTable* const table = head.failures();
    if (table != nullptr && table->head() && table->head()->link)
        found.link = linkIn(head.talk().heard(), *table->head()->link, table->lanes());
    if (found.result == 0 && found.thrown.empty())
        found.timing = {head.board().getExposure(), head.board().getFrameInterval(),
                        head.board().getMinFrameIntervalMicroS()};
    return found;
}

} // namespace camhost
