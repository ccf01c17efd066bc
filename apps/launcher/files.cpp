#include "apps/launcher/files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "apps/launcher/usage_error.h"

namespace fs = std::filesystem;

tcTemporaryFolder::tcTemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "virtual-head-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error(name + ": " + std::strerror(errno));
    }
    m_path = name;
}

tcTemporaryFolder::~tcTemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

void layOut(const fs::path& from, const fs::path& to,
            const std::vector<sim::tsReplacedFile>& replaced) {
    fs::create_directory(to);
    for (const fs::directory_entry& entry : fs::directory_iterator(from)) {
        fs::create_symlink(fs::absolute(entry.path()), to / entry.path().filename());
    }
    for (const sim::tsReplacedFile& file : replaced) {
        fs::remove(to / file.name);
        fs::create_symlink(file.path, to / file.name);
    }
}

std::string absolute(const std::string& path) {
    return path.empty() ? path : fs::absolute(path).string();
}

void startFile(const std::string& path) {
    if (!path.empty() && !std::ofstream(path)) {
        throw tcUsageError(path + ": cannot be written");
    }
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream file(path);
    if (!(file << text << std::flush)) {
        throw std::runtime_error(path + ": cannot be written");
    }
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::set<fs::path> filesOf(const fs::path& folder, const std::string& prefix) {
    std::set<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().filename().string().starts_with(prefix)) {
            files.insert(entry.path());
        }
    }
    return files;
}

std::string allOf(const fs::path& folder, const std::string& prefix) {
    std::string text;
    for (const fs::path& file : filesOf(folder, prefix)) {
        text += contentOf(file);
    }
    return text;
}
