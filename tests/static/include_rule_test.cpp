// Who may include whom. The folders' rule is in docs/architecture.md.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace {

struct tsInclude {
    std::string file; // relative to the source directory
    std::string what; // as written
    bool quoted;      // "..." rather than <...>
};

const std::set<std::string> kProjectFolders{"apps",   "bench",  "common", "examples", "fpga",
                                            "plugin", "sensor", "sim",    "tests"};

std::vector<tsInclude> includesOf(const std::string& folder) {
    std::vector<tsInclude> result;
    const fs::path root(HEAD_SOURCE_DIRECTORY);
    constexpr std::string_view kDirective = "#include ";
    for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
        if (entry.path().extension() != ".h" && entry.path().extension() != ".cpp") {
            continue;
        }
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            // clang-format has made sure that directives are written in this one way.
            if (line.starts_with(kDirective) && line.size() > kDirective.size() + 2) {
                const char opening = line[kDirective.size()];
                const auto from = kDirective.size() + 1;
                const auto to = line.find(opening == '<' ? '>' : '"', from);
                result.push_back({fs::relative(entry.path(), root).string(),
                                  line.substr(from, to - from), opening == '"'});
            }
        }
    }
    return result;
}

/// The part before the first slash: the folder of a project header, the library of another.
std::string home(const std::string& include) {
    return include.substr(0, include.find('/'));
}

/// \return "file includes what" for each include of a project or platform header that is not
/// allowed
std::vector<std::string> offenders(const std::string& folder, const std::set<std::string>& allowed,
                                   const std::set<std::string>& allowedHeaders = {}) {
    std::vector<std::string> result;
    for (const tsInclude& include : includesOf(folder)) {
        const std::string from = home(include.what);
        const bool ours = kProjectFolders.contains(from) || from == "varnox" || from == "pellum";
        if (ours && from != folder && !allowed.contains(from) &&
            !allowedHeaders.contains(include.what)) {
            result.push_back(include.file + " includes " + include.what);
        }
    }
    return result;
}

TEST(IncludeRule, CommonIncludesPlatformHeadersOnly) {
    EXPECT_THAT(offenders("common", {"varnox"}), testing::IsEmpty());
}

TEST(IncludeRule, SensorIncludesCommonAndPlatformHeaders) {
    EXPECT_THAT(offenders("sensor", {"common", "varnox", "pellum"}), testing::IsEmpty());
}

TEST(IncludeRule, FpgaIncludesCommonAndPlatformHeaders) {
    EXPECT_THAT(offenders("fpga", {"common", "varnox", "pellum"}), testing::IsEmpty());
}

TEST(IncludeRule, PluginIncludesTheProductAndPlatformHeaders) {
    EXPECT_THAT(offenders("plugin", {"common", "sensor", "fpga", "varnox", "pellum"}),
                testing::IsEmpty());
}

TEST(IncludeRule, TheVirtualHeadKnowsRegisterTablesAndNoProductCode) {
    EXPECT_THAT(offenders("sim", {},
                          {"sensor/registers.h", "sensor/supplies.h", "fpga/registers.h",
                           "common/register_field.h", "varnox/core_registers.h"}),
                testing::IsEmpty());
}

// Rooms of the virtual head, in the order in which they may know each other.
const std::vector<std::string> kRooms{"base",     "journal",    "chips", "pictures",
                                      "scenario", "recordings", "head",  "boundary"};
const std::string kAfter = "after"; // what is made of a run later knows the text of its trace only

/// The room of a path like "sim/chips/link.h"; "" for what lies in sim/ itself: the door.
std::string roomOf(const std::string& path) {
    const auto from = path.find('/') + 1;
    const auto to = path.find('/', from);
    return to == std::string::npos ? "" : path.substr(from, to - from);
}

bool mayKnow(const std::string& room, const std::string& other) {
    if (room == other || room.empty()) {
        return true;
    }
    if (room == kAfter) {
        return other == kRooms.front();
    }
    const auto at = [](const std::string& name) {
        return std::find(kRooms.begin(), kRooms.end(), name) - kRooms.begin();
    };
    return other != kAfter && !other.empty() && at(other) < at(room);
}

/// \return "file includes what" for each include inside sim/ that `mayKnow` forbids
std::vector<std::string> upwardIncludes() {
    std::vector<std::string> result;
    for (const tsInclude& include : includesOf("sim")) {
        if (home(include.what) == "sim" && !mayKnow(roomOf(include.file), roomOf(include.what))) {
            result.push_back(include.file + " includes " + include.what);
        }
    }
    return result;
}

TEST(IncludeRule, NoRoomOfTheVirtualHeadKnowsALaterOneOrTheDoor) {
    EXPECT_THAT(upwardIncludes(), testing::IsEmpty());
}

TEST(IncludeRule, EveryFileOfTheVirtualHeadLivesInAKnownRoom) {
    std::set<std::string> rooms(kRooms.begin(), kRooms.end());
    rooms.insert(kAfter);
    std::set<std::string> found;
    for (const tsInclude& include : includesOf("sim")) {
        found.insert(roomOf(include.file));
    }
    found.erase(""); // the door
    EXPECT_EQ(found, rooms);
}

// The rooms are a table in the documentation, too: in the same order.
TEST(IncludeRule, TheRoomsAreThoseOfTheDocumentation) {
    std::ifstream file(fs::path(HEAD_SOURCE_DIRECTORY) / "docs" / "architecture.md");
    std::vector<std::string> documented;
    constexpr std::string_view kRow = "| `sim/";
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(kRow) &&
            line[kRow.size()] != '`') { // the folder itself has a row, too
            const auto to = line.find('`', kRow.size());
            documented.push_back(line.substr(kRow.size(), to - kRow.size()));
        }
    }
    std::vector<std::string> expected;
    for (const std::string& room : kRooms) {
        expected.push_back(room + "/");
    }
    expected.push_back("virtual_head.h");
    expected.push_back(kAfter + "/");
    EXPECT_EQ(documented, expected);
}

TEST(IncludeRule, OneRoomsPermissionIsNotAnothers) {
    EXPECT_TRUE(mayKnow("chips", "journal"));
    EXPECT_FALSE(mayKnow("journal", "chips"));
    EXPECT_FALSE(mayKnow("chips", ""));
    EXPECT_TRUE(mayKnow("", "boundary"));
    EXPECT_TRUE(mayKnow("after", "base"));
    EXPECT_FALSE(mayKnow("after", "journal"));
    EXPECT_FALSE(mayKnow("boundary", "after"));
    EXPECT_EQ(roomOf("sim/chips/link.h"), "chips");
    EXPECT_EQ(roomOf("sim/after/report/page.h"), "after");
    EXPECT_EQ(roomOf("sim/virtual_head.h"), "");
}

TEST(IncludeRule, ApplicationsKnowPublicPlatformHeadersOnly) {
    // The launcher hands the virtual head its scenario and prints its tables. The live view names
    // what the head's registers hold.
    const auto allowed = [](const std::string& offender) {
        const bool live = offender.starts_with("apps/live/");
        return ((live || offender.starts_with("apps/launcher/")) &&
                offender.find(" includes sim/") != std::string::npos) ||
               (live && offender.ends_with("/registers.h"));
    };
    std::vector<std::string> found;
    for (const std::string& offender : offenders("apps", {"varnox", "pellum"})) {
        if (!allowed(offender)) {
            found.push_back(offender);
        }
    }
    EXPECT_THAT(found, testing::IsEmpty());
}

TEST(IncludeRule, ExamplesKnowWhatIsInstalledOnly) {
    EXPECT_THAT(offenders("examples", {"varnox", "pellum"}, {"sim/virtual_head.h"}),
                testing::IsEmpty());
    EXPECT_THAT(offenders("examples", {}), testing::Not(testing::IsEmpty()));
}

TEST(IncludeRule, PlatformLibrariesKnowNothingOfTheProduct) {
    std::vector<std::string> found;
    for (const tsInclude& include : includesOf("platform")) {
        if (kProjectFolders.contains(home(include.what))) {
            found.push_back(include.file + " includes " + include.what);
        }
    }
    EXPECT_THAT(found, testing::IsEmpty());
}

TEST(IncludeRule, ProjectHeadersAreQuotedAndPlatformHeadersAreNot) {
    std::vector<std::string> found;
    for (const char* folder : {"common", "sensor", "fpga", "plugin"}) {
        for (const tsInclude& include : includesOf(folder)) {
            if (kProjectFolders.contains(home(include.what)) != include.quoted) {
                found.push_back(include.file + " includes " + include.what);
            }
        }
    }
    EXPECT_THAT(found, testing::IsEmpty());
}

TEST(IncludeRule, TheTestSeesTheTree) {
    // A pattern that matches nothing would pass everything above.
    EXPECT_GT(includesOf("plugin").size(), 20U);
    EXPECT_THAT(offenders("plugin", {}), testing::Not(testing::IsEmpty()));
}

} // namespace
