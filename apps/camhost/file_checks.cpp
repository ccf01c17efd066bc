#include "apps/camhost/file_checks.h"

#include <algorithm>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace camhost {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostLines = 8;

/// Appends what is wrong with who can write the file.
/// \param folderOwner the other user, besides root, whose files are as good as the folder itself
void check(const fs::path& path, uid_t folderOwner, std::vector<std::string>& warnings) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        return;
    const std::string name = path.string();
    if ((status.st_mode & S_IWOTH) != 0)
        warnings.push_back(name + " can be written by everybody; chmod o-w " + name);
    if (status.st_uid != 0 && status.st_uid != ::geteuid() && status.st_uid != folderOwner)
        warnings.push_back(name + " belongs to another user, number " +
                           std::to_string(status.st_uid) + "; chown root " + name);
}

uid_t ownerOf(const fs::path& folder) {
    struct stat status {};
    return ::stat(folder.c_str(), &status) == 0 ? status.st_uid : 0;
}

/// \return the regular files directly in the folder, in alphabetical order
std::vector<fs::path> filesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->is_regular_file(ignored))
            files.push_back(entry->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

std::string notRegular(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status))
        return "it is a folder";
    return fs::exists(status) && !fs::is_regular_file(status) ? "it is a pipe, a socket or a device"
                                                              : "";
}

std::vector<std::string> trustWarnings(const std::string& plugin) {
    std::vector<std::string> warnings;
    check(plugin, ownerOf(fs::path(plugin).parent_path()), warnings);
    std::error_code error;
    const fs::path folder = fs::current_path(error);
    if (error)
        return warnings;
    const uid_t owner = ownerOf(folder);
    check(folder, owner, warnings);
    for (const fs::path& file : filesIn(folder))
        check(file, owner, warnings);
    if (warnings.size() > kMostLines) {
        const std::size_t more = warnings.size() - kMostLines;
        warnings.resize(kMostLines);
        warnings.push_back(std::to_string(more) + " more files are open to others");
    }
    return warnings;
}

} // namespace camhost
