// Every row of docs/diagnostics.md happens: the shipped plug-in in camhost on the virtual head.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/virtual_head.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;
using tcLines = std::vector<std::string>;

const std::string kSource = HEAD_SOURCE_DIRECTORY;

struct tsRow {
    std::size_t line = 0; // of the page
    std::string commands; // "init; start"
    std::string result;   // "-2", "signal 11"
    tcLines output;       // of standard output
    tcLines errors;       // all of standard error
    tcLines fault;        // "what = ...", or one name of a file
};

// What stands between the backquotes of a cell. "\t" is a tab.
tcLines codeOf(const std::string& cell) {
    static const std::regex span("`([^`]*)`");
    tcLines result;
    for (std::sregex_iterator at(cell.begin(), cell.end(), span), end; at != end; ++at) {
        result.push_back(std::regex_replace((*at)[1].str(), std::regex(R"(\\t)"), "\t"));
    }
    return result;
}

tcLines cellsOf(const std::string& line) {
    tcLines cells;
    std::size_t from = line.find('|') + 1;
    for (std::size_t to = line.find('|', from); to != std::string::npos;
         to = line.find('|', from)) {
        cells.push_back(line.substr(from, to - from));
        from = to + 1;
    }
    return cells;
}

std::vector<tsRow> readPage() {
    std::ifstream page(kSource + "/docs/diagnostics.md");
    std::vector<tsRow> rows;
    std::size_t number = 0;
    for (std::string line; std::getline(page, line);) {
        ++number;
        if (!line.starts_with("| `")) {
            continue;
        }
        const tcLines cells = cellsOf(line);
        EXPECT_EQ(cells.size(), 6U) << "line " << number;
        if (cells.size() != 6) {
            continue;
        }
        const std::string result = cells[0].substr(cells[0].rfind("`: ") + 3);
        rows.push_back({number, codeOf(cells[0])[0],
                        result.substr(0, result.find_last_not_of(' ') + 1), codeOf(cells[1]),
                        codeOf(cells[2]), codeOf(cells[5])});
    }
    return rows;
}

bool isFile(const tsRow& row) {
    return row.fault.size() == 1 && row.fault[0].ends_with(".ini");
}

// The scenario of a row, out of its file or in the words of the row.
std::string scenarioOf(const tsRow& row) {
    if (isFile(row)) {
        return contentOf(kSource + "/data/scenarios/" + row.fault[0]);
    }
    std::string text = "[Fault row]\n";
    for (const std::string& line : row.fault) {
        text += line + "\n";
    }
    return text;
}

// The head complains with lines of its own, camhost with the last one.
tcLines productErrors(const tcLines& lines) {
    tcLines result;
    bool head = false;
    for (const std::string& line : lines) {
        head = line.starts_with("virtual head: ") || (head && line.starts_with("  "));
        const bool others = line.starts_with("camhost: command line: ") ||
                            line.starts_with("qemu: "); // the emulator's word on a fatal signal
        if (!head && !others) {
            result.push_back(line);
        }
    }
    return result;
}

// Error lines and what the row has; lines that repeat count once.
tcLines tellingLines(const tcLines& lines, const tcLines& wanted) {
    tcLines result;
    for (const std::string& line : lines) {
        const bool told = line.find("[4] ") != std::string::npos ||
                          std::find(wanted.begin(), wanted.end(), line) != wanted.end();
        if (told && (result.empty() || result.back() != line)) {
            result.push_back(line);
        }
    }
    return result;
}

std::string resultOf(const tcLines& errors, int status) {
    static const std::regex failed(R"(camhost: command line: .* failed, result (-?[0-9]+): .*)");
    std::smatch match;
    if (!errors.empty() && std::regex_match(errors.back(), match, failed)) {
        return match[1];
    }
    constexpr int killed = 128;
    constexpr int ruleBroken = 9; // the launcher's, of a program that ended well
    return status > killed                       ? "signal " + std::to_string(status - killed)
           : status == 0 || status == ruleBroken ? "0"
                                                 : "status " + std::to_string(status);
}

std::string commandLine(const tsRow& row, const std::filesystem::path& folder) {
    std::string arguments;
    std::istringstream commands(row.commands);
    for (std::string command; std::getline(commands, command, ';');) {
        arguments += " -c '" + command.substr(command.find_first_not_of(' ')) + "'";
    }
    // A sanitizer shall not take the signal that ends a process.
    return "ASAN_OPTIONS=handle_segv=0:$ASAN_OPTIONS TSAN_OPTIONS=handle_segv=0:$TSAN_OPTIONS " +
           std::string(HEAD_LAUNCHER) + " --workdir " + kSource + "/data --scenario " +
           (folder / "scenario.ini").string() + " --summary " + (folder / "summary").string() +
           " -- " + camhostCommand(arguments) + " 2>" + (folder / "errors").string() + " >" +
           (folder / "output").string();
}

TEST(Diagnostics, EveryRowHappens) {
    const tcTemporaryDirectory directory;
    const std::filesystem::path& folder = directory.path();
    const std::vector<tsRow> rows = readPage();
    EXPECT_GT(rows.size(), 80U);
    for (const tsRow& row : rows) {
        SCOPED_TRACE("docs/diagnostics.md:" + std::to_string(row.line));
        std::ofstream(folder / "scenario.ini") << scenarioOf(row);
        const int status = runCommand("(" + commandLine(row, folder) + ")").status;
        const tcLines errors = linesOf(contentOf(folder / "errors"));
        EXPECT_EQ(resultOf(errors, status), row.result);
        EXPECT_THAT(productErrors(errors), ElementsAreArray(row.errors));
        EXPECT_THAT(tellingLines(linesOf(contentOf(folder / "output")), row.output),
                    ElementsAreArray(row.output));
        const std::string summary = contentOf(folder / "summary");
        EXPECT_NE(summary, "");
        EXPECT_EQ(summary.find("never struck"), std::string::npos) << summary;
    }
}

// The faults of the page, those of its files included.
tcLines faultsOfThePage() {
    tcLines faults;
    for (const tsRow& row : readPage()) {
        for (const std::string& line : linesOf(scenarioOf(row))) {
            if (line.starts_with("what")) {
                faults.push_back(line.substr(line.find('=') + 2));
            }
        }
    }
    return faults;
}

TEST(Diagnostics, EveryKindOfFaultHasARow) {
    const std::vector<std::string> kinds = sim::faultKinds();
    std::set<std::size_t> missing;
    for (std::size_t kind = 0; kind < kinds.size(); ++kind) {
        missing.insert(kind);
    }
    for (const std::string& fault : faultsOfThePage()) {
        const std::optional<std::size_t> kind = sim::faultKindOf(fault);
        ASSERT_TRUE(kind) << fault;
        missing.erase(*kind);
    }
    std::vector<std::string> names;
    for (const std::size_t kind : missing) {
        names.push_back(kinds[kind]);
    }
    EXPECT_THAT(names, IsEmpty());
}

TEST(Diagnostics, EveryVariantOfAFaultHasARow) {
    const tcLines faults = faultsOfThePage();
    for (const char* variant : {"PLL never",
                                "PLL late",
                                "PLL lost",
                                "locked never",
                                "locked lost",
                                "rgLocked never",
                                "rgLocked lost",
                                "gbLocked never",
                                "gbLocked lost",
                                "lanes 0 7 never",
                                "lanes all never",
                                "lanes 11 late",
                                "lanes 3 7 lost",
                                "alignment never",
                                "alignment late",
                                "alignment lost",
                                "polarity",
                                "rail VDD1.2 1.05",
                                "rail VDD1.2 1.35",
                                "rail VDD3.3AVDDH 3.1",
                                "rail VDD3.3AVDDH 3.5",
                                "rail VDD3.3SVDD 3.1",
                                "rail VDD3.3SVDD 3.5",
                                "rail VDD1.2 droops",
                                "rail VDD3.3AVDDH unreadable",
                                "ADC fails ENXIO",
                                "ADC fails ETIMEDOUT",
                                "ADC short",
                                "ADC floats",
                                "I2C missing",
                                "line PS_1.2V_EN missing",
                                "line PS_3.3SVDD_EN missing",
                                "line PS_3.3AVDDH_EN missing",
                                "line RESET_B missing",
                                "line EXT_TRIG_EN missing",
                                "line RESET_B busy",
                                "GPIO missing",
                                "SPI missing",
                                "SPI settings refused",
                                "SPI fails EIO",
                                "SPI short",
                                "memory fails",
                                "block base unmappable",
                                "block clock unmappable",
                                "block frame-control unmappable",
                                "block pwm unmappable",
                                "block pixel-shift unmappable",
                                "block bad-pixel unmappable",
                                "block bad-pixel-table unmappable",
                                "block bad-pixel-take-over unmappable",
                                "block frame-control silent",
                                "block pwm silent",
                                "block pixel-shift silent",
                                "block bad-pixel silent",
                                "block clock stuck",
                                "block pwm stuck",
                                "word"}) {
        EXPECT_TRUE(std::any_of(faults.begin(), faults.end(), [&](const std::string& fault) {
            return fault.starts_with(variant);
        })) << variant;
    }
}

} // namespace
