#include <thread>

#include <gmock/gmock.h>

#include "apps/camhost/interrupt.h"
#include "tests/apps/camhost_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class WatchTest : public CamhostTest {
protected:
    Varnox::tcRegisterFile& file = *Varnox::tcRegisterFile::getInstance(nullptr, true);
};

} // namespace

TEST_F(WatchTest, ShowsWhatHoldsAtFirst) {
    file.update_word(0x60000, 5);
    EXPECT_EQ(reply("watch 0 0x60000 0x60004"), "watch: 0 changes in 0 ms");
    EXPECT_THAT(lines, ElementsAre("[    0.000 s] 0x60000: 5", "[    0.000 s] 0x60004: nothing"));
}

TEST_F(WatchTest, ShowsChangesAsTheyCome) {
    file.update_word(0x60010, 5);
    std::thread publishing([&] {
        waitUntil([this] { return shown == 2; });
        file.update_word(0x60010, 6);
        file.update_word(0x60018, 1); // nobody watches it
        waitUntil([this] { return shown == 3; });
        file.update_word(0x60014, 7);
    });
    EXPECT_EQ(reply("watch 3000 0x60010 0x60014"), "watch: 2 changes in 3000 ms");
    publishing.join();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[2], MatchesRegex("\\[    [0-2]\\.[0-9]+ s\\] 0x60010: 5 -> 6"));
    EXPECT_THAT(lines[3], MatchesRegex("\\[    [0-2]\\.[0-9]+ s\\] 0x60014: nothing -> 7"));
}

TEST_F(WatchTest, LetsOthersWorkMeanwhile) {
    std::thread setting([&] {
        waitUntil([this] { return shown == 1; });
        EXPECT_TRUE(executor->execute("exposure 4440").ok());
        waitUntil([this] { return shown == 2; });
        camhost::tcInterrupt::request();
    });
    EXPECT_EQ(run("watch 3600000 exposure").status, camhost::teExit::eInterrupted);
    setting.join();
    camhost::tcInterrupt::clear();
    EXPECT_THAT(lines.back(), HasSubstr("-> 4440"));
}

TEST_F(WatchTest, IsStoppedByARequest) {
    std::thread interrupting([this] {
        waitUntil([this] { return shown == 1; });
        camhost::tcInterrupt::request();
    });
    const camhost::tsReply got = run("watch 3600000 exposure");
    interrupting.join();
    camhost::tcInterrupt::clear();
    EXPECT_EQ(got.status, camhost::teExit::eInterrupted);
    EXPECT_EQ(got.text, "watch was interrupted after 0 changes");
}

TEST_F(WatchTest, WantsAWord) {
    EXPECT_EQ(refusal("watch 10"), "watch: WORD is missing; usage: watch MILLISECONDS WORD...");
    EXPECT_EQ(refusal("watch 10 here"),
              "watch: WORD \"here\" is no address, 0 to 0xFFFFFFFF, and no name of a word; "
              "\"regfile names\" lists the names; usage: watch MILLISECONDS WORD...");
}
