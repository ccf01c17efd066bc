#include "apps/camhost/facts.h"

#include <cstdint>
#include <limits>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

using camhost::jsonText;
using camhost::tcFacts;

namespace {

TEST(Facts, AreWrittenAsWhatTheyAre) {
    EXPECT_EQ(jsonText({}), "null");
    EXPECT_EQ(jsonText(nullptr), "null");
    EXPECT_EQ(jsonText(true), "true");
    EXPECT_EQ(jsonText(std::int8_t{-3}), "-3");
    EXPECT_EQ(jsonText(std::uint8_t{200}), "200");
    EXPECT_EQ(jsonText(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(jsonText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(jsonText(0.1), "0.1");
    EXPECT_EQ(jsonText(2.0), "2.0");
    EXPECT_EQ(jsonText("a \"text\"\n"), R"("a \"text\"\n")");
    EXPECT_EQ(jsonText(std::string("with \0 in it", 12)), R"("with \u0000 in it")");
    EXPECT_EQ(jsonText(std::string_view("part").substr(1)), R"("art")");
}

TEST(Facts, OfContainersAreListsAndObjects) {
    EXPECT_EQ(jsonText(tcFacts::list()), "[]");
    EXPECT_EQ(jsonText(tcFacts::object()), "{}");
    EXPECT_EQ(jsonText(std::vector<std::string>{"one", "two"}), R"(["one","two"])");
    EXPECT_EQ(jsonText(std::vector<std::vector<unsigned>>{{1, 2}, {}}), "[[1,2],[]]");
    EXPECT_EQ(jsonText(std::vector<bool>{true, false}), "[true,false]");
    EXPECT_EQ(jsonText(std::map<std::string, double>{{"vdd", 1.5}}), R"({"vdd":1.5})");
}

TEST(Facts, KeepTheOrderOfTheirMembers) {
    tcFacts facts = {{"z", 1}, {"a", {{"y", 2}, {"b", nullptr}}}};
    facts["m"] = 3;
    facts["z"] = "again";
    EXPECT_EQ(jsonText(facts), R"({"z":"again","a":{"y":2,"b":null},"m":3})");
    EXPECT_EQ(facts.size(), 3U);
    EXPECT_EQ(facts.members().at(2).name, "m");
}

TEST(Facts, HaveTheLastValueOfANameThatIsThereTwice) {
    EXPECT_EQ(jsonText({{"a", 1}, {"b", 2}, {"a", 3}}), R"({"a":3,"b":2})");
}

TEST(Facts, AreNullForAMemberThatIsLookedForOnly) {
    tcFacts facts = tcFacts::object();
    (void)facts["new"];
    EXPECT_EQ(jsonText(facts), R"({"new":null})");
}

TEST(Facts, OfNothingBecomeWhatTheFirstValueMakesThem) {
    tcFacts list;
    list.push_back(1);
    EXPECT_EQ(jsonText(list), "[1]");
    tcFacts object;
    object["a"]["b"] = 1;
    EXPECT_EQ(jsonText(object), R"({"a":{"b":1}})");
}

TEST(Facts, DoNotBecomeSomethingElse) {
    tcFacts number(3);
    EXPECT_THROW(number.push_back(1), std::logic_error);
    EXPECT_THROW((void)number["a"], std::logic_error);
    tcFacts list = tcFacts::list();
    EXPECT_THROW((void)list["a"], std::logic_error);
    tcFacts object = tcFacts::object();
    EXPECT_THROW(object.push_back(1), std::logic_error);
}

TEST(Facts, TellHowManyValuesTheyHave) {
    EXPECT_TRUE(tcFacts().empty());
    EXPECT_TRUE(tcFacts("text").empty());
    EXPECT_TRUE(tcFacts::list().empty());
    EXPECT_EQ(tcFacts(std::vector<int>{1, 2}).size(), 2U);
    EXPECT_THAT(tcFacts(std::vector<int>{1, 2}).members(), testing::IsEmpty());
}

TEST(Facts, AreCopiedWhole) {
    tcFacts one = {{"list", std::vector<int>{1}}};
    tcFacts other = one;
    other["list"].push_back(2);
    EXPECT_EQ(jsonText(one), R"({"list":[1]})");
    EXPECT_EQ(jsonText(other), R"({"list":[1,2]})");
    one = std::move(other);
    EXPECT_EQ(jsonText(one), R"({"list":[1,2]})");
}

TEST(Facts, TakeThemselvesAndTheirParts) {
    tcFacts facts = {{"a", {{"b", 1}}}};
    facts["a"] = facts;
    EXPECT_EQ(jsonText(facts), R"({"a":{"a":{"b":1}}})");
    facts = facts["a"]["a"];
    EXPECT_EQ(jsonText(facts), R"({"b":1})");
    facts = std::move(facts["b"]);
    EXPECT_EQ(jsonText(facts), "1");
}

TEST(Facts, AreWrittenAsUtf8WhateverTheBoardPrinted) {
    EXPECT_EQ(jsonText("caf\xC3\xA9 \xFF end"), "\"caf\xC3\xA9 \xEF\xBF\xBD end\"");
}

} // namespace
