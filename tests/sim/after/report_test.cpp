// What the page about a run says of readings, exposures and pictures.

#include <array>
#include <gmock/gmock.h>
#include <regex>

#include "sim/after/report.h"

namespace {

using testing::HasSubstr;
using testing::Not;

std::string pageOf(const std::vector<std::string>& events) {
    std::vector<std::string> lines;
    for (const std::string& event : events) {
        lines.push_back("[    0.001000000] " + event);
    }
    return sim::report(sim::parseTrace(lines));
}

// A row of readings without its time.
std::string readingOf(const std::vector<std::string>& events) {
    const std::string page = pageOf(events);
    const std::string before = "<td>1.000 ms</td>";
    const std::size_t table = page.find("<table id=\"rails\">");
    const std::size_t start = page.find(before, table) + before.size();
    return table == std::string::npos ? "" : page.substr(start, page.find("</tr>", start) - start);
}

TEST(ReportedReading, UndoesTheDividerAndIsComparedWithTheLimits) {
    EXPECT_EQ(readingOf({"ADC 0 0x7AE"}), "<td>VDD1.2</td><td>0x7AE</td><td>1.2000 V</td>"
                                          "<td>1.1 to 1.3 V</td><td>within limits</td>");
    EXPECT_EQ(readingOf({"ADC 1 0xA8F"}), "<td>VDD3.3AVDDH</td><td>0xA8F</td><td>3.2996 V</td>"
                                          "<td>3.2 to 3.4 V</td><td>within limits</td>");
    EXPECT_EQ(readingOf({"ADC 4 0xA8F"}), "<td>VDD3.3SVDD</td><td>0xA8F</td><td>3.2996 V</td>"
                                          "<td>3.2 to 3.4 V</td><td>within limits</td>");
}

TEST(ReportedReading, IsWithinLimitsUpToTheLastStep) {
    EXPECT_THAT(readingOf({"ADC 0 0x851"}),
                HasSubstr("1.2994 V</td><td>1.1 to 1.3 V</td><td>with"));
    EXPECT_THAT(readingOf({"ADC 0 0x852"}),
                HasSubstr("1.3000 V</td><td>1.1 to 1.3 V</td><td>too high"));
    EXPECT_THAT(readingOf({"ADC 0 0x70B"}),
                HasSubstr("1.1005 V</td><td>1.1 to 1.3 V</td><td>with"));
    EXPECT_THAT(readingOf({"ADC 0 0x70A"}),
                HasSubstr("1.0999 V</td><td>1.1 to 1.3 V</td><td>too low"));
    EXPECT_THAT(readingOf({"ADC 1 0xAE1"}),
                HasSubstr("3.3997 V</td><td>3.2 to 3.4 V</td><td>with"));
    EXPECT_THAT(readingOf({"ADC 1 0xAE2"}),
                HasSubstr("3.4009 V</td><td>3.2 to 3.4 V</td><td>too high"));
    EXPECT_THAT(readingOf({"ADC 4 0xA3E"}),
                HasSubstr("3.2007 V</td><td>3.2 to 3.4 V</td><td>with"));
    EXPECT_THAT(readingOf({"ADC 4 0xA3D"}),
                HasSubstr("3.1995 V</td><td>3.2 to 3.4 V</td><td>too low"));
}

TEST(ReportedReading, SaysWhyAReadingIsNone) {
    EXPECT_THAT(readingOf({"ADC 0 failed EIO"}),
                HasSubstr("<td></td><td></td><td>1.1 to 1.3 V</td><td>the transfer failed</td>"));
    EXPECT_THAT(readingOf({"ADC 0 0xFFFF"}), HasSubstr("<td>nobody drove the bus</td>"));
    EXPECT_THAT(readingOf({"ADC-COMMAND 0x8C", "ADC 0 0xFFF"}),
                HasSubstr("<td>not counted: the reference settles</td>"));
    EXPECT_THAT(pageOf({"ADC-COMMAND 0x8C", "ADC-COMMAND 0x8C", "ADC 0 0xFFF"}),
                HasSubstr("<td>2.4994 V</td><td>1.1 to 1.3 V</td><td>too high</td>"));
    EXPECT_THAT(pageOf({"ADC 2 0x000"}), HasSubstr("<p id=\"rails\">never measured</p>"));
}

// One register write that the sensor took.
std::string sensorWrite(std::uint32_t address, std::uint32_t value) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "STATE SENSOR-WORD 0x%03X - 0x%06X taken", address,
                  value);
    return text.data();
}

// Rows of exposures, without their times.
std::vector<std::string> exposuresOf(const std::vector<std::string>& events) {
    const std::string page = pageOf(events);
    const std::size_t table = page.find("<table id=\"exposures\">");
    if (table == std::string::npos) {
        return {};
    }
    std::vector<std::string> rows;
    const std::string before = "<td>1.000 ms</td>";
    const std::size_t last = page.find("</table>", table);
    for (std::size_t at = page.find(before, table); at < last; at = page.find(before, at + 1)) {
        const std::size_t start = at + before.size();
        rows.push_back(page.substr(start, page.find("</tr>", start) - start));
    }
    return rows;
}

TEST(ReportedExposure, IsOneRowForEachSetOfItsRegisters) {
    EXPECT_THAT(
        exposuresOf({sensorWrite(0xB0, 899), sensorWrite(0x12, 4000), sensorWrite(0x1B, 3998),
                     sensorWrite(0x19, 2798), sensorWrite(0x1B, 3998), sensorWrite(0x19, 0),
                     sensorWrite(0x12, 2000), sensorWrite(0x1B, 1998), sensorWrite(0x19, 1997)}),
        testing::ElementsAre(
            "<td>4000 lines, 100000.0 us</td><td>1200 lines, 30000.0 us</td><td></td>",
            "<td>4000 lines, 100000.0 us</td><td>3998 lines, 99950.0 us</td>"
            "<td>exposure: all that the frame has</td>",
            "<td>2000 lines, 50000.0 us</td><td>1 lines, 25.0 us</td><td>exposure: the "
            "shortest</td>"));
}

TEST(ReportedExposure, EndsWithTheSecondShutterPositionWhereThatIsInUse) {
    EXPECT_THAT(
        exposuresOf({sensorWrite(0xB0, 899), sensorWrite(0x12, 16383), sensorWrite(0x1C, 16381),
                     sensorWrite(0x1B, 9000), sensorWrite(0x19, 6381)}),
        testing::ElementsAre("<td>16383 lines, 409575.0 us</td><td>10000 lines, 250000.0 "
                             "us</td><td>frame: the longest</td>"));
}

TEST(ReportedExposure, IsNotWhatGotLost) {
    EXPECT_THAT(exposuresOf({"STATE SENSOR-WORD 0x0B0 - 0x000383 asleep",
                             "STATE SENSOR-WORD 0x012 - 0x000FA0 asleep",
                             "STATE SENSOR-WORD 0x01B - 0x000F9E asleep"}),
                testing::IsEmpty());
}

TEST(ReportedExposure, IsTheTriggersOwnCountAndFollowsTheClock) {
    EXPECT_THAT(exposuresOf({"STATE FPGA-WORD 0xFF204300 0x00000F0F 0x00001617 taken",
                             "STATE FPGA-WORD 0xFF204000 - 0x00000001 taken",
                             sensorWrite(0x10, 1U << 8 | 3), sensorWrite(0xB0, 599),
                             sensorWrite(0x12, 1086), sensorWrite(0x14, 16382),
                             sensorWrite(0x12, 1086), sensorWrite(0x14, 16383)}),
                testing::ElementsAre(
                    "<td>1086 lines, 27150.0 us</td><td>16382 lines, 409550.0 us</td><td></td>",
                    "<td>1086 lines, 27150.0 us</td><td>16383 lines, 409575.0 us</td>"
                    "<td>exposure: the longest</td>"));
}

// Bars of the time line: place and width [pixels], and what they say.
std::vector<std::string> barsOf(const std::string& page) {
    const std::regex form("<rect x=\"([^\"]*)\" y=\"([^\"]*)\" width=\"([^\"]*)\" height=\"14\">"
                          "<title>([^<]*)</title></rect>");
    std::vector<std::string> bars;
    for (auto bar = std::sregex_iterator(page.begin(), page.end(), form);
         bar != std::sregex_iterator(); ++bar) {
        bars.push_back((*bar)[1].str() + " " + (*bar)[2].str() + " " + (*bar)[3].str() + " " +
                       (*bar)[4].str());
    }
    return bars;
}

TEST(ReportedStages, AreDrawnAsBarsOverTheRun) {
    const std::string page =
        sim::report(sim::parseTrace(std::string_view("[    0.100000000] GPIO PS_1.2V_EN = 1\n"
                                                     "[    0.300000000] GPIO RESET_B = 1\n"
                                                     "[    0.900000000] STATE CORE-ENABLED 1\n"
                                                     "[    0.850000000] STATE PLL-LOCKED 1\n"
                                                     "[    0.900000000] STATE PLL-GB-LOCKED 1\n"
                                                     "[    0.900000000] STATE PLL-RG-LOCKED 1\n"
                                                     "[    1.000000000] STATE END\n")));
    // The run is 600 pixels wide and begins at 180.
    EXPECT_THAT(barsOf(page),
                testing::ElementsAre("240.0 0 120.0 1.2 V on: 200.000 ms",
                                     "360.0 20 360.0 reset released: 600.000 ms",
                                     "720.0 40 2.0 frame-control core on: 0.000 ms",
                                     "720.0 60 60.0 receiver PLL locked: 100.000 ms"));
    EXPECT_THAT(page, HasSubstr("text-anchor=\"end\">frame-control core on</text>"));
    EXPECT_THAT(page, HasSubstr("<text x=\"180\" y=\"91\" text-anchor=\"start\">0.000 ms</text>"));
    EXPECT_THAT(page, HasSubstr("<text x=\"780\" y=\"91\" text-anchor=\"end\">1000.000 ms</text>"));
}

TEST(ReportedStages, OfARunInWhichNothingHappenedAreNotDrawn) {
    EXPECT_THAT(sim::report({}), Not(HasSubstr("<svg")));
    EXPECT_THAT(sim::report({}), HasSubstr("<td>never</td><td>reset released</td><td></td>"));
}

sim::tsRunFacts printing(const std::string& text) {
    sim::tsRunFacts facts;
    facts.printed = text;
    return facts;
}

// --- The verdict ---

TEST(ReportedVerdict, SaysWhatWasRunAndHowItEnded) {
    sim::tsRunFacts facts = printing("version \"3U5MGXS-C\" \"6.1.0\"\nmore\n");
    facts.command = "camhost -c 'exposure <1>'";
    facts.version = "virtual-head 0.1.0";
    facts.scenario = "there/dead-lane.ini";
    facts.scenarioText = "; Lane 3 carries nothing.\n[Link]\nlane3 = never\n";
    facts.status = 5;
    facts.known["pll"] = {"no <clock>", "Sensor clock"};
    const std::string page =
        sim::report(sim::parseTrace(std::string_view("[    0.001000000] STATE CORE-ENABLED 1\n"
                                                     "[    0.002000000] NOTE fault lost begins\n")),
                    {}, facts);
    const std::size_t start = page.find("<section id=\"verdict\" class=\"wrong\">\n");
    ASSERT_NE(start, std::string::npos);
    EXPECT_LT(start, page.find("<h2>What the wires did</h2>"));
    const std::string verdict = page.substr(start, page.find("</section>", start) - start);
    EXPECT_THAT(verdict, HasSubstr("<h2>The program failed: it ended with status 5.</h2>\n<ul>\n"
                                   "<li>PLL flag locked did not lock.</li>\n"));
    EXPECT_THAT(verdict,
                HasSubstr("<dt>Probable cause</dt><dd id=\"cause\">no &lt;clock&gt;</dd>"));
    EXPECT_THAT(verdict, HasSubstr("<dt>What to measure</dt><dd id=\"measure\">Sensor clock"));
    EXPECT_THAT(verdict,
                HasSubstr("<dt>Program</dt><dd>camhost -c 'exposure &lt;1&gt;'</dd>\n"
                          "<dt>Ended</dt><dd>with status 5</dd>\n"
                          "<dt>Versions</dt><dd>virtual-head 0.1.0; the board: "
                          "&quot;3U5MGXS-C&quot; &quot;6.1.0&quot;</dd>\n"
                          "<dt>Scenario</dt><dd>dead-lane.ini: Lane 3 carries nothing.</dd>\n"
                          "<dt>Faults</dt><dd>lost begins at 2.000 ms</dd>\n"));
    EXPECT_THAT(verdict,
                HasSubstr("<pre>; Lane 3 carries nothing.\n[Link]\nlane3 = never\n</pre>"));
}

TEST(ReportedVerdict, OfAGoodRunSaysSo) {
    sim::tsRunFacts facts;
    facts.status = 0;
    facts.pictures = 1;
    const std::string page = sim::report({}, {}, facts);
    EXPECT_THAT(page, HasSubstr("<section id=\"verdict\" class=\"good\">\n<h2>All went well: 1 "
                                "picture delivered.</h2>\n<dl>\n"));
    EXPECT_THAT(page, Not(HasSubstr("Probable cause")));
}

// --- The wires ---

TEST(ReportedWires, AreDrawnInThePage) {
    const std::string page =
        sim::report(sim::parseTrace(std::string_view("[    0.001000000] STATE DPA-RESET 8\n"
                                                     "[    0.002000000] STATE END\n")));
    EXPECT_THAT(page, HasSubstr("<svg id=\"wires\" role=\"img\" aria-label=\"what the wires "
                                "did\" viewBox="));
    EXPECT_THAT(page, HasSubstr("fill=\"#b00020\" font-weight=\"bold\">LANE3-LOCK</text>"));
    EXPECT_THAT(page, Not(HasSubstr("http")));
    EXPECT_THAT(sim::report({}), HasSubstr("<p id=\"wires\">No wire changed.</p>"));
}

// --- Long tables ---

std::string pageOfViolations(unsigned count) {
    return pageOf(std::vector<std::string>(count, "VIOLATION sensor-asleep: register 0x04"));
}

TEST(ReportedTable, IsFoldedWhereItIsLong) {
    EXPECT_THAT(pageOfViolations(30), HasSubstr("</h2>\n<table id=\"violations\">"));
    EXPECT_THAT(pageOfViolations(31),
                HasSubstr("</h2>\n<details><summary>31 rows, 31 of them in red</summary>\n"
                          "<table id=\"violations\">"));
}

TEST(ReportedClamps, AreThoseOfThePrintedLines) {
    const std::string printed =
        "interval: asked 20000 us, applied 27000 us, limited by the shortest "
        "interval of 27100 us (result 0: success)\n"
        "exposure: asked 20000 us, applied 20000 us (result 0: success)\n"
        "x: asked <1>, applied 2 & 3, limited by 4 (result 5";
    EXPECT_THAT(
        sim::report({}, {}, printing(printed)),
        HasSubstr("<table id=\"clamps\">\n<tr><th>Setting</th><th>Asked</th><th>Applied</th>"
                  "<th>Limited by</th></tr>\n<tr><td>interval</td><td>20000 us</td><td>27000 "
                  "us</td><td>the shortest interval of 27100 us</td></tr>\n<tr><td>x</td>"
                  "<td>&lt;1&gt;</td><td>2 &amp; 3</td><td>4</td></tr>\n</table>"));
}

TEST(ReportedClamps, AreMissedWithTheReason) {
    EXPECT_THAT(sim::report({}, {}, printing("all is well\n")),
                HasSubstr("<p id=\"clamps\">none that the program told</p>"));
    EXPECT_THAT(sim::report({}),
                HasSubstr("<p id=\"clamps\">the program's output was not kept, for there was no "
                          "pseudo-terminal: put it into a pipe, virtual-head --report FILE ... | "
                          "cat</p>"));
}

sim::tsThumbnail aThumbnail(const std::string& bytes) {
    sim::tsThumbnail small;
    small.width = 2;
    small.height = 1;
    small.png = bytes;
    small.frameWidth = 240;
    small.frameHeight = 128;
    small.time = std::chrono::microseconds(1'234'567);
    small.settings = "time: 1.234567000 s\nframe: 7\nexposure: 30000.000 us\n"
                     "analogue gain: 1.000\nADC: 12 bits\n";
    small.file = "frame-0001.png";
    return small;
}

TEST(ReportedPicture, IsEmbeddedWithWhatItsTextChunkSays) {
    EXPECT_THAT(sim::report({}, {aThumbnail("Man")}),
                HasSubstr("<figure id=\"frame1\"><img width=\"2\" height=\"1\" "
                          "alt=\"frame-0001.png\" src=\"data:image/png;base64,TWFu\"><figcaption>"
                          "frame-0001.png at 1234.567 ms, 240 x 128: exposure 30000.000 us, "
                          "analogue gain 1.000, ADC 12 bits</figcaption></figure>\n"));
}

TEST(ReportedPicture, KeepsEveryByte) {
    EXPECT_THAT(sim::report({}, {aThumbnail("Ma")}), HasSubstr("base64,TWE=\""));
    EXPECT_THAT(sim::report({}, {aThumbnail("M")}), HasSubstr("base64,TQ==\""));
    EXPECT_THAT(sim::report({}, {aThumbnail(std::string("\xFF\0\xFE", 3))}),
                HasSubstr("base64,/wD+\""));
    EXPECT_THAT(sim::report({}, {aThumbnail("")}), HasSubstr("base64,\""));
}

TEST(ReportedPicture, IsMissedWhereThereIsNone) {
    EXPECT_THAT(sim::report({}), HasSubstr("<p id=\"pictures\">none</p>"));
    EXPECT_THAT(sim::report({}, {aThumbnail("M")}), Not(HasSubstr("id=\"pictures\"")));
}

} // namespace
