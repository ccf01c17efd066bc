// The page about a run, read by a browser.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <gmock/gmock.h>
#include <map>
#include <png.h>
#include <regex>

#include "tests/support/patience.h"
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

// A time of the log, "[    0.301003200] ...", as a page has it, "301.003 ms".
std::string pageTime(const std::string& line) {
    const std::size_t point = line.find('.');
    const std::string ms = std::to_string(std::stoul(line.substr(1, point - 1)) * 1000 +
                                          std::stoul(line.substr(point + 1, 3)));
    return ms + "." + line.substr(point + 4, 3) + " ms";
}

// Markup as a browser writes it.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        result += character == '<'   ? "&lt;"
                  : character == '>' ? "&gt;"
                  : character == '&' ? "&amp;"
                                     : std::string(1, character);
    }
    return result;
}

// Lines of a log with this text in them, as rows "time|event".
std::vector<std::string> logged(const std::string& log, const std::string& text) {
    std::vector<std::string> rows;
    for (const std::string& line : linesOf(log)) {
        if (line.find(text) != std::string::npos) {
            rows.push_back(pageTime(line) + "|" + escaped(line.substr(line.find("] ") + 2)));
        }
    }
    return rows;
}

// Writes of a log, as "time|register|value".
std::vector<std::string> loggedWrites(const std::string& log) {
    std::vector<std::string> rows;
    const std::regex spi(R"(SPI (\w\w) (\w\w) (\w\w) (\w\w)( failed .*)?)");
    const std::regex store(R"(WRITE (0x\w{8}) (0x\w{8}))");
    for (const std::string& line : linesOf(log)) {
        const std::string event = line.substr(line.find("] ") + 2);
        std::smatch part;
        if (std::regex_match(event, part, spi)) { // the lowest byte comes first
            const std::string digits =
                part[4].str() + part[3].str() + part[2].str() + part[1].str();
            const std::uint64_t word = std::stoull(digits, nullptr, 16);
            std::array<char, 40> text{};
            std::snprintf(text.data(), text.size(), "|0x%03X|0x%06X",
                          static_cast<unsigned>(word / 0x400000),
                          static_cast<unsigned>(word % 0x400000));
            rows.push_back(pageTime(line) + text.data());
        } else if (std::regex_match(event, part, store)) {
            rows.push_back(pageTime(line) + "|" + part[1].str() + "|" + part[2].str());
        }
    }
    return rows;
}

std::vector<std::string> cellsOfPage(const std::string& row) {
    std::vector<std::string> cells{""};
    for (const char character : row) {
        if (character == '|') {
            cells.emplace_back();
        } else {
            cells.back() += character;
        }
    }
    return cells;
}

// Rows of the table of writes: time|register|value.
std::vector<std::string> shownWrites(const std::string& page) {
    std::vector<std::string> rows;
    for (const std::string& row : rowsOf(page, "writes")) {
        const std::vector<std::string> cells = cellsOfPage(row);
        rows.push_back(cells.at(0) + "|" + cells.at(2) + "|" + cells.at(5));
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
    EXPECT_THAT(page, Not(HasSubstr("src=")));
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

// Rows of the table of writes that the browser does not hide.
std::vector<std::string> rowsThatAreShown(const std::string& page) {
    std::string visible;
    for (const std::string& line : linesOf(page)) {
        visible +=
            line.starts_with("<tr") && line.find(" hidden") < line.find(">") ? "" : line + "\n";
    }
    return rowsOf(visible, "writes");
}

// The address of the page says what is looked for, as if somebody had typed it.
TEST_F(RunReport, ShowsTheRegisterWritesThatOneLooksFor) {
    make("", "-c init -c 'regfile write 0x3D004 1'");
    const tsShown all = shownBy(m_page);
    EXPECT_THAT(all.complaints, IsEmpty());
    EXPECT_THAT(rowsThatAreShown(all.page), testing::SizeIs(testing::Gt(100U)));
    EXPECT_THAT(all.page, Not(HasSubstr("<p id=\"search\" hidden")));
    EXPECT_THAT(all.page, Not(HasSubstr("<details open")));
    const tsShown some = shownBy(m_page.string() + "#writes=SENSOR%20dgain");
    EXPECT_THAT(some.complaints, IsEmpty());
    std::vector<std::string> rows;
    for (const std::string& row : rowsThatAreShown(some.page)) {
        rows.push_back(row.substr(row.find('|') + 1)); // without its time
    }
    EXPECT_THAT(rows,
                ElementsAre("sensor|0x042|dgain_coarse 0, dgain_fine 0||0x000000|",
                            "sensor|0x042|dgain_coarse 0 to 1, dgain_fine 0|0x000000|0x000001|"));
    EXPECT_THAT(some.page, testing::ContainsRegex("<span id=\"found\">2 of [0-9]+ rows</span>"));
    EXPECT_THAT(some.page, HasSubstr("<details open"));
}

TEST_F(RunReport, BeginsWithAVerdict) {
    const std::string scenarios = std::string(HEAD_SOURCE_DIRECTORY) + "/data/scenarios/";
    make("--scenario " + scenarios + "dead-lane.ini", "-c init");
    const std::string shown = rendered();
    const std::string verdict =
        shown.substr(shown.find("<section id=\"verdict\""),
                     shown.find("</section>") - shown.find("<section id=\"verdict\""));
    EXPECT_THAT(verdict, HasSubstr("<h2>The program failed: it ended with status 5.</h2>"));
    EXPECT_THAT(verdict, HasSubstr("<li>Lane 3 did not lock.</li>"));
    EXPECT_THAT(verdict,
                HasSubstr("<dd id=\"measure\">(1) The lane with a differential probe; (2) "));
    EXPECT_THAT(verdict, HasSubstr(" --spi /dev/spidev1.0 -c init</dd>"));
    EXPECT_THAT(verdict, HasSubstr("<dd>dead-lane.ini: Lane 3 carries nothing.</dd>"));
    EXPECT_THAT(shown, HasSubstr(">LANE3-LOCK</text>"));
}

TEST_F(RunReport, ShowsAFailedRunAsItsLogHasIt) {
    const std::string scenario = (m_folder.path() / "reset.ini").string();
    std::ofstream(scenario) << "[GPIO]\nmissing = RESET_B\n"
                               "[Failures]\nport = ioctl /dev/spidev1.0 30 EIO\n";
    make("--scenario " + scenario, "-c init");
    const std::string shown = rendered();
    const std::string log = contentOf(m_log);
    EXPECT_THAT(
        rowsOf(shown, "stages"),
        ElementsAre("0.180 ms|1.2 V on|1.000 ms", "1.180 ms|3.3 V SVDD on|0.000 ms",
                    "1.180 ms|3.3 V AVDDH on|316.801 ms",
                    "317.981 ms|first register write|11.288 ms",
                    "329.269 ms|frame-control core on|100.003 ms", "429.272 ms|end of the run|",
                    "never|reset released|", "never|sensor awake|", "never|supplies measured|",
                    "never|receiver PLL locked|", "never|link aligned|", "never|frames arrive|"));
    EXPECT_THAT(shown, HasSubstr("<svg id=\"timeline\""));
    EXPECT_THAT(shown, HasSubstr("<title>3.3 V AVDDH on: 316.801 ms</title></rect>"));
    const std::vector<std::string> violations = logged(log, "] VIOLATION ");
    EXPECT_THAT(violations, testing::SizeIs(91));
    EXPECT_EQ(rowsOf(shown, "violations"), violations);
    const std::vector<std::string> failures = logged(log, " failed ");
    EXPECT_THAT(failures, testing::Contains(HasSubstr("|SPI ")));
    EXPECT_EQ(rowsOf(shown, "failures"), failures);
    EXPECT_EQ(shownWrites(shown), loggedWrites(log));
    std::map<std::string, unsigned> fates;
    for (const std::string& row : rowsOf(shown, "writes")) {
        const std::vector<std::string> cells = cellsOfPage(row);
        ++fates[cells.at(1) + ": " + cells.at(6)];
        EXPECT_TRUE(cells.at(1) == "FPGA" || cells.at(4).empty()) << row; // it never held anything
    }
    EXPECT_THAT(fates, ElementsAre(testing::Pair("FPGA: ", 21),
                                   testing::Pair("sensor: lost: the SPI transfer failed", 1),
                                   testing::Pair("sensor: lost: the sensor was asleep", 91)));
}

TEST_F(RunReport, ShowsAHealthyRunAsItsLogHasItAndNamesItsFields) {
    make("", "-c init -c 'capture 300'");
    const std::string shown = rendered();
    EXPECT_THAT(
        rowsOf(shown, "stages"),
        ElementsAre("0.180 ms|1.2 V on|1.000 ms", "1.180 ms|3.3 V SVDD on|0.000 ms",
                    "1.180 ms|3.3 V AVDDH on|300.001 ms", "301.181 ms|reset released|10.000 ms",
                    "311.181 ms|sensor awake|0.180 ms", "311.361 ms|supplies measured|6.620 ms",
                    "317.981 ms|first register write|11.291 ms",
                    "329.272 ms|frame-control core on|3.000 ms",
                    "332.272 ms|receiver PLL locked|42.000 ms",
                    "374.272 ms|link aligned|115.106 ms", "489.378 ms|frames arrive|308.014 ms",
                    "797.393 ms|end of the run|"));
    EXPECT_EQ(shownWrites(shown), loggedWrites(contentOf(m_log)));
    std::vector<std::string> rows;
    for (const std::string& row : rowsOf(shown, "writes")) {
        rows.push_back(row.substr(row.find('|') + 1)); // without its time
        const std::vector<std::string> cells = cellsOfPage(row);
        EXPECT_TRUE(cells.at(1) == "sensor" || !cells.at(3).empty()) << row;
    }
    EXPECT_THAT(
        rows,
        testing::IsSupersetOf(
            {"sensor|0x0B0|hd_prd 899||0x000383|",
             "sensor|0x012|hd_max 4000||0x000FA0|",
             "sensor|0x012|hd_max 4000 to 3996|0x000FA0|0x000F9C|",
             "sensor|0x016|gres_pos 3996 to 3992|0x000F9C|0x000F98|",
             "sensor|0x019|acc_fpos 2798 to 2794|0x000AEE|0x000AEA|",
             "sensor|0x01B|gs_pos1 3998 to 3994|0x000F9E|0x000F9A|",
             "sensor|0x01C|gs_pos2 16383||0x003FFF|",
             "sensor|0x041|again_coarse2 0, again_fine 0||0x000000|",
             "sensor|0x042|dgain_coarse 0, dgain_fine 0||0x000000|",
             "sensor|0x090|hscan_invert 0, vscan_invert 0 to 1, bin 0|0x000000|0x020000|",
             "sensor|0x090|hscan_invert 0 to 1, vscan_invert 1, bin 0|0x020000|0x030000|",
             "sensor|0x06C|vscan_invert2 0 to 1|0x000000|0x000008|",
             "sensor|0x094|area 0: row_start 0, row_end 1027||0x201800|",
             "sensor|0x095|area 0: col_start 0, col_end 431||0x1AF000|",
             "sensor|0x096|area 1: row_start 2047, row_end 2047||0x3FFFFF|",
             "sensor|0x0A3|area 7: col_start 511, col_end 511||0x1FF1FF|",
             "sensor|0x0D8|clock_range 186639||0x02D90F|",
             "sensor|0x010|frame_state 0 to 4, frame_control_mode 0|0x000000|0x000004|",
             "FPGA|0xFF210008|lane_inversion 0 to 1497|0x00000000|0x000005D9|",
             "FPGA|0xFF210000|enable 0 to 1, pairs_flip 1, hdr_update 0|0x00000002|0x80000002|",
             "FPGA|0xFF210020|resolution_h 2056, resolution_w 2592|0x08080A20|0x08080A20|",
             "FPGA|0xFF210018|roi_res_cnt_h 1028, roi_res_cnt_w 432|0x040401B0|0x040401B0|",
             ("FPGA|0xFF210028|dpa_reset 4095 to 0, dpa_fifo_reset 0 to "
              "4095|0x00000FFF|0x00FFF000|"),
             "FPGA|0xFF21002C|dpa_hold 0 to 4095|0x00000000|0x00000FFF|",
             "FPGA|0xFF211000|enable 0 to 1, invert 1|0x00000001|0x80000001|",
             "FPGA|0xFF211004|period 1200000 to 3596400|0x00124F80|0x0036E070|",
             "FPGA|0xFF211008|duty 0 to 10|0x00000000|0x0000000A|",
             "FPGA|0xFF212000|commit 1||0x00000001|",
             "FPGA|0xFF213000|pixel 0: y 0 to 200, x 0 to 100|0x00000000|0x00C80064|",
             "FPGA|0xFF213008|pixel 2: y 0 to 2055, x 0 to 2591|0x00000000|0x08070A1F|",
             "FPGA|0xFF215000|reset 1 to 0, color 0, apply_map 0, run 0|0x80000000|0x00000000|",
             ("FPGA|0xFF21500C|roi_height 0 to 2056, roi_width 0 to "
              "2592|0x00000000|0x08080A20|"),
             "FPGA|0xFF215010|entries 0 to 3|0x00000000|0x00000003|",
             "FPGA|0xFF215014|buffer 0 to 301989888|0x00000000|0x12000000|",
             "FPGA|0xFF217000|reset 1, left 0, amount 0|0x80000000|0x80000000|"}));
}

TEST_F(RunReport, NamesWhatWasAskedForAndNotGot) {
    const std::string page =
        make("", "-c init -c 'exposure 500000' -c 'exposure 20000' -c 'exposure 1'");
    EXPECT_THAT(rowsOf(page, "clamps"),
                ElementsAre("exposure|500000 us|99850 us|the frame interval of 99900 us",
                            "exposure|1 us|25 us|the sensor's range"));
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
    EXPECT_LT(std::chrono::steady_clock::now() - start, kPatience);
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
                HasSubstr("frame-0002.png at 614.978 ms, 2592 x 2056: exposure 30000.000 us, "
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

// What no program notices: the launcher says it by the board's table.
TEST(CaptureWithoutPictures, IsExplainedByTheTable) {
    struct tsSilence {
        const char* fault;
        const char* commands;
        const char* lines;
    };
    const tsSilence silences[] = {
        {"what = PLL lost\nafter = SPI 03 00 00 04", "-c init -c 'capture 700'",
         "  cause: The sensor's clock stops or jumps in capture\n"
         "  measure: Sensor clock at the connector; ripple of the sensor's supplies\n"},
        {"what = lanes 3 7 lost\nafter = SPI 03 00 00 04\nfor = 20", "-c init -c 'capture 700'",
         "  cause: A lane drops in capture: cable, connector, termination; clock 1 trains the link "
         "anew\n"
         "  measure: The lanes' eye with the cable moved\n"},
        {"what = block pixel-shift stuck", "-c init -c 'capture 700'",
         "  cause: A core of the FPGA's pipeline lets none through\n"
         "  measure: Version of the FPGA image; the core's control word\n"},
        {nullptr, "-c init -c 'trigger external' -c 'capture 700'",
         "  cause: No frame-start pulses leave the FPGA, or no triggers come in\n"
         "  measure: Frame-start pulse at the sensor; the trigger input\n"}};
    for (const tsSilence& silence : silences) {
        const tcTemporaryDirectory folder;
        const std::string file = (folder.path() / "scenario.ini").string();
        std::ofstream(file) << (silence.fault != nullptr
                                    ? std::string("[Fault x]\n") + silence.fault + "\n"
                                    : "");
        const tsOutcome run =
            runOnHead("--overview --scenario " + file, camhostCommand(silence.commands));
        EXPECT_EQ(run.status, 11) << silence.commands;
        EXPECT_THAT(run.output, HasSubstr("  The program succeeded, but no picture came.\n"));
        EXPECT_THAT(run.output, testing::EndsWith(silence.lines));
    }
}

} // namespace
