/// \file
/// What the fuzz targets share.
#pragma once

#include <cstdint>
#include <iostream>
#include <span>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/// Reports a broken promise of the code under test and ends the process, which saves the input.
[[noreturn]] void fail(std::string_view what, std::string_view expected, std::string_view actual);

/// Fails unless both are the same.
void requireEqual(std::string_view what, std::string_view expected, std::string_view actual);

/// Fails unless the promise holds.
void require(bool holds, std::string_view what);

/// \return the input as text
std::string text(std::span<const std::uint8_t> input);

/// Sends the process's standard output nowhere. Standard error stays: failures are told there.
void silenceStandardOutput();

/// A file in memory, for code that takes a file's name.
class tcMemoryFile {
public:
    tcMemoryFile();
    tcMemoryFile(const tcMemoryFile&) = delete;
    tcMemoryFile& operator=(const tcMemoryFile&) = delete;
    ~tcMemoryFile();

    /// \return the name that opens it
    [[nodiscard]] const std::string& path() const { return m_path; }

    /// Replaces what is in it.
    void write(std::string_view text) const;

private:
    int m_descriptor;
    std::string m_path;
};

/// A folder of the process's own that is its working directory until it ends.
/// \return its path
const std::string& enterScratchFolder();

/// Writes a file of the working directory.
void writeFile(const char* name, std::string_view text);

/// Collects what goes to the standard error stream, as long as it lives.
class tcErrorCollector : private std::streambuf {
public:
    tcErrorCollector() : m_before(std::cerr.rdbuf(this)) {}
    tcErrorCollector(const tcErrorCollector&) = delete;
    tcErrorCollector& operator=(const tcErrorCollector&) = delete;
    /// The stream is flushed once more when the process ends.
    ~tcErrorCollector() override { std::cerr.rdbuf(m_before); }

    [[nodiscard]] const std::string& collected() const { return m_text; }
    void clear() { m_text.clear(); }

private:
    int_type overflow(int_type character) override {
        if (!traits_type::eq_int_type(character, traits_type::eof()))
            m_text += traits_type::to_char_type(character);
        return traits_type::not_eof(character);
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        m_text.append(text, static_cast<std::size_t>(count));
        return count;
    }

    std::streambuf* m_before;
    std::string m_text;
};

} // namespace fuzz
