#include "apps/failures/failure_table.h"

#include <fstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

using failures::tcFailureTable;
using failures::tsExplanation;
using testing::HasSubstr;

namespace {

// Two supplies, four lanes, two blocks.
constexpr const char* kBegin = R"({"format": 1, "lanes": 4, "blocks": {"1": "base", "4": "pulses"},
  "supplies": {"VDD1": {"least": 1.1, "most": 1.25}, "VDD2": {"least": 3, "most": 3.5}},
  "failures": [)";

class FailureTable : public testing::Test {
protected:
    std::string write(const std::string& text) {
        const auto path = m_folder.path() / "board.failures.json";
        std::ofstream(path) << text;
        return path.string();
    }

    tcFailureTable table(const std::string& failures) {
        return tcFailureTable(write(kBegin + failures + "]}"));
    }

    // A failure of this condition that says this.
    static std::string failure(const std::string& name, const std::string& when,
                               const std::string& says) {
        return R"({"name": ")" + name + R"(", "stage": "s", "when": )" + when + R"(, "says": ")" +
               says + R"(", "causes": [{"cause": "c", "measure": "m"}]})";
    }

    // What a table of this one failure says.
    std::string said(const std::string& when, const std::string& says, int result,
                     const std::vector<std::string>& lines) {
        const auto explanation = table(failure("one", when, says)).explain(result, lines);
        return explanation ? explanation->what : "nothing";
    }

    std::string complaint(const std::string& text) {
        try {
            const tcFailureTable table(write(text));
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no complaint";
    }

    tcTemporaryDirectory m_folder;
};

TEST_F(FailureTable, TheFirstThatFitsCounts) {
    const tcFailureTable both = table(failure("a", R"({"result": -1, "lines": ["^x"]})", "A") +
                                      "," + failure("b", R"({"lines": ["^x"]})", "B"));
    EXPECT_EQ(both.explain(-1, {"xy"})->name, "a");
    EXPECT_EQ(both.explain(-2, {"xy"})->name, "b");
    EXPECT_FALSE(both.explain(-1, {"yx"}));
    EXPECT_FALSE(both.explain(-1, {}));
}

TEST_F(FailureTable, EachExpressionNeedsALineAndTakesTheNewest) {
    const std::string when = R"({"lines": ["^try (\\d)$", "^(\\w+) on (\\w+)$"]})";
    EXPECT_EQ(said(when, "{2} {3} {1}", 9, {"try 1", "red on blue", "try 2", "x"}), "red blue 2");
    EXPECT_EQ(said(when, "{1}", 9, {"try 1", "try 2"}), "nothing");
}

TEST_F(FailureTable, LanesAreTheBitsOfAMaskThatAreClear) {
    const std::string when = R"({"lines": ["^Lock: ([0-9a-f]+)$"]})";
    EXPECT_EQ(said(when, "{lanes 1} did not lock", 0, {"Lock: d"}), "lane 1 did not lock");
    EXPECT_EQ(said(when, "{lanes 1} did not lock", 0, {"Lock: 5"}), "lanes 1, 3 did not lock");
    EXPECT_EQ(said(when, "{lanes 1}", 0, {"Lock: 0"}), "lanes 0, 1, 2, 3");
}

TEST_F(FailureTable, BlocksAreTheBitsOfTheResult) {
    const std::string when = R"({"blocks": true})";
    EXPECT_EQ(said(when, "{blocks}", 1, {}), "base");
    EXPECT_EQ(said(when, "{blocks}", 5, {}), "base, pulses");
    EXPECT_EQ(said(when, "{blocks}", 0, {}), "nothing");
    EXPECT_EQ(said(when, "{blocks}", 3, {}), "nothing") << "bit 2 is no block";
    EXPECT_EQ(said(when, "{blocks}", -4, {}), "nothing");
}

TEST_F(FailureTable, ASupplyIsLowBelowItsLimitAndHighAboveIt) {
    const std::string says = "{supply} {volts} {least} {most}";
    const std::string low = R"({"supply": "low"})";
    const std::string high = R"({"supply": "high"})";
    EXPECT_EQ(said(low, says, 0, {"VDD1: 1.0999"}), "VDD1 1.0999 1.1 1.25");
    EXPECT_EQ(said(low, says, 0, {"VDD1: 1.1"}), "nothing");
    EXPECT_EQ(said(high, says, 0, {"VDD2: 3.5001"}), "VDD2 3.5001 3 3.5");
    EXPECT_EQ(said(high, says, 0, {"VDD2: 3.5"}), "nothing");
    EXPECT_EQ(said(low, says, 0, {"VDD1: 1.0", "VDD1: 1.2"}), "nothing") << "measured once more";
    EXPECT_EQ(said(low, says, 0, {"VDD11: 1.0"}), "nothing") << "another supply";
    EXPECT_EQ(said(low, says, 0, {}), "nothing");
}

TEST_F(FailureTable, ASupplyOutOfNarrowerLimitsIsToldWithoutTheUsualOnes) {
    const tcFailureTable shipped(HEAD_FAILURES);
    const auto explanation =
        shipped.explain(-4, {"VDD1.2: 1.2", "VDD3.3AVDDH_DIV2: 3.3", "VDD3.3SVDD_DIV2: 3.3"});
    ASSERT_TRUE(explanation);
    EXPECT_EQ(explanation->name, "supply");
    EXPECT_EQ(explanation->what, "a supply is out of the limits of 3u5mgxs_sensor.ini");
}

TEST_F(FailureTable, TheShippedOneKnowsNoFailureOfASuccess) {
    const tcFailureTable shipped(HEAD_FAILURES);
    EXPECT_FALSE(shipped.explain(0, {"DPA Lock: fff"}));
    EXPECT_FALSE(shipped.explain(3, {}));
}

TEST_F(FailureTable, WhatCannotBeUnderstoodIsNamed) {
    EXPECT_THROW(tcFailureTable("/no/such.json"), std::runtime_error);
    EXPECT_THAT(complaint("{"), HasSubstr("board.failures.json is no table of failures, at its "
                                          "beginning: "));
    EXPECT_THAT(complaint(R"({"format": 2})"), HasSubstr("at its beginning: its format is not 1"));
    EXPECT_THAT(complaint(R"({"format": 1})"), HasSubstr("at \"lanes\": "));
    for (const char* lanes : {"0", "33"}) {
        EXPECT_THAT(complaint(R"({"format": 1, "lanes": )" + std::string(lanes) + "}"),
                    HasSubstr(std::string("at \"lanes\": there are 1 to 32 lanes, not ") + lanes));
    }
    EXPECT_THAT(complaint(R"({"format": 1, "lanes": 4, "blocks": {"x": "y"}})"),
                HasSubstr("at \"blocks\": "));
    const auto broken = [&](const std::string& when, const std::string& says) {
        return complaint(kBegin + failure("ok", "{}", "x") + "," + failure("two", when, says) +
                         "]}");
    };
    EXPECT_THAT(broken(R"({"lines": ["("]})", "x"), HasSubstr("at failure 2: "));
    EXPECT_THAT(broken(R"({"supply": "odd"})", "x"),
                HasSubstr("at failure 2: \"supply\" is low or high, not \"odd\""));
    const std::string group = "{\"lines\": [\"a(b)\"]}";
    EXPECT_THAT(broken(group, "{2}"),
                HasSubstr("at failure 2: \"says\" has a place {2} that nothing fills"));
    EXPECT_THAT(broken("{}", "{blocks}"), HasSubstr("{blocks}"));
    EXPECT_THAT(broken(group, "open {1"), HasSubstr("at failure 2: "));
    EXPECT_EQ(broken(group, "{1} {lanes 1}"), "no complaint");
}

TEST_F(FailureTable, PeopleGetThreeLines) {
    tsExplanation explanation{"n", "s", "it broke", {{"a", "b"}}};
    EXPECT_EQ(textOf(explanation), "  it broke\n  likely: a\n  measure: b");
    explanation.causes.insert(explanation.causes.end(), {{"c", "d"}, {"e", "f"}, {"g", "h"}});
    EXPECT_EQ(textOf(explanation), "  it broke\n"
                                   "  likely: (1) a; (2) c; (3) e\n"
                                   "  measure: (1) b; (2) d; (3) f");
}

TEST_F(FailureTable, BackquotesAreForPages) {
    const std::string entry =
        R"({"name": "n", "stage": "s", "when": {}, "says": "x",
            "causes": [{"cause": "no `a`", "measure": "`b` and `c`"}]})";
    const auto explanation = table(entry).explain(7, {});
    EXPECT_EQ(explanation->causes[0].cause, "no a");
    EXPECT_EQ(explanation->causes[0].measure, "b and c");
}

// ---- What somebody sees who examines the head

constexpr const char* kHead = R"("head": {
  "devices": [{"name": "port", "what": "a port", "path": "{spi}", "kind": "spi"},
              {"name": "chip", "what": "a chip", "path": "/dev/gpiochip", "numbers": 4, "kind": "gpio"}],
  "lines": [{"name": "ON"}, {"name": "TRIG", "only_for": "triggers"}],
  "consumer": "me",
  "monitor": {"chip": "ADC", "bus": "/dev/i2c-7", "address": "0x4A", "zero_bits": "0xC0"},
  "settings": {"file": "registers.txt", "pause": "0x400"},
  "limits": {"file": "limits.ini", "least": "Min", "most": "Max"},
  "link": {"status": "^S (\\d) (\\d)$", "flags": ["a", "l"], "aligned": "a", "lanes": "^L (\\w+)$",
           "end": "^end$"}})";

TEST_F(FailureTable, FactsOfTheHeadAreRead) {
    const tcFailureTable read(write(kBegin + std::string("], ") + kHead + "}"));
    ASSERT_TRUE(read.head());
    const failures::tsHeadFacts& head = *read.head();
    ASSERT_EQ(head.devices.size(), 2U);
    EXPECT_EQ(head.devices[0].path, "{spi}");
    EXPECT_EQ(head.devices[0].kind, failures::teDeviceKind::eSpi);
    EXPECT_EQ(head.devices[0].numbers, 0U);
    EXPECT_EQ(head.devices[1].numbers, 4U);
    EXPECT_EQ(head.devices[1].kind, failures::teDeviceKind::eGpio);
    ASSERT_EQ(head.lines.size(), 2U);
    EXPECT_EQ(head.lines[0].onlyFor, "");
    EXPECT_EQ(head.lines[1].onlyFor, "triggers");
    EXPECT_EQ(head.consumer, "me");
    EXPECT_EQ(head.monitor->address, 0x4A);
    EXPECT_EQ(head.monitor->zeroBits, 0xC0);
    EXPECT_EQ(head.settings->pause, 0x400);
    EXPECT_EQ(head.limits->most, "Max");
    EXPECT_EQ(head.link->flags.size(), 2U);
    EXPECT_EQ(read.lanes(), 4U);
    EXPECT_EQ(read.supplies().at("VDD2").most, 3.5);
    EXPECT_FALSE(table("").head()) << "a table may say nothing of its head";
}

TEST_F(FailureTable, WhatIsWrongWithFactsOfTheHeadIsNamed) {
    const auto changed = [&](const std::string& from, const std::string& to) {
        std::string head = kHead;
        head.replace(head.find(from), from.size(), to);
        return complaint(kBegin + std::string("], ") + head + "}");
    };
    EXPECT_EQ(changed("a port", "a port"), "no complaint");
    EXPECT_THAT(
        changed("\"kind\": \"spi\"", "\"kind\": \"usb\""),
        HasSubstr("at \"head\", device 1: \"kind\" is spi, gpio, i2c or memory, not \"usb\""));
    EXPECT_THAT(changed("\"numbers\"", "\"number\""),
                HasSubstr("at \"head\", device 2: \"number\" is no key here"));
    EXPECT_THAT(changed("a chip", ""), HasSubstr("at \"head\", device 2: \"what\" is empty"));
    EXPECT_THAT(changed("\"only_for\"", "\"for\""),
                HasSubstr("at \"head\", line 2: \"for\" is no key here"));
    EXPECT_THAT(changed("\"consumer\"", "\"consumers\""),
                HasSubstr("at \"head\": \"consumers\" is no key here"));
    EXPECT_THAT(changed("\"0x4A\"", "\"0x80\""),
                HasSubstr("at \"head\", \"monitor\": \"address\" has 7 bits"));
    EXPECT_THAT(changed("\"0x4A\"", "\"4A\""),
                HasSubstr("at \"head\", \"monitor\": \"address\" is no hexadecimal number such as "
                          "\"0x49\" that fits, but \"4A\""));
    EXPECT_THAT(changed("\"0xC0\"", "\"0x100\""), HasSubstr("\"zero_bits\" is no hexadecimal"));
    EXPECT_THAT(changed("\"0x400\"", "\"0x10000\""),
                HasSubstr("at \"head\", \"settings\": \"pause\" is no hexadecimal"));
    EXPECT_THAT(changed("\"Min\"", "3"), HasSubstr("at \"head\", \"limits\": "));
    EXPECT_THAT(changed("^S (\\\\d) ", "^S "),
                HasSubstr("at \"head\", \"link\": \"status\" has another number of groups than "
                          "\"flags\" names"));
    EXPECT_THAT(changed("\"aligned\": \"a\"", "\"aligned\": \"b\""),
                HasSubstr("\"aligned\" is none of \"flags\""));
    EXPECT_THAT(changed("^L (\\\\w+)$", "^L"), HasSubstr("\"lanes\" has one group, the mask"));
}

TEST_F(FailureTable, AFindingIsExplainedByItsOwnEntries) {
    const std::string entry =
        R"({"name": "n", "stage": "devices", "when": {"finding": "device-missing"WHERE},
        "says": "no {path}", "causes": [{"cause": "no `{what}`", "measure": "`ls {path}`: {error}"}]})";
    const auto of = [&](const std::string& where) {
        std::string text = entry;
        return text.replace(text.find("WHERE"), 5, where);
    };
    const tcFailureTable both = table(of(R"(, "of": "bus")") + "," + of(""));
    const failures::tsFinding finding{
        "device-missing", "port", {{"path", "/dev/x"}, {"what", "a port"}, {"error", "E"}}};
    const auto explanation = both.explain(finding);
    ASSERT_TRUE(explanation);
    EXPECT_EQ(explanation->what, "no /dev/x");
    EXPECT_EQ(explanation->causes[0].cause, "no a port");
    EXPECT_EQ(explanation->causes[0].measure, "ls /dev/x: E");
    EXPECT_FALSE(both.explain(failures::tsFinding{"line-busy", "", {}}));
    EXPECT_FALSE(table(of(R"(, "of": "bus")")).explain(finding)) << "another device";
    EXPECT_FALSE(both.explain(-4, {"anything"})) << "a finding is no result";
}

TEST_F(FailureTable, AFindingThatNobodyMakesAndAPlaceThatItDoesNotFillAreRefused) {
    const auto broken = [&](const std::string& when, const std::string& says) {
        return complaint(kBegin + failure("one", when, says) + "]}");
    };
    EXPECT_THAT(broken(R"({"finding": "smoke"})", "x"),
                HasSubstr("at failure 1: \"finding\" is none that is known: \"smoke\""));
    EXPECT_THAT(broken(R"({"finding": "line-missing"})", "{chip}"),
                HasSubstr("\"says\" has a place {chip} that nothing fills"));
    const std::string measure =
        R"({"name": "n", "stage": "s", "when": {"finding": "line-missing"}, "says": "x",
            "causes": [{"cause": "c", "measure": "{chip}"}]})";
    EXPECT_THAT(complaint(kBegin + measure + "]}"),
                HasSubstr("\"measure\" has a place {chip} that nothing fills"));
}

TEST_F(FailureTable, LimitsOfAHeadsOwnTakeThePlaceOfTheUsualOnes) {
    const tcFailureTable usual = table(failure("low", R"({"supply": "low"})", "{supply} {least}"));
    const tcFailureTable own = usual.withLimits({{"VDD1", {1.2, 1.25}}});
    EXPECT_FALSE(usual.explain(0, {"VDD1: 1.15"}));
    EXPECT_EQ(own.explain(0, {"VDD1: 1.15"})->what, "VDD1 1.2");
}

} // namespace
