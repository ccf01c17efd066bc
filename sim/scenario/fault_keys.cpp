#include "sim/scenario/fault_keys.h"

#include <array>

#include "sim/scenario/fault_kinds.h"
#include "sim/scenario/fault_moment.h"
#include "sim/scenario/scenario_text.h"

namespace sim {

namespace {

constexpr const char* kTimeForm = "milliseconds since the head was built, for example `450`";
constexpr const char* kEventForm =
    "`N EVENT`, or `EVENT` for the first one: the words with which a line of the log begins, for "
    "example `3 GPIO RESET_B = 1`";
constexpr const char* kLengthForm = "milliseconds, more than 0";

constexpr std::array kFaultKeys{
    tsFaultKey{"what", &tsFault::what, "one of the table below", "What goes wrong.",
               [](const std::string& value) { return faultSaid(value).kind != nullptr; }},
    tsFaultKey{"at", &tsFault::at, kTimeForm, "The fault begins then.",
               [](const std::string& value) { return timeFrom(value).has_value(); }},
    tsFaultKey{"after", &tsFault::after, kEventForm,
               "The fault begins with that event, counted since the head was built. Neither `at` "
               "nor `after`: from the start.",
               [](const std::string& value) { return eventFrom(value).has_value(); }},
    tsFaultKey{"for", &tsFault::lasts, kLengthForm, "The fault ends after that time.",
               [](const std::string& value) { return text::milliseconds(value).value_or(0) > 0; }},
    tsFaultKey{"until", &tsFault::until, "a time as for `at`, or an event as for `after`",
               "The fault ends then; events are counted since it began. Neither `for` nor "
               "`until`: never.",
               [](const std::string& value) { return timeOrEvent(value).has_value(); }},
};

std::string knownKeys() {
    std::string result;
    for (const tsFaultKey& key : kFaultKeys) {
        result += (result.empty() ? "" : ", ") + std::string(key.name);
    }
    return result;
}

} // namespace

std::span<const tsFaultKey> faultKeys() {
    return kFaultKeys;
}

std::string allowedFaults() {
    std::string result;
    for (const tsFaultKind* kind : allFaultKinds()) {
        result += (result.empty() ? "" : "; ") + std::string(kind->form);
    }
    return result;
}

std::optional<tsFaultError> setFaultText(tsFault& fault, const std::string& key,
                                         const std::string& value) {
    for (const tsFaultKey& known : kFaultKeys) {
        if (key != known.name) {
            continue;
        }
        std::string& text = fault.*known.text;
        if (!text.empty()) {
            return tsFaultError{key, value, "allowed is " + key + " once"};
        }
        if (!known.understood(value)) {
            return tsFaultError{key, value,
                                "allowed is " + (key == "what" ? allowedFaults() : known.values)};
        }
        text = value;
        return std::nullopt;
    }
    return tsFaultError{key, "", "unknown key; allowed are " + knownKeys()};
}

} // namespace sim
