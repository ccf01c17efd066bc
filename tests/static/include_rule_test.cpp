// Who may include whom. The folders' rule is in docs/architecture.md.

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

const std::set<std::string> kProjectFolders{"apps",   "bench",  "common", "fpga",
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
                          {"sensor/registers.h", "fpga/registers.h", "common/register_field.h",
                           "varnox/core_registers.h"}),
                testing::IsEmpty());
}

TEST(IncludeRule, ApplicationsKnowPublicPlatformHeadersOnly) {
    // The launcher hands the virtual head its scenario and prints its tables.
    std::vector<std::string> found;
    for (const std::string& offender : offenders("apps", {"varnox", "pellum"})) {
        if (!offender.starts_with("apps/launcher/") ||
            offender.find(" includes sim/") == std::string::npos) {
            found.push_back(offender);
        }
    }
    EXPECT_THAT(found, testing::IsEmpty());
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
