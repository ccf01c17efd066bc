#include "tests/fuzz/support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

namespace {

[[noreturn]] void giveUp(const char* what) {
    std::perror(what);
    std::abort();
}

void writeWhole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count <= 0)
            giveUp("write");
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

} // namespace

void fail(std::string_view what, std::string_view expected, std::string_view actual) {
    const auto show = [](const char* title, std::string_view text) {
        std::fprintf(stderr, "%s\"%.*s\"\n", title, static_cast<int>(text.size()), text.data());
    };
    show("FAILED ", what);
    show("  expected ", expected);
    show("  actual   ", actual);
    std::abort();
}

void requireEqual(std::string_view what, std::string_view expected, std::string_view actual) {
    if (expected != actual)
        fail(what, expected, actual);
}

void require(bool holds, std::string_view what) {
    if (!holds)
        fail(what, "it holds", "it does not");
}

std::string text(std::span<const std::uint8_t> input) {
    return {input.begin(), input.end()};
}

void silenceStandardOutput() {
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0 || ::dup2(nowhere, STDOUT_FILENO) < 0)
        giveUp("/dev/null");
    ::close(nowhere);
}

tcMemoryFile::tcMemoryFile()
    : m_descriptor(::memfd_create("fuzz", MFD_CLOEXEC)),
      m_path("/proc/self/fd/" + std::to_string(m_descriptor)) {
    if (m_descriptor < 0)
        giveUp("memfd_create");
}

tcMemoryFile::~tcMemoryFile() {
    ::close(m_descriptor);
}

void tcMemoryFile::write(std::string_view text) const {
    if (::ftruncate(m_descriptor, 0) != 0 || ::lseek(m_descriptor, 0, SEEK_SET) != 0)
        giveUp("ftruncate");
    writeWhole(m_descriptor, text);
}

const std::string& enterScratchFolder() {
    // Memory, where there is such a folder: a disk would be the slowest part of a run.
    static std::string folder =
        std::filesystem::exists("/dev/shm") ? "/dev/shm/head-fuzz-XXXXXX" : "/tmp/head-fuzz-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr || ::chdir(folder.c_str()) != 0)
        giveUp("scratch folder");
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    });
    return folder;
}

void writeFile(const char* name, std::string_view text) {
    constexpr mode_t kPrivate = 0600;
    const int file = ::open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kPrivate);
    if (file < 0)
        giveUp(name);
    writeWhole(file, text);
    ::close(file);
}

} // namespace fuzz
