// Runs a fuzz target on files, for compilers that bring no libFuzzer: the corpus is then a
// regression test of every build.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> filesIn(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        files.push_back(std::filesystem::absolute(entry.path()));
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::uint8_t> contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s CORPUS-FOLDER\n", argv[0]);
        return 2;
    }
    // Before the target enters a folder of its own.
    const auto files = filesIn(argv[1]);
    LLVMFuzzerInitialize(&argc, &argv);
    for (const auto& file : files) {
        const auto input = contents(file);
        std::fprintf(stderr, "%s\n", file.filename().c_str());
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    return files.empty() ? 1 : 0;
}
