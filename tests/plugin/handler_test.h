/// \file
/// What the tests of handlers share: the end of their chain, and how they are called.
#pragma once

#include <cstdint>
#include <string>

#include <varnox/abstract_handler.h>
#include <varnox/observer.h>

/// Answers what reaches the end of the chain.
class tcLast : public Varnox::tcAbstractHandler {
public:
    tcLast() : tcAbstractHandler(nullptr, nullptr) {}
    std::string execute(std::string& command, std::string& arguments) override {
        return "last: '" + command + "' '" + arguments + "'";
    }
    int forward(int event) override { return event + 1; }
};

/// \return the handler's answer to a command
inline std::string ask(Varnox::tcAbstractHandler& handler, std::string command,
                       std::string arguments = "") {
    return handler.execute(command, arguments);
}

/// Hands an update straight to an observer. \return the update, marked or not
inline Varnox::tsUpdate sendUpdate(Varnox::tcObserver& observer, std::uint32_t address,
                                   std::uint32_t value, int kind) {
    Varnox::tsUpdate update{kind, address, value, false, 0};
    observer.update(update);
    return update;
}
