// The page about a run, read by a browser.

#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <png.h>
#include <regex>

#include "tests/support/temporary_directory.h"
#include "tests/system/command.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
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

struct tsGrey {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<std::uint16_t> values; // linear
    [[nodiscard]] unsigned at(unsigned x, unsigned y) const { return values.at(y * width + x); }
};

tsGrey finishedGrey(png_image& image) {
    image.format = PNG_FORMAT_LINEAR_Y;
    tsGrey picture{image.width, image.height, {}};
    picture.values.resize(std::size_t{image.width} * image.height);
    EXPECT_NE(png_image_finish_read(&image, nullptr, picture.values.data(), 0, nullptr), 0);
    return picture;
}

tsGrey greyFromFile(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0) << path;
    return finishedGrey(image);
}

std::string fromBase64(const std::string& text) {
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    unsigned held = 0;
    for (const char character : text) {
        const std::size_t digit = digits.find(character);
        if (digit == std::string::npos) {
            break; // padding
        }
        held = (held << 6 | static_cast<unsigned>(digit)) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            bytes += static_cast<char>(held >> bits & 0xFF);
        }
    }
    return bytes;
}

// The picture in a page. Its 8 bits come as 16: 255 as 65535.
tsGrey greyFromPage(const std::string& page) {
    const std::string before = "src=\"data:image/png;base64,";
    const std::size_t start = page.find(before);
    EXPECT_NE(start, std::string::npos);
    const std::size_t text = start + before.size();
    const std::string bytes = fromBase64(page.substr(text, page.find('"', text) - text));
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(image.format, static_cast<png_uint_32>(PNG_FORMAT_GRAY)); // 8 bits
    return finishedGrey(image);
}

class RunReport : public testing::Test {
protected:
    std::string make(const std::string& options, const std::string& commands) {
        runOnHead("--report " + m_page.string() + " --log " + m_log.string() + " " + options,
                  camhostCommand(commands));
        return contentOf(m_page);
    }
    // What the browser makes of a page, and what it has to say about it.
    struct tsShown {
        std::string page;
        std::vector<std::string> complaints;
    };
    tsShown shownBy(const std::filesystem::path& page) {
        const std::filesystem::path said = m_folder.path() / "said";
        // Without its log the browser keeps to itself what is wrong with a page.
        const std::string text =
            runCommand("( chromium --headless --no-sandbox --disable-gpu --enable-logging=stderr "
                       "--disable-background-networking --disable-component-update "
                       "--disable-sync --no-first-run --proxy-server=127.0.0.1:9 "
                       "--user-data-dir=" +
                       (m_folder.path() / "browser").string() + " --dump-dom file://" +
                       page.string() + " 2>" + said.string() + " )")
                .output;
        tsShown shown{text, {}};
        for (const std::string& line : linesOf(contentOf(said))) {
            if (line.find(":CONSOLE:") != std::string::npos) {
                shown.complaints.push_back(line.substr(line.find(":CONSOLE:")));
            }
        }
        return shown;
    }
    std::string rendered() {
        const tsShown shown = shownBy(m_page);
        EXPECT_THAT(shown.complaints, IsEmpty());
        return shown.page;
    }
    tcTemporaryDirectory m_folder;
    std::filesystem::path m_page = m_folder.path() / "run.html";
    std::filesystem::path m_log = m_folder.path() / "log";
};

// Without this the other tests' silence of the browser would mean nothing.
TEST_F(RunReport, OfABrokenPageTheBrowserComplains) {
    std::ofstream(m_page) << "<!DOCTYPE html><html><body><p>text</p><script>\n"
                             "console.error('first');\nmissing();\n</script></body></html>\n";
    const tsShown shown = shownBy(m_page);
    EXPECT_THAT(shown.page, HasSubstr("<p>text</p>"));
    EXPECT_THAT(shown.complaints,
                ElementsAre(HasSubstr("\"first\", source: file://" + m_page.string()),
                            HasSubstr("Uncaught ReferenceError: missing is not defined")));
}

TEST_F(RunReport, IsShownByABrowserAndSaysWhatTheLogSays) {
    const std::string page = make("", "-c init");
    EXPECT_THAT(page, Not(HasSubstr("http")));
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    const std::string shown = rendered();
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

TEST_F(RunReport, NamesWhatWasAskedForAndNotGot) {
    const std::string page = make("", "-c init -c 'exposure 500000' -c 'exposure 20000'");
    EXPECT_THAT(rowsOf(page, "clamps"),
                ElementsAre("exposure|500000 us|99850 us|the frame interval of 99900 us"));
    EXPECT_THAT(make("", "-c init"), HasSubstr("<p id=\"clamps\">none that the program told</p>"));
}

TEST_F(RunReport, PassesOnWhatTheProgramPrints) {
    const std::string program = camhostCommand("-c init -c 'exposure 500000'");
    const tsOutcome plain = runOnHead("--summary /dev/null", program);
    const tsOutcome kept = runOnHead("--summary /dev/null --report " + m_page.string(), program);
    EXPECT_EQ(kept.status, 0);
    EXPECT_THAT(plain.output, HasSubstr("exposure: asked 500000 us, applied 99850 us"));
    EXPECT_EQ(kept.output, plain.output);
}

TEST_F(RunReport, DoesNotWaitForWhatTheProgramLeavesBehind) {
    const auto start = std::chrono::steady_clock::now();
    const tsOutcome left = runOnHead("--summary /dev/null --report " + m_page.string(),
                                     "sh -c 'tail -f /dev/null 2>/dev/null & echo $!'");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    runCommand("kill " + linesOf(left.output).back());
}

TEST_F(RunReport, LetsAProgramEndWhoseReaderGoesAway) {
    const tsOutcome cut = runCommand("( " HEAD_LAUNCHER " --summary /dev/null --report " +
                                     m_page.string() + " -- yes ; echo $? >" +
                                     (m_folder.path() / "status").string() + " ) | head -n 1");
    EXPECT_EQ(linesOf(cut.output).back(), "y");
    EXPECT_EQ(contentOf(m_folder.path() / "status"), "141\n"); // by SIGPIPE
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

TEST_F(RunReport, ShowsEachPictureSmall) {
    make("--max-frames 2 --frames " + m_folder.path().string(),
         "-c init -c 'bpp 16bit' -c 'capture 300'");
    const std::string shown = rendered();
    EXPECT_THAT(shown, Not(HasSubstr("http")));
    EXPECT_THAT(shown,
                HasSubstr("frame-0002.png at 617.278 ms, 2592 x 2056: exposure 30000.000 us, "
                          "analogue gain 1.000, digital gain 1.000, ADC 12 bits, vertical scan "
                          "from the bottom, horizontal scan from the right, pairs flip on, pixel "
                          "shift left 4</figcaption>"));
    EXPECT_THAT(shown, HasSubstr("<figure id=\"frame1\">"));
    EXPECT_THAT(shown, Not(HasSubstr("<figure id=\"frame3\">")));
    const tsGrey small = greyFromPage(shown);
    const tsGrey full = greyFromFile((m_folder.path() / "frame-0001.png").string());
    ASSERT_EQ(full.width, 2592U);
    ASSERT_EQ(small.width, 235U); // each pixel is the mean of 11 x 11
    ASSERT_EQ(small.height, 186U);
    unsigned dark = 255;
    unsigned bright = 0;
    for (const auto& [x, y] : {std::pair{0U, 0U}, std::pair{17U, 5U}, std::pair{117U, 93U},
                               std::pair{122U, 93U}, std::pair{200U, 90U}, std::pair{234U, 185U}}) {
        unsigned sum = 0;
        for (unsigned line = 0; line < 11; ++line) {
            for (unsigned column = 0; column < 11; ++column) {
                sum += full.at(11 * x + column, 11 * y + line);
            }
        }
        // 4095, shifted left by 4, is white.
        const double expected = sum / 121.0 / 65520.0 * 255.0;
        EXPECT_NEAR(small.at(x, y) / 257.0, expected, 0.5 + 1e-9) << x << " " << y;
        dark = std::min(dark, small.at(x, y) / 257);
        bright = std::max(bright, small.at(x, y) / 257);
    }
    EXPECT_GT(bright, dark + 50); // places that differ
}

TEST_F(RunReport, ShowsWhatTheAdcMeasured) {
    const tcTemporaryDirectory folder;
    const std::string scenario = (folder.path() / "supply.ini").string();
    std::ofstream(scenario) << "[Supplies]\nVDD1.2 = 1.25\nVDD3.3SVDD = 3.15\n";
    make("--scenario " + scenario, "-c init");
    EXPECT_THAT(rowsOf(rendered(), "rails"),
                ElementsAre("311.361 ms|VDD1.2|0x800|1.2500 V|1.1 to 1.3 V|within limits",
                            "316.811 ms|VDD1.2|0x800|1.2500 V|1.1 to 1.3 V|within limits",
                            "317.261 ms|VDD3.3AVDDH|0xA8F|3.2996 V|3.2 to 3.4 V|within limits",
                            "317.711 ms|VDD3.3SVDD|0xA14|3.1494 V|3.2 to 3.4 V|too low"));
}

TEST_F(RunReport, SaysWhichBoundASettingReached) {
    make("", "-c init -c 'interval 100000' -c 'exposure 200000' -c 'exposure 1' -c 'exposure "
             "30000' -c 'interval 1000000'");
    std::vector<std::string> rows;
    for (const std::string& row : rowsOf(rendered(), "exposures")) {
        rows.push_back(row.substr(row.find('|') + 1)); // without its time
    }
    EXPECT_THAT(rows,
                ElementsAre("4000 lines, 100000.0 us|1200 lines, 30000.0 us|",
                            "3996 lines, 99900.0 us|1200 lines, 30000.0 us|",
                            "3996 lines, 99900.0 us|3994 lines, 99850.0 us|exposure: all that "
                            "the frame has",
                            "3996 lines, 99900.0 us|1 lines, 25.0 us|exposure: the shortest",
                            "3996 lines, 99900.0 us|1200 lines, 30000.0 us|",
                            "16383 lines, 409575.0 us|1200 lines, 30000.0 us|frame: the longest"));
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
