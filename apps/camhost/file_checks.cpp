#include "apps/camhost/file_checks.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace camhost {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostLines = 8;

/// \return what lies directly in the folder and is no folder, in alphabetical order
std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->exists(ignored) && !entry->is_directory(ignored))
            files.push_back(entry->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// Root, who runs the program, and who became root to run it do as they like with the head.
bool isOperator(uid_t user) {
    if (user == 0 || user == ::geteuid())
        return true;
    const char* const before = ::geteuid() == 0 ? std::getenv("SUDO_UID") : nullptr;
    return before != nullptr && std::to_string(user) == before;
}

/// What others than the operator can change, a line each.
class tcTrust {
public:
    /// Looks at a file or folder, once.
    /// \param reported a user of whose files nothing more need be said
    /// \return the user it belongs to when that was reported
    std::optional<uid_t> check(const fs::path& path, std::optional<uid_t> reported = std::nullopt) {
        const auto [seen, isNew] = m_seen.try_emplace(path.string());
        if (isNew)
            seen->second = look(seen->first, reported);
        return seen->second;
    }

    /// Looks at a folder and the files directly in it.
    void checkFolder(const fs::path& folder) {
        const std::optional<uid_t> reported = check(folder);
        for (const fs::path& file : filesIn(folder)) {
            if (const std::string kind = notRegular(file); !kind.empty())
                m_warnings.push_back(file.string() + ": " + kind +
                                     ", and a plug-in that reads it may wait for ever; rm " +
                                     file.string());
            else
                check(file, reported);
        }
    }

    [[nodiscard]] const std::vector<std::string>& warnings() const { return m_warnings; }

private:
    std::optional<uid_t> look(const std::string& name, std::optional<uid_t> reported) {
        struct stat status {};
        if (::stat(name.c_str(), &status) != 0)
            return std::nullopt;
        if ((status.st_mode & S_IWOTH) != 0)
            m_warnings.push_back(name + " can be written by everybody; chmod o-w " + name);
        else if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0 &&
                 status.st_gid != ::getegid())
            m_warnings.push_back(name + " can be written by group " +
                                 std::to_string(status.st_gid) + "; chmod g-w " + name);
        if (isOperator(status.st_uid) || status.st_uid == reported)
            return std::nullopt;
        m_warnings.push_back(name + " belongs to another user, number " +
                             std::to_string(status.st_uid) + "; chown root " + name);
        return status.st_uid;
    }

    std::map<std::string, std::optional<uid_t>> m_seen; // path, the user that was reported
    std::vector<std::string> m_warnings;
};

} // namespace

std::string notRegular(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        return "it is a folder";
    return fs::exists(status) && !fs::is_regular_file(status) ? "it is a pipe, a socket or a device"
                                                              : "";
}

std::vector<std::string> trustWarnings(const std::string& plugin, const std::string& script) {
    tcTrust trust;
    trust.check(plugin);
    trust.check(fs::path(plugin).parent_path()); // who can write it can put another one there
    if (script != "-")
        trust.check(script);
    std::error_code error;
    if (const fs::path folder = fs::current_path(error); !error) {
        trust.checkFolder(folder);
        trust.checkFolder(folder / "version");
    }
    std::vector<std::string> warnings = trust.warnings();
    if (warnings.size() > kMostLines) {
        const std::size_t more = warnings.size() - kMostLines;
        warnings.resize(kMostLines);
        warnings.push_back(std::to_string(more) + " more warnings like these");
    }
    return warnings;
}

} // namespace camhost
