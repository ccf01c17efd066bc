#include "tests/system/command.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>

tsOutcome runCommand(const std::string& command) {
    std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    EXPECT_NE(pipe, nullptr);
    tsOutcome result;
    std::array<char, 4096> buffer{};
    while (const std::size_t count = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
        result.output.append(buffer.data(), count);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

tsOutcome runOnHead(const std::string& options, const std::string& program) {
    return runCommand(std::string(HEAD_LAUNCHER) + " --workdir " + HEAD_SOURCE_DIRECTORY +
                      "/data " + options + " -- " + program);
}

std::string camhostCommand(const std::string& arguments) {
    return std::string(HEAD_CAMHOST) + " --plugin " + HEAD_PLUGIN + " --spi /dev/spidev1.0 " +
           arguments;
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}
