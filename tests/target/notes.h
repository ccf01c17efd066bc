/// \file
/// What random calls leave in the head's log, in order with what the hardware saw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/virtual_head.h"
#include "tests/target/chance.h"

/// \return the text on one line: a line end as \n, other characters that are not ASCII as \xNN
std::string oneLine(std::string_view text);

std::string hexadecimal(std::uint32_t value);

/// Makes calls with arguments by chance, one after the other, and notes each: its name, its
/// arguments, its result. One choice a statement: the order within one is the compiler's affair.
class tcRandomCalls {
public:
    tcRandomCalls(tcChance& chance, sim::tcVirtualHead& head) : m_chance(chance), m_head(head) {}
    tcRandomCalls(const tcRandomCalls&) = delete;
    tcRandomCalls& operator=(const tcRandomCalls&) = delete;

    tcChance& chance() { return m_chance; }
    sim::tcVirtualHead& head() { return m_head; }

    /// Notes an argument. \return the argument
    template<class Number>
    Number told(Number value) {
        tell(std::to_string(value));
        return value;
    }
    void tell(std::string_view text) { m_arguments.append(" ").append(text); }
    int upTo(int most) { return told(m_chance.upTo(most)); }
    int around(int most) { return told(m_chance.around(most)); }
    bool flag() { return upTo(1) != 0; }

protected:
    ~tcRandomCalls() = default;

    /// Notes a call that was made, with the arguments told since the one before.
    void note(std::string_view name, const std::string& result) {
        m_head.note(std::string(name) + m_arguments + " -> " + result);
        m_arguments.clear();
    }

private:
    tcChance& m_chance;
    sim::tcVirtualHead& m_head;
    std::string m_arguments;
};

/// Standard output in another base for as long as it lives. Notes which, and in the end in which
/// base and with which other flags it was found.
class tcOtherBase {
public:
    /// \param number 0 hexadecimal, 1 octal, else nothing is changed
    tcOtherBase(int number, sim::tcVirtualHead& head);
    ~tcOtherBase();
    tcOtherBase(const tcOtherBase&) = delete;
    tcOtherBase& operator=(const tcOtherBase&) = delete;

private:
    sim::tcVirtualHead& m_head;
    bool m_other;
};

/// Calls of one kind of object: `Self` has a table `kOperations` of them.
template<class Self>
class tcRandomLife : public tcRandomCalls {
public:
    using tcRandomCalls::tcRandomCalls;

    /// Makes one call, on a standard output that somebody left in another base by chance.
    void step() {
        const auto last = static_cast<int>(Self::kOperations.size()) - 1;
        const tsOperation& chosen =
            Self::kOperations[static_cast<std::size_t>(chance().upTo(last))];
        const tcOtherBase base(chance().upTo(7), head());
        note(chosen.name, chosen.call(static_cast<Self&>(*this)));
    }

protected:
    ~tcRandomLife() = default;

    struct tsOperation {
        const char* name;
        std::string (*call)(Self& self); ///< \return the text of its result
    };
    using tcOperations = std::vector<tsOperation>;
};
