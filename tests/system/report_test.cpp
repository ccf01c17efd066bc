// The page about a run, read by a browser.

#include <fstream>
#include <gmock/gmock.h>
#include <regex>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// Rows of a table, cells separated by "|", as the browser has them after it has rendered the page.
std::vector<std::string> rowsOf(const std::string& page, const std::string& id) {
    const std::size_t start = page.find("<table id=\"" + id + "\">");
    if (start == std::string::npos) {
        return {};
    }
    const std::string text = page.substr(start, page.find("</table>", start) - start);
    std::vector<std::string> rows;
    const std::regex cells("<td>(.*?)</td>");
    for (const std::string& line : linesOf(text)) {
        std::string row;
        for (auto cell = std::sregex_iterator(line.begin(), line.end(), cells);
             cell != std::sregex_iterator(); ++cell) {
            row += (row.empty() ? "" : "|") + (*cell)[1].str();
        }
        if (!row.empty()) {
            rows.push_back(row);
        }
    }
    return rows;
}

class RunReport : public testing::Test {
protected:
    std::string make(const std::string& options, const std::string& commands) {
        runOnHead("--report " + m_page.string() + " --log " + m_log.string() + " " + options,
                  camhostCommand(commands));
        return contentOf(m_page);
    }
    // Standard output is the page, standard error what the browser has to say about it.
    std::string rendered() {
        return runCommand("chromium --headless --no-sandbox --disable-gpu "
                          "--disable-background-networking --disable-component-update "
                          "--disable-sync --no-first-run --proxy-server=127.0.0.1:9 "
                          "--user-data-dir=" +
                          (m_folder.path() / "browser").string() + " --dump-dom file://" +
                          m_page.string())
            .output;
    }
    tcTemporaryDirectory m_folder;
    std::filesystem::path m_page = m_folder.path() / "run.html";
    std::filesystem::path m_log = m_folder.path() / "log";
};

TEST_F(RunReport, IsShownByABrowserAndSaysWhatTheLogSays) {
    const std::string page = make("", "-c init");
    EXPECT_THAT(page, Not(HasSubstr("http")));
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    const std::string shown = rendered();
    EXPECT_THAT(shown, Not(HasSubstr("CONSOLE")));
    EXPECT_THAT(rowsOf(shown, "delays"),
                ElementsAre("1.2 V to 3.3 V SVDD|1.000 ms|1.000 ms|kept",
                            "1.2 V to 3.3 V AVDDH|1.000 ms|1.000 ms|kept",
                            "3.3 V SVDD to end of reset|300.001 ms|300.000 ms|kept",
                            "3.3 V AVDDH to end of reset|300.001 ms|300.000 ms|kept",
                            "end of reset to first measurement|10.180 ms|10.000 ms|kept",
                            "end of reset to first register write|16.800 ms|10.000 ms|kept"));
    EXPECT_THAT(shown, HasSubstr("<p id=\"violations\">none</p>"));
    std::size_t writes = 0;
    for (const std::string& line : linesOf(contentOf(m_log))) {
        const bool isWrite =
            line.find("] SPI ") != std::string::npos || line.find("] WRITE ") != std::string::npos;
        writes += isWrite ? 1U : 0U;
    }
    EXPECT_GT(writes, 100U);
    EXPECT_EQ(rowsOf(shown, "writes").size(), writes);
}

TEST_F(RunReport, NamesTheLaneThatDidNotLock) {
    const std::string scenarios = std::string(HEAD_SOURCE_DIRECTORY) + "/data/scenarios/";
    const std::string page = make("--scenario " + scenarios + "dead-lane.ini", "-c init");
    EXPECT_THAT(page, HasSubstr(": lanes that did not lock: 3</h3>"));
    const std::vector<std::string> rows = rowsOf(page, "attempt1");
    EXPECT_THAT(rows, testing::Contains("lane 2|4.000 ms"));
    EXPECT_THAT(rows, testing::IsSupersetOf({"PLL locked|3.000 ms", "aligned|never"}));
    EXPECT_THAT(page, HasSubstr("<tr class=\"bad\"><td>lane 3</td><td>never</td></tr>"));
}

TEST_F(RunReport, NamesTheFaultsThatStruckAndThoseThatDidNot) {
    const tcTemporaryDirectory folder;
    const std::string scenario = (folder.path() / "faults.ini").string();
    std::ofstream(scenario) << "[Fault brief]\nwhat = ADC floats\nat = 1\nfor = 2\n"
                               "[Fault typo]\nwhat = ADC floats\nafter = GPIO RESTE_B = 1\n";
    const std::string page = make("--scenario " + scenario, "-c init");
    EXPECT_THAT(rowsOf(page, "faults"), testing::IsSupersetOf({"1.000 ms|NOTE fault brief begins",
                                                               "3.000 ms|NOTE fault brief ends"}));
    EXPECT_THAT(page, HasSubstr("NOTE fault typo never struck</td>"));
    EXPECT_THAT(rowsOf(page, "faults"), testing::SizeIs(3));
}

TEST_F(RunReport, NamesFieldsWithOldAndNewValue) {
    const std::string page = make("", "-c init -c start -c stop");
    EXPECT_THAT(page, HasSubstr("<td>frame_state 4 to 3, frame_control_mode 0</td>"
                                "<td>0x000004</td><td>0x000003</td>"));
    // The PLL loses its lock when the sensor stops: that is not the training's.
    EXPECT_THAT(rowsOf(page, "attempt1"), testing::Contains("PLL locked|3.000 ms"));
}

} // namespace
