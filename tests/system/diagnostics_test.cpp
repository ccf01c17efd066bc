// Every example of the table of failures happens: the shipped plug-in in camhost on the virtual
// head.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;
using tcLines = std::vector<std::string>;

const std::string kSource = HEAD_SOURCE_DIRECTORY;

struct tsRow {
    std::string name;     // section and number
    std::string commands; // "init; start"
    std::string result;   // "-2", "signal 11", "status 21"
    std::string says;     // what camhost says below the result, or its verdict; may be empty
    std::string failure;  // the entry that it comes from; empty where nothing failed
    tcLines output;       // of standard output
    tcLines errors;       // all of standard error
    tcLines fault;        // "what = ...", or one name of a file
};

nlohmann::json readTable() {
    std::ifstream file(kSource + "/plugin/sensor_board_3u5mgxs.failures.json");
    return nlohmann::json::parse(file);
}

tsRow rowOf(const nlohmann::json& example) {
    std::string commands;
    for (const auto& command : example.at("commands")) {
        commands += (commands.empty() ? "" : "; ") + command.get<std::string>();
    }
    return {.name = {},
            .commands = commands,
            .result = example.contains("signal")   ? "signal " + example.at("signal").dump()
                      : example.contains("status") ? "status " + example.at("status").dump()
                                                   : example.at("result").dump(),
            .says = example.value("says", ""),
            .failure = example.value("failure", ""),
            .output = example.at("output").get<tcLines>(),
            .errors = example.at("errors").get<tcLines>(),
            .fault = example.contains("scenario")
                         ? tcLines{example.at("scenario").get<std::string>()}
                         : example.at("fault").get<tcLines>()};
}

std::vector<tsRow> readRows() {
    std::vector<tsRow> rows;
    const nlohmann::json table = readTable();
    for (const auto& section : table.at("sections")) {
        std::size_t number = 0;
        for (const auto& example : section.at("examples")) {
            rows.push_back(rowOf(example));
            rows.back().name =
                section.at("title").get<std::string>() + ", " + std::to_string(++number);
        }
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
    std::string text = row.fault.front().starts_with('[') ? "" : "[Fault row]\n";
    for (const std::string& line : row.fault) {
        text += line + "\n";
    }
    return text;
}

// The head complains with lines of its own, camhost with the last ones.
tcLines productErrors(const tcLines& lines) {
    tcLines result;
    bool head = false;
    for (const std::string& line : lines) {
        const bool programs =
            line.starts_with("virtual head: ") || line.starts_with("camhost: command line: ");
        head = programs || (head && line.starts_with("  "));
        const bool emulator = line.starts_with("qemu: "); // its word on a fatal signal
        if (!head && !emulator) {
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

// camhost's last lines: what failed, and below it what that means.
tcLines lastWords(const tcLines& errors) {
    const auto last = std::find_if(errors.rbegin(), errors.rend(), [](const std::string& line) {
        return line.starts_with("camhost: command line: ");
    });
    return last == errors.rend() ? tcLines{} : tcLines(last.base() - 1, errors.end());
}

std::string resultOf(const tcLines& errors, int status) {
    static const std::regex failed(R"(camhost: command line: .* failed, result (-?[0-9]+): .*)");
    std::smatch match;
    const tcLines words = lastWords(errors);
    if (!words.empty() && std::regex_match(words.front(), match, failed)) {
        return match[1];
    }
    constexpr int killed = 128;
    constexpr int ruleBroken = 9; // the launcher's, of a program that ended well
    return status > killed                       ? "signal " + std::to_string(status - killed)
           : status == 0 || status == ruleBroken ? "0"
                                                 : "status " + std::to_string(status);
}

// A diagnosis is asked for by an option, and ends with its verdict on standard output.
bool isDiagnosis(const tsRow& row) {
    return row.commands.starts_with("--");
}

std::string argumentsOf(const tsRow& row) {
    if (isDiagnosis(row)) {
        return " " + row.commands;
    }
    std::string arguments;
    std::istringstream commands(row.commands);
    for (std::string command; std::getline(commands, command, ';');) {
        arguments += " -c '" + command.substr(command.find_first_not_of(' ')) + "'";
    }
    return arguments;
}

std::string commandLine(const tsRow& row, const std::filesystem::path& folder) {
    // A sanitizer shall not take the signal that ends a process.
    return "ASAN_OPTIONS=handle_segv=0:$ASAN_OPTIONS TSAN_OPTIONS=handle_segv=0:$TSAN_OPTIONS " +
           std::string(HEAD_LAUNCHER) + " --workdir " + kSource + "/data --scenario " +
           (folder / "scenario.ini").string() + " --summary " + (folder / "summary").string() +
           " -- " + camhostCommand(argumentsOf(row)) + " 2>" + (folder / "errors").string() + " >" +
           (folder / "output").string();
}

// The verdict with its causes, in the form of camhost's last words.
tcLines verdictWords(const tcLines& output) {
    static const std::regex verdict(R"(`-- verdict: (.*) \(exit status [0-9]+\))");
    static const std::regex cause(R"( *[|`]-- likely( 1)?: (.*))");
    static const std::regex measure(R"([ |]*`-- measure: (.*))");
    tcLines words;
    for (const std::string& line : output) {
        std::smatch match;
        if (words.empty() && std::regex_match(line, match, verdict)) {
            words = {"diagnose", "  " + match[1].str()};
        } else if (words.size() == 2 && std::regex_match(line, match, cause)) {
            words.push_back("  likely: " + match[2].str());
        } else if (words.size() == 3 && std::regex_match(line, match, measure)) {
            words.push_back("  measure: " + match[1].str());
        }
    }
    return words;
}

// Whoever runs the program has a name of his own.
std::string withUser(std::string text) {
    const passwd* const user = getpwuid(geteuid());
    const std::string name = user != nullptr ? user->pw_name : std::to_string(geteuid());
    if (const auto place = text.find("USER"); place != text.npos) {
        text.replace(place, 4, name);
    }
    return text;
}

TEST(Diagnostics, EveryRowHappens) {
    const tcTemporaryDirectory directory;
    const std::filesystem::path& folder = directory.path();
    // A scenario finds the files that it names beside itself.
    std::filesystem::copy(kSource + "/data/scenarios", folder);
    const std::vector<tsRow> rows = readRows();
    EXPECT_GT(rows.size(), 80U);
    for (const tsRow& row : rows) {
        SCOPED_TRACE(row.name);
        std::ofstream(folder / "scenario.ini") << scenarioOf(row);
        const int status = runCommand("(" + commandLine(row, folder) + ")").status;
        const tcLines errors = linesOf(contentOf(folder / "errors"));
        EXPECT_EQ(resultOf(errors, status), row.result);
        EXPECT_THAT(productErrors(errors), ElementsAreArray(row.errors));
        const tcLines output = linesOf(contentOf(folder / "output"));
        const tcLines words = isDiagnosis(row) ? verdictWords(output) : lastWords(errors);
        if (row.says.empty()) {
            EXPECT_LE(words.size(), 1U) << words.back();
        } else if (words.size() != 4) {
            ADD_FAILURE() << "camhost does not say what it means";
        } else {
            EXPECT_EQ(words[1], "  " + withUser(row.says));
            EXPECT_TRUE(words[2].starts_with("  likely: ")) << words[2];
            EXPECT_TRUE(words[3].starts_with("  measure: ")) << words[3];
        }
        EXPECT_THAT(tellingLines(output, row.output), ElementsAreArray(row.output));
        const std::string summary = contentOf(folder / "summary");
        EXPECT_NE(summary, "");
        EXPECT_EQ(summary.find("never struck"), std::string::npos) << summary;
    }
}

// What a program says depends on the entry; the page quotes the same one.
TEST(Diagnostics, EveryFailureHasARowAndEveryRowAFailure) {
    std::set<std::string> failures;
    const nlohmann::json table = readTable();
    for (const auto& failure : table.at("failures")) {
        failures.insert(failure.at("name").get<std::string>());
    }
    // Limits of a head of one's own: in tests/apps/failure_table_test.cpp. What no head can be made
    // to have by a scenario: in tests/system/diagnose_test.cpp and tests/apps/judgement_test.cpp.
    // What no program notices, but the launcher: in tests/system/report_test.cpp.
    for (const char* other :
         {"supply", "seen-device-permission", "seen-device-kind", "seen-settings-missing",
          "seen-settings-line", "seen-settings-empty", "seen-interval", "no-frame-starts",
          "pipeline-held", "pll-lost", "lanes-lost"}) {
        EXPECT_EQ(failures.erase(other), 1U) << other;
    }
    for (const tsRow& row : readRows()) {
        const bool failed = row.result != "0" && !row.result.starts_with("signal");
        EXPECT_EQ(!row.failure.empty(), failed) << row.name;
        EXPECT_EQ(!row.says.empty(), failed) << row.name;
        failures.erase(row.failure);
    }
    EXPECT_THAT(failures, IsEmpty());
}

// The faults of the table, those of its files included.
tcLines faultsOfTheTable() {
    tcLines faults;
    for (const tsRow& row : readRows()) {
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
    for (const std::string& fault : faultsOfTheTable()) {
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
    const tcLines faults = faultsOfTheTable();
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
