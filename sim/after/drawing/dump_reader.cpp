#include "sim/after/drawing/dump_reader.h"

#include <cmath>
#include <cstddef>
#include <map>
#include <sstream>
#include <stdexcept>

#include "sim/base/timed_text.h"

namespace sim {

namespace {

[[noreturn]] void fail(std::size_t line, const std::string& what) {
    throw std::runtime_error("line " + std::to_string(line) + ": " + what);
}

class tcDumpReader {
public:
    tsDump read(std::string_view text) {
        std::istringstream stream{std::string(text)};
        for (std::string line; std::getline(stream, line);) {
            ++m_line;
            take(line);
        }
        if (m_dump.signals.empty()) {
            fail(m_line, "the dump has no variables");
        }
        m_dump.endNs = m_timeNs;
        return m_dump;
    }

private:
    void take(const std::string& line) {
        std::istringstream stream(line);
        std::vector<std::string> words;
        for (std::string word; stream >> word;) {
            words.push_back(word);
        }
        if (words.empty()) {
            return;
        }
        if (words.front() == "$var") {
            define(words);
        } else if (words.front() == "$timescale" && line != "$timescale 1 ns $end") {
            fail(m_line, "only a scale of 1 ns can be drawn");
        } else if (words.front().front() == '#') {
            advance(words.front().substr(1));
        } else if (words.front().front() == 'r' && words.size() == 2) {
            change(words[1], number(words.front().substr(1)));
        } else if (words.front().front() != '$') {
            change(words.front().substr(1), bit(words.front().front()));
        }
    }

    void define(const std::vector<std::string>& words) {
        if (words.size() != 6 || (words[1] != "wire" && words[1] != "real") ||
            (words[1] == "wire" && words[2] != "1")) {
            fail(m_line, "only scalar wires and real variables can be drawn");
        }
        m_byCode[words[3]] = m_dump.signals.size();
        m_dump.signals.push_back({words[4], words[1] == "real", {}});
    }

    void advance(const std::string& text) {
        std::uint64_t timeNs = 0;
        try {
            timeNs = numberFrom(text, 10);
        } catch (const std::runtime_error&) {
            fail(m_line, "the time is not a number");
        }
        if (timeNs < m_timeNs) {
            fail(m_line, "time goes back");
        }
        m_timeNs = timeNs;
    }

    double number(const std::string& text) const {
        std::istringstream stream(text);
        double value = 0;
        if (!(stream >> value) || !stream.eof()) {
            fail(m_line, "\"" + text + "\" is not a number");
        }
        return value;
    }

    double bit(char value) const {
        if (value == '0' || value == '1') {
            return value - '0';
        }
        if (value != 'x' && value != 'z') {
            fail(m_line, "a wire is 0, 1, x or z");
        }
        return std::nan("");
    }

    void change(const std::string& code, double value) {
        const auto found = m_byCode.find(code);
        if (found == m_byCode.end()) {
            fail(m_line, "no variable has the code \"" + code + "\"");
        }
        m_dump.signals[found->second].changes.emplace_back(m_timeNs, value);
    }

    tsDump m_dump;
    std::map<std::string, std::size_t> m_byCode;
    std::uint64_t m_timeNs = 0;
    std::size_t m_line = 0;
};

} // namespace

tsDump readDump(std::string_view text) {
    return tcDumpReader().read(text);
}

} // namespace sim
