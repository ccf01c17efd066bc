#include "apps/camhost/saved_settings.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>

#include "apps/camhost/descriptor.h"
#include "apps/camhost/file_checks.h"

namespace camhost {

namespace {

constexpr const char* kHeading = "# Settings of a camera head. \"load\" brings them back; so does "
                                 "running the file as a script.\n";

/// Commands whose first argument says which one of several they set.
const std::set<std::string> kIndexed = {"mirror", "region"};

constexpr std::size_t kLongestFile = 64 * 1024UL; // far beyond what "save" writes; bytes

[[noreturn]] void fail(const std::string& what, const std::string& file, const std::string& why) {
    throw tcCommandError(what + " \"" + file + "\" failed: " + why +
                         "; name a file that can be used");
}

[[noreturn]] void fail(const std::string& what, const std::string& file, int error) {
    fail(what, file, std::string(std::strerror(error)));
}

void requireSetting(const tcCommandTable& table, const std::string& file, int number,
                    const std::string& name) {
    const tsCommand* const command = table.find(name);
    if (command == nullptr || !command->isSetting)
        throw tcCommandError(file + ":" + std::to_string(number) + ": \"" + name +
                             "\" is no setting; nothing was changed; run the file as a script if "
                             "this is meant");
}

bool writeWhole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    return ::fsync(descriptor) == 0;
}

/// The process's umask can only be read by setting it: commands run one at a time, and nothing else
/// here makes files.
mode_t presentUmask() {
    const mode_t present = ::umask(0);
    ::umask(present);
    return present;
}

std::string textOf(const std::vector<std::string>& lines) {
    std::string text = kHeading;
    for (const std::string& line : lines)
        text += line + "\n";
    return text;
}

} // namespace

std::vector<std::string> presentSettings(tcCall& call) {
    std::vector<std::string> lines;
    for (const tsCommand* command : call.table().settings()) {
        for (std::string& line : command->saved(call))
            lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<tsSettingLine> readSettings(const tcCommandTable& table, const std::string& file) {
    if (const std::string why = notRegular(file); !why.empty())
        fail("reading", file, why);
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        fail("reading", file, errno);
    std::vector<tsSettingLine> lines;
    std::size_t size = 0;
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        size += line.size();
        if (size > kLongestFile)
            fail("reading", file, EFBIG);
        const tsLine split = splitLine(line);
        if (split.words.empty())
            continue;
        requireSetting(table, file, number, split.words.front());
        lines.push_back({number, line});
    }
    if (stream.bad())
        fail("reading", file, EIO);
    return lines;
}

void writeSettings(const std::string& file, const std::vector<std::string>& lines) {
    // The finished file takes the place of what has the name: that must not be a device.
    if (const std::string why = notRegular(file); !why.empty())
        fail("writing", file, why);
    // A name of its own: whatever else lies in the folder, links included, is left alone.
    std::string unfinished = file + ".XXXXXX";
    constexpr mode_t kReadableByAll = 0644;
    const tcDescriptor descriptor(::mkostemp(unfinished.data(), O_CLOEXEC));
    if (!descriptor.isOpen())
        fail("writing", file, errno);
    if (::fchmod(descriptor.get(), kReadableByAll & ~presentUmask()) != 0 ||
        !writeWhole(descriptor.get(), textOf(lines)) ||
        ::rename(unfinished.c_str(), file.c_str()) != 0) {
        const int error = errno;
        ::unlink(unfinished.c_str());
        fail("writing", file, error);
    }
}

std::string settingKey(const std::string& line) {
    const tsLine split = splitLine(line);
    std::string key = split.words.front();
    if (kIndexed.contains(key) && split.words.size() > 1)
        key += " " + split.words[1];
    return key;
}

} // namespace camhost
