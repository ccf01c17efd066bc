#include "apps/camhost/diagnose.h"

#include <exception>

#include "apps/camhost/bring_up.h"
#include "apps/camhost/diagnosis_json.h"
#include "apps/camhost/diagnosis_tree.h"
#include "apps/camhost/examination.h"
#include "apps/camhost/judgement.h"

namespace camhost {

namespace {

tsSubject subjectOf(const tsOrigin& origin, const failures::tcFailureTable* table) {
    tsSubject subject;
    subject.plugin = origin.plugin;
    subject.spi = origin.spi;
    subject.table = table;
    if (table == nullptr)
        subject.noFacts =
            origin.noTable.empty() ? "its board has no table of failures" : origin.noTable;
    else if (!table->head())
        subject.noFacts = "the table beside the plug-in has no section \"head\"";
    return subject;
}

tsSubject subjectOf(const tcHead& head) {
    tsSubject subject = subjectOf(head.origin(), head.failures());
    subject.hasBoard = true;
    subject.isUp = head.isUp();
    subject.complaints = head.builtComplaints();
    return subject;
}

tsShown shown(const tsDiagnosis& diagnosis, const failures::tcFailureTable* table, bool colour) {
    const tsJudgement judgement = judge(diagnosis, table);
    return {treeOf(diagnosis, judgement, colour), diagnosisFacts(diagnosis, judgement),
            judgement.status, judgement.says};
}

/// A head of which something is wrong already is not switched on for that.
/// \return whether it may be brought up
bool mayBringUp(tsDiagnosis& diagnosis, const failures::tcFailureTable* table) {
    diagnosis.power = true;
    const teExit status = judge(diagnosis, table).status;
    if (status == teExit::eSuccess || status == teExit::eNoFacts)
        return true;
    diagnosis.notBroughtUp = "not switched on, because of what is wrong already; \"init\" tries "
                             "all the same";
    return false;
}

/// \param wasOn an initialization that failed had left the head on, perhaps
/// \return how the head is left
std::string switchOff(tcHead& head, bool wasOn) {
    try {
        head.rebuild();
        return wasOn ? "the head is off: its board was made anew; a failed \"init\" may have left "
                       "it on before"
                     : "the head is off again: its board was made anew, as at each start";
    } catch (const std::exception& exception) {
        return std::string("the head may still be ON: its board could not be made anew, which "
                           "would have switched it off: ") +
               exception.what();
    }
}

} // namespace

tsShown diagnoseSession(const tcHead& head, bool colour) {
    const tsSubject subject = subjectOf(head);
    return shown(examine(subject), subject.table, colour);
}

tsShown diagnoseWithPower(tcHead& head, bool colour) {
    const tsSubject subject = subjectOf(head);
    tsDiagnosis diagnosis = examine(subject);
    if (!mayBringUp(diagnosis, subject.table))
        return shown(diagnosis, subject.table, colour);
    const bool mayBeOn = head.mayBeOn();
    diagnosis.broughtUp = bringUp(head);
    diagnosis.broughtUp->left =
        subject.isUp
            ? "the head stays on, as it was found; what was set in this session is gone, the "
              "board's own settings hold"
            : switchOff(head, mayBeOn);
    return shown(diagnosis, subject.table, colour);
}

tsShown diagnoseFromStart(const tsOrigin& origin, const failures::tcFailureTable* table, bool power,
                          bool colour, const std::function<std::unique_ptr<tcHead>()>& makeHead) {
    const tsSubject subject = subjectOf(origin, table);
    if (!power)
        return shown(examine(subject), table, colour);
    // Before there is a board: what others hold shows, and what the board says of it does not.
    tsDiagnosis diagnosis = examine(subject);
    if (!mayBringUp(diagnosis, table))
        return shown(diagnosis, table, colour);
    const std::unique_ptr<tcHead> head = makeHead();
    diagnosis.broughtUp = bringUp(*head);
    diagnosis.broughtUp->left = switchOff(*head, false);
    return shown(diagnosis, table, colour);
}

} // namespace camhost
