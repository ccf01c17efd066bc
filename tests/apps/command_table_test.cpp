#include "apps/camhost/command_table.h"

#include <stdexcept>

#include <gmock/gmock.h>

using camhost::makeCommandTable;
using camhost::tcCommandTable;
using camhost::tsCommand;
using testing::HasSubstr;

TEST(CommandTable, RefusesTwoCommandsOfOneName) {
    tcCommandTable table;
    tsCommand command;
    command.name = "twice";
    table.add(command);
    EXPECT_THROW(table.add(command), std::logic_error);
}

TEST(CommandTable, HelpsWithEveryCommand) {
    const tcCommandTable table = makeCommandTable();
    const std::string help = table.help([](const tsCommand&) { return ""; });
    for (const tsCommand& command : table.commands()) {
        EXPECT_THAT(help, HasSubstr("  " + command.name)) << command.name;
        EXPECT_THAT(help, HasSubstr(command.summary)) << command.name;
        EXPECT_FALSE(command.examples.empty()) << command.name;
        EXPECT_TRUE(command.run) << command.name;
    }
}

TEST(CommandTable, FindsTheNameThatWasMeant) {
    const tcCommandTable table = makeCommandTable();
    EXPECT_EQ(table.similarTo("exposur"), "exposure");
    EXPECT_EQ(table.similarTo("expousre"), "exposure");
    EXPECT_EQ(table.similarTo("innit"), "init");
    EXPECT_EQ(table.similarTo("exposu"), "exposure");
    EXPECT_EQ(table.similarTo("expos"), "");
    EXPECT_EQ(table.similarTo("exposurexx"), "exposure");
    EXPECT_EQ(table.similarTo("exposurexxx"), "");
    EXPECT_EQ(table.similarTo("nonsense"), "");
    EXPECT_EQ(table.similarTo(""), "");
}

TEST(CommandTable, BringsSettingsBackInTheOrderInWhichTheyDependOnEachOther) {
    std::vector<std::string> names;
    const tcCommandTable table = makeCommandTable();
    for (const tsCommand* command : table.settings())
        names.push_back(command->name);
    EXPECT_THAT(names, testing::ElementsAre("clock", "trigger", "vbin", "roi", "regions", "mirror",
                                            "interval", "exposure", "strobe", "bpp", "color",
                                            "pattern", "gain", "black", "gamma", "white"));
}
