#include "sim/recordings/number_calls.h"

#include <algorithm>
#include <cstring>

namespace sim::calls {

namespace {

std::uint64_t numberIn(const void* argument, std::uint8_t size) {
    switch (size) {
    case 0: {
        std::uintptr_t number = 0;
        std::memcpy(&number, &argument, sizeof number);
        return number;
    }
    case 1:
        return copied<std::uint8_t>(argument);
    case 4:
        return copied<std::uint32_t>(argument);
    default:
        return copied<std::uint64_t>(argument);
    }
}

} // namespace

const tsNumberCall* numberCall(std::span<const tsNumberCall> calls, std::uint32_t request) {
    const auto found = std::find_if(calls.begin(), calls.end(), [&](const tsNumberCall& one) {
        return one.request == request;
    });
    return found == calls.end() ? nullptr : &*found;
}

std::string numberAsked(const tsNumberCall& call, const void* argument) {
    return std::string(call.name) +
           (call.handedOver ? " " + hex(numberIn(argument, call.size)) : "");
}

std::string numberGot(const tsNumberCall& call, const void* argument) {
    return call.gotBack ? hex(numberIn(argument, call.size)) : "";
}

void playNumber(const tsNumberCall& call, tcWords& words, void* argument) {
    if (!call.gotBack) {
        return;
    }
    switch (call.size) {
    case 1:
        return give(argument, words.number<std::uint8_t>());
    case 4:
        return give(argument, words.number<std::uint32_t>());
    default:
        return give(argument, words.number());
    }
}

} // namespace sim::calls
