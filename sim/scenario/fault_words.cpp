#include "sim/scenario/fault_words.h"

#include "sim/base/calls.h"
#include "sim/base/error_names.h"
#include "sim/scenario/scenario_text.h"

namespace sim::faultWords {

bool are(tcWords words, std::initializer_list<std::string_view> expected) {
    return std::equal(words.begin(), words.end(), expected.begin(), expected.end());
}

tcNumbers nothingMore(bool good) {
    return good ? tcNumbers(tsFaultNumbers{}) : std::nullopt;
}

tcNumbers transferError(tcWords words) {
    tsFaultNumbers numbers;
    if (are(words, {"short"})) {
        numbers.error = kShort;
        return numbers;
    }
    numbers.error = words.size() == 2 && words[0] == "fails" ? errorNamed(words[1]) : 0;
    return numbers.error == 0 ? std::nullopt : tcNumbers(numbers);
}

tcNumbers lockBehaviour(tcWords words) {
    tsFaultNumbers numbers;
    if (are(words, {"never"})) {
        numbers.timeNs = tsLinkFacts::kForEver;
        return numbers;
    }
    if (are(words, {"lost"})) {
        numbers.value = kLost;
        return numbers;
    }
    if (words.size() != 2 || words[0] != "late") {
        return std::nullopt;
    }
    const std::optional<std::uint64_t> time = text::milliseconds(words[1]);
    numbers.timeNs = time.value_or(0);
    return time ? tcNumbers(numbers) : std::nullopt;
}

} // namespace sim::faultWords
