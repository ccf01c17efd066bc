#include "tests/apps/process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

/// A pipe whose ends no other program inherits.
struct tsPipe {
    tsPipe() {
        if (::pipe2(ends, O_CLOEXEC) != 0)
            ADD_FAILURE() << "no pipe";
    }
    tsPipe(const tsPipe&) = delete;
    tsPipe& operator=(const tsPipe&) = delete;
    ~tsPipe() {
        closeEnd(0);
        closeEnd(1);
    }
    void closeEnd(int end) {
        if (ends[end] >= 0)
            ::close(ends[end]);
        ends[end] = -1;
    }

    int ends[2] = {-1, -1};
};

std::string readToEnd(int descriptor) {
    std::string text;
    char buffer[4096];
    while (true) {
        const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return text;
        text.append(buffer, static_cast<std::size_t>(count));
    }
}

void writeAll(int descriptor, const std::string& text) {
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = ::write(descriptor, text.data() + done, text.size() - done);
        if (count <= 0)
            return; // the program has read enough
        done += static_cast<std::size_t>(count);
    }
}

pid_t spawn(const std::vector<std::string>& command, const tsPipe& in, const tsPipe& out,
            const tsPipe& err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.ends[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.ends[1], STDERR_FILENO);
    std::vector<std::string> words = command;
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = -1;
    if (::posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        ADD_FAILURE() << "not started: " << words[0];
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

} // namespace

std::vector<std::string> camhostCommand(const std::vector<std::string>& arguments) {
    std::vector<std::string> command;
    std::istringstream emulator(CAMHOST_EMULATOR);
    for (std::string word; emulator >> word;)
        command.push_back(word);
    command.emplace_back(CAMHOST_PROGRAM);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

tsFinished runCamhost(const std::vector<std::string>& arguments, const std::string& input) {
    return run(camhostCommand(arguments), input);
}

tsFinished run(const std::vector<std::string>& command, const std::string& input) {
    std::signal(SIGPIPE, SIG_IGN);
    tsPipe in;
    tsPipe out;
    tsPipe err;
    const pid_t child = spawn(command, in, out, err);
    in.closeEnd(0);
    out.closeEnd(1);
    err.closeEnd(1);
    tsFinished finished;
    std::thread errors([&] { finished.err = readToEnd(err.ends[0]); });
    std::thread feeder([&] {
        writeAll(in.ends[1], input);
        in.closeEnd(1);
    });
    finished.out = readToEnd(out.ends[0]);
    errors.join();
    feeder.join();
    int status = 0;
    ::waitpid(child, &status, 0);
    finished.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return finished;
}

tcFolder::tcFolder() : m_path(testing::TempDir() + "camhost_XXXXXX") {
    if (::mkdtemp(m_path.data()) == nullptr)
        ADD_FAILURE() << "no temporary folder";
}

tcFolder::~tcFolder() {
    std::filesystem::remove_all(m_path);
}

std::string tcFolder::file(const std::string& name, const std::string& text) const {
    const std::string path = m_path + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string tcFolder::read(const std::string& name) const {
    std::ifstream file(m_path + "/" + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
