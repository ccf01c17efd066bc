/// \file
/// What a reply tells, for programs.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <varnox/roi.h>

namespace camhost {

struct tsFact;

/// A value that a reply tells: null, a truth value, a number, a text, a list, or an object whose
/// members keep their order. `jsonText` writes it. The library that reads and writes JSON is not
/// needed here: it would be most of what a command costs the compiler.
class tcFacts {
public:
    /// Null, which becomes a list or an object with the first value that is put in.
    tcFacts();
    tcFacts(std::nullptr_t);
    tcFacts(bool value);
    tcFacts(int value);
    tcFacts(unsigned value);
    tcFacts(long value);
    tcFacts(unsigned long value);
    tcFacts(long long value);
    tcFacts(unsigned long long value);
    tcFacts(double value);
    tcFacts(const char* text);
    tcFacts(std::string_view text);
    tcFacts(const std::string& text);
    /// An object. A name that is there twice has its last value.
    tcFacts(std::initializer_list<tsFact> members);
    /// A list.
    template<class Value>
    tcFacts(const std::vector<Value>& values) : tcFacts(list()) {
        for (const auto& value : values)
            push_back(value);
    }
    /// An object.
    template<class Value>
    tcFacts(const std::map<std::string, Value>& members) : tcFacts(object()) {
        for (const auto& [name, value] : members)
            (*this)[name] = value;
    }
    /// Any other pointer would be taken for a truth value.
    tcFacts(const void*) = delete;
    tcFacts(const tcFacts& other);
    tcFacts(tcFacts&& other) noexcept; ///< leaves null
    tcFacts& operator=(const tcFacts& other);
    tcFacts& operator=(tcFacts&& other) noexcept; ///< leaves null
    ~tcFacts();

    /// \return an empty list
    [[nodiscard]] static tcFacts list();
    /// \return an empty object
    [[nodiscard]] static tcFacts object();

    /// Puts a value at the end of a list.
    /// \throws std::logic_error where this is neither null nor a list
    void push_back(tcFacts value);
    /// \return the member of an object; null, at the end of the object, where it was not there
    /// \throws std::logic_error where this is neither null nor an object
    tcFacts& operator[](std::string_view name);

    /// \return the number of values of a list or members of an object; 0 for all else
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] bool empty() const { return size() == 0; }
    /// \return an object's members in their order; none for all else
    [[nodiscard]] const std::vector<tsFact>& members() const;

private:
    friend std::string jsonText(const tcFacts& facts);
    struct tsValue;

    explicit tcFacts(tsValue value);

    std::unique_ptr<tsValue> m_value; // empty: null
};

/// A member of an object.
struct tsFact {
    std::string name;
    tcFacts value;
};

/// \return facts on one line, without a newline; bytes that are no UTF-8 are replaced
[[nodiscard]] std::string jsonText(const tcFacts& facts);

/// \return y, x, width, height
[[nodiscard]] tcFacts rectangleFacts(const Varnox::ROI& roi);

} // namespace camhost
