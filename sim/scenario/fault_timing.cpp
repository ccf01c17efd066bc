#include "sim/scenario/fault_timing.h"

#include <algorithm>

#include "sim/base/fault.h"
#include "sim/base/text.h"

namespace sim {

tcFaults::tcFaults(tcJournal& journal, const tsConditions& healthy,
                   const std::vector<tsPlannedFault>& planned)
    : m_journal(journal), m_healthy(healthy), m_now(healthy) {
    for (const tsPlannedFault& plan : planned) {
        tsRunning& fault = m_faults.emplace_back(tsRunning{.planned = plan});
        if (plan.from.event.empty()) {
            fixBegin(fault, plan.from.timeNs.value_or(0));
        }
    }
}

bool tcFaults::add(tcRoom& room) {
    if (room.m_faults.capacity() <= m_faults.size()) {
        return false;
    }
    for (tsRunning& fault : m_faults) {
        room.m_faults.push_back(std::move(fault));
    }
    tsRunning& fault = room.m_faults.emplace_back(std::move(room.m_fault));
    if (fault.planned.from.event.empty()) {
        fixBegin(fault, std::max(fault.planned.from.timeNs.value_or(0), m_journal.clock.now()));
    }
    m_faults.swap(room.m_faults);
    return true;
}

bool tcFaults::end(std::string_view name) {
    bool any = false;
    for (tsRunning& fault : m_faults) {
        if (fault.planned.name == name && fault.stage != teStage::over) {
            any = true;
            if (fault.stage == teStage::lasting) {
                fault.endsNs = m_journal.clock.now();
            } else {
                fault.stage = teStage::over;
                fault.beginsNs.reset();
            }
        }
    }
    return any;
}

// With its begin the end of a fault is known too, unless it waits for an event. A fault whose end
// came before its begin ends when it begins.
void tcFaults::fixBegin(tsRunning& fault, std::uint64_t timeNs) {
    fault.beginsNs = timeNs;
    fault.events = 0;
    if (fault.planned.lengthNs) {
        fault.endsNs = timeNs + *fault.planned.lengthNs;
    } else if (fault.planned.until.timeNs) {
        fault.endsNs = std::max(timeNs, *fault.planned.until.timeNs);
    }
}

std::optional<std::uint64_t> tcFaults::nextNs() const {
    std::optional<std::uint64_t> next;
    for (const tsRunning& fault : m_faults) {
        const std::optional<std::uint64_t>& due =
            fault.stage == teStage::waiting ? fault.beginsNs : fault.endsNs;
        if (fault.stage != teStage::over && due && (!next || *due < *next)) {
            next = due;
        }
    }
    return next;
}

bool tcFaults::change() {
    const std::uint64_t now = m_journal.clock.now();
    bool any = false;
    for (tsRunning& fault : m_faults) {
        if (fault.stage == teStage::lasting && fault.endsNs && *fault.endsNs <= now) {
            fault.stage = teStage::over;
            fault.endsNs = now;
            tell(fault, " ends");
            any = true;
        }
    }
    for (tsRunning& fault : m_faults) {
        if (fault.stage == teStage::waiting && fault.beginsNs && *fault.beginsNs <= now) {
            fault.stage = teStage::lasting;
            fault.beginsNs = now;
            tell(fault, " begins");
            any = true;
        }
    }
    if (any) {
        apply();
    }
    return any;
}

void tcFaults::tellWhatNeverStruck() {
    for (const tsRunning& fault : m_faults) {
        if (!m_over && fault.stage == teStage::waiting) {
            tell(fault, " never struck");
        }
    }
    m_over = true;
}

void tcFaults::tell(const tsRunning& fault, const char* what) {
    tcText text;
    text.add("fault ").add(fault.planned.name).add(what);
    m_journal.event(teLine::note, 0, 0, 0, text.view());
}

void tcFaults::apply() {
    m_now = m_healthy;
    for (const tsRunning& fault : m_faults) {
        if (fault.stage == teStage::lasting) {
            fault.planned.kind->apply(fault.planned.numbers, *fault.beginsNs, m_now);
        }
    }
}

void tcFaults::sees(const tsLogEvent& event) {
    for (tsRunning& fault : m_faults) {
        if (fault.stage == teStage::over) {
            continue;
        }
        if (!fault.beginsNs) {
            seesForBegin(fault, event);
        } else if (!fault.endsNs && *fault.beginsNs <= event.timeNs) {
            seesForEnd(fault, event);
        }
    }
}

void tcFaults::seesForBegin(tsRunning& fault, const tsLogEvent& event) {
    if (beginsWith(event, fault.planned.from.event) && ++fault.events == fault.planned.from.nth) {
        fixBegin(fault, event.timeNs);
    }
}

void tcFaults::seesForEnd(tsRunning& fault, const tsLogEvent& event) {
    const tsMoment& until = fault.planned.until;
    if (!until.event.empty() && beginsWith(event, until.event) && ++fault.events == until.nth) {
        fault.endsNs = event.timeNs;
    }
}

std::vector<tsFaultRecord> tcFaults::records() const {
    std::vector<tsFaultRecord> result;
    for (const tsRunning& fault : m_faults) {
        tsFaultRecord record{fault.planned.name, {}, {}};
        if (fault.stage != teStage::waiting && fault.beginsNs) {
            record.began = std::chrono::nanoseconds(*fault.beginsNs);
        }
        if (fault.stage == teStage::over && fault.endsNs) {
            record.ended = std::chrono::nanoseconds(*fault.endsNs);
        }
        result.push_back(record);
    }
    return result;
}

} // namespace sim
