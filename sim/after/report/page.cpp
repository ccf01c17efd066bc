#include "sim/after/report/page.h"

#include <array>
#include <cstdio>
#include <string_view>

#include "sim/after/markup.h"

namespace sim::page {

namespace {

std::size_t occurrences(std::string_view text, std::string_view what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string_view::npos;
         at = text.find(what, at + what.size())) {
        ++count;
    }
    return count;
}

} // namespace

std::string milliseconds(std::uint64_t ns) {
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%llu.%03llu ms",
                                     static_cast<unsigned long long>(ns / 1'000'000),
                                     static_cast<unsigned long long>(ns / 1'000 % 1'000));
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string hex(std::uint32_t value, int digits) {
    std::array<char, 16> text{};
    const int length = std::snprintf(text.data(), text.size(), "0x%0*X", digits, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string fixed(double value, int digits) {
    std::array<char, 40> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string row(const std::vector<std::string>& cells, const char* look) {
    std::string result = "<tr" + std::string(look) + ">";
    for (const std::string& cell : cells) {
        result += "<td>" + escapedMarkup(cell) + "</td>";
    }
    return result + "</tr>\n";
}

std::string table(const char* id, const std::vector<std::string>& heads, const std::string& rows) {
    constexpr std::size_t screen = 30; // rows
    std::string result = "<table id=\"" + std::string(id) + "\">\n<tr>";
    for (const std::string& head : heads) {
        result += "<th>" + head + "</th>";
    }
    result += "</tr>\n" + rows + "</table>\n";
    const std::size_t count = occurrences(rows, "<tr");
    if (count <= screen) {
        return result;
    }
    const std::size_t bad = occurrences(rows, kBad);
    return "<details><summary>" + std::to_string(count) + " rows" +
           (bad == 0 ? "" : ", " + std::to_string(bad) + " of them in red") + "</summary>\n" +
           result + "</details>\n";
}

} // namespace sim::page
