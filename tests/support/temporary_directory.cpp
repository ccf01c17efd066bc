#include "tests/support/temporary_directory.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

tcTemporaryDirectory::tcTemporaryDirectory() : m_before(fs::current_path()) {
    std::string name = (fs::temp_directory_path() / "head-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make " + name);
    }
    m_path = name;
    fs::current_path(m_path);
}

tcTemporaryDirectory::~tcTemporaryDirectory() {
    std::error_code ignored;
    fs::current_path(m_before, ignored);
    fs::remove_all(m_path, ignored);
}

void tcTemporaryDirectory::write(const std::string& name, std::string_view text) const {
    const fs::path file = m_path / name;
    fs::create_directories(file.parent_path());
    std::ofstream out(file, std::ios::binary);
    out << text;
    if (!out.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}
