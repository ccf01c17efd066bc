// The table of what the board takes, tried on the board entry by entry.

#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

const std::string kRoot = HEAD_SOURCE_DIRECTORY;
constexpr int kNotSupported = 7;

class SettingsTable : public testing::Test {
protected:
    SettingsTable() {
        std::ifstream file(kRoot + "/plugin/sensor_board_3u5mgxs.settings.json");
        table = nlohmann::json::parse(file);
        // Settings are saved here, not in the sources.
        std::filesystem::copy(kRoot + "/data", m_folder.path(),
                              std::filesystem::copy_options::recursive);
    }

    // The board's answers to these lines, after `init`.
    std::vector<nlohmann::json> answers(const std::vector<std::string>& lines) {
        std::ofstream(m_folder.path() / "lines") << "init\n" << joined(lines);
        const std::string folder = m_folder.path().string();
        const tsOutcome run =
            runOnHead("--summary /dev/null",
                      camhostCommand("--json --keep-going --board-output /dev/null --workdir " +
                                     folder + " " + folder + "/lines 2>/dev/null"));
        std::vector<nlohmann::json> replies;
        for (const std::string& line : linesOf(run.output)) {
            if (line.starts_with("{"))
                replies.push_back(nlohmann::json::parse(line));
        }
        EXPECT_EQ(replies.size(), lines.size() + 1) << run.output;
        if (!replies.empty())
            replies.erase(replies.begin());
        return replies;
    }

    static std::string joined(const std::vector<std::string>& lines) {
        std::string text;
        for (const std::string& line : lines)
            text += line + "\n";
        return text;
    }

    // Each line is taken or refused as it is expected to be.
    void expectTaken(const std::vector<std::pair<std::string, bool>>& expected) {
        std::vector<std::string> lines;
        for (const auto& [line, taken] : expected)
            lines.push_back(line);
        const auto replies = answers(lines);
        ASSERT_EQ(replies.size(), expected.size());
        for (std::size_t n = 0; n < expected.size(); ++n)
            EXPECT_EQ(isTaken(replies[n]), expected[n].second) << replies[n];
    }

    // After a refused region the board may raise the frame interval, and answers the result of
    // that: what is applied tells.
    static bool isTaken(const nlohmann::json& reply) {
        const bool told = reply.contains("applied") && !reply.at("applied").is_null();
        return reply.at("ok").get<bool>() && (!told || reply.at("applied") == reply.at("asked"));
    }

    nlohmann::json table;

private:
    tcTemporaryDirectory m_folder;
};

// The command with its arguments at their least, but for one.
std::string lineWith(const std::string& command, const nlohmann::json& arguments,
                     std::size_t changed, std::int64_t value) {
    std::string line = command;
    for (std::size_t n = 0; n < arguments.size(); ++n)
        line += " " +
                std::to_string(n == changed ? value : arguments[n].at("least").get<std::int64_t>());
    return line;
}

TEST_F(SettingsTable, RangesAreThoseOfTheBoard) {
    std::vector<std::pair<std::string, bool>> expected;
    for (const auto& [command, entry] : table.at("takes").items()) {
        if (!entry.contains("arguments"))
            continue;
        const auto& arguments = entry.at("arguments");
        for (std::size_t n = 0; n < arguments.size(); ++n) {
            const auto least = arguments[n].at("least").get<std::int64_t>();
            const auto most = arguments[n].at("most").get<std::int64_t>();
            const auto step = arguments[n].at("step").get<std::int64_t>();
            const auto with = [&, &name = command](std::int64_t value) {
                return lineWith(name, arguments, n, value);
            };
            expected.emplace_back(with(least), true);
            expected.emplace_back(with(least + step), true);
            expected.emplace_back(with(most), true);
            expected.emplace_back(with(least - step), false);
            expected.emplace_back(with(most + step), false);
            if (step > 1) {
                expected.emplace_back(with(least + 1), false);
                expected.emplace_back(with(least + step / 2), false);
            }
        }
    }
    EXPECT_EQ(expected.size(), 4U * 7 + 2U * 5);
    expectTaken(expected);
}

TEST_F(SettingsTable, NamedValuesAreThoseOfTheBoard) {
    const std::map<std::string, std::vector<std::string>> all = {
        {"trigger", {"free", "external", "2"}},
        {"clock", {"0", "1", "2", "3"}},
        {"bpp", {"8bit", "10bit", "12bit", "16bit", "7"}},
        {"pattern", {"off", "default", "sensor1", "sensor2", "4"}},
        {"vbin", {"1", "2", "3"}}};
    std::vector<std::pair<std::string, bool>> expected;
    std::set<std::string> named;
    for (const auto& [command, entry] : table.at("takes").items()) {
        if (!entry.contains("values"))
            continue;
        named.insert(command);
        const auto taken = entry.at("values").get<std::set<std::string>>();
        for (const std::string& value : all.at(command))
            expected.emplace_back(command + " " + value, taken.contains(value));
    }
    EXPECT_THAT(named, testing::ElementsAre("bpp", "clock", "pattern", "trigger", "vbin"));
    expectTaken(expected);
}

TEST_F(SettingsTable, WhatIsNotSupportedIsWhatTheBoardAnswersSo) {
    // Every command as its help shows it.
    const auto help = answers({"help"}).at(0);
    std::vector<std::string> lines;
    for (const auto& command : help.at("commands")) {
        for (const auto& example : command.at("examples")) {
            const auto line = example.get<std::string>();
            if (line != "quit" && line != "exit")
                lines.push_back(line);
        }
    }
    lines.push_back("strobe 5"); // its example asks only
    std::set<std::string> found;
    for (const auto& reply : answers(lines)) {
        const auto command = reply.at("command").get<std::string>();
        if (reply.value("result", 0) == kNotSupported)
            found.insert(command.substr(0, command.find(' ')));
    }
    EXPECT_EQ(found, table.at("not_supported").get<std::set<std::string>>());
}

TEST_F(SettingsTable, WhatIsToldOnlyIsToldAndNotChanged) {
    std::vector<std::string> lines;
    for (const auto& name : table.at("reads_only")) {
        lines.push_back(name.get<std::string>());
        lines.push_back(name.get<std::string>() + " 1");
    }
    const auto replies = answers(lines);
    ASSERT_EQ(replies.size(), 4U);
    for (std::size_t n = 0; n < replies.size(); n += 2) {
        EXPECT_EQ(replies[n].at("ok"), true) << replies[n];
        EXPECT_EQ(replies[n + 1].at("result"), kNotSupported) << replies[n + 1];
    }
}

// The numbers in its sentences.
TEST_F(SettingsTable, NotesTellTheTruth) {
    const auto replies =
        answers({"exposure 1", "interval 100799", "interval 900", "interval 899", "interval 100000",
                 "clock 0", "exposure 1", "vbin 0", "vbin -7", "vbin 2", "roi 0 0 2592 1028",
                 "roi 2 0 2592 2056", "roi 0 24 2592 2056", "roi 2 24 2568 2054"});
    ASSERT_EQ(replies.size(), 14U);
    EXPECT_EQ(replies[0].at("applied"), 25);
    EXPECT_EQ(replies[1].at("applied"), 99900);
    EXPECT_EQ(replies[2].at("applied"), 900);
    EXPECT_EQ(replies[3].at("result"), 3);
    EXPECT_EQ(replies[3].at("value"), 0);
    EXPECT_EQ(replies[6].at("applied"), 37);
    for (const unsigned taken : {7U, 8U, 9U, 10U, 13U})
        EXPECT_EQ(replies[taken].at("ok"), true) << replies[taken];
    for (const unsigned refused : {11U, 12U})
        EXPECT_EQ(replies[refused].at("result"), 3) << replies[refused];
}

TEST_F(SettingsTable, TheDeviceIsTheOneOfTheExampleHead) {
    EXPECT_EQ(table.at("device"), "/dev/spidev1.0");
    const tsOutcome run = runOnHead("--summary /dev/null", std::string(HEAD_CAMHOST) +
                                                               " --plugin " HEAD_PLUGIN
                                                               " -c init --board-output /dev/null");
    EXPECT_EQ(run.output, "init: result 0: success\n");
    EXPECT_EQ(run.status, 0);
}

} // namespace
