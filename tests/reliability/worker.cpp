#include "tests/reliability/worker.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/patience.h"

namespace {

/// Real time of one piece; only one that hangs reaches it.
constexpr auto kPieceSeconds = static_cast<unsigned int>(std::chrono::seconds(kPatience).count());

/// What a child tells, one line each: 's' number, 'c' number text, 'd' number, 'e' text.
void tell(int pipe, char what, std::size_t number, const std::string& text) {
    std::string line = what + std::to_string(number) + " ";
    for (const char character : text) {
        line += character == '\n' ? std::string("\\n") : std::string(1, character);
    }
    line += "\n";
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = ::write(pipe, line.data() + sent, line.size() - sent);
        if (count < 0) {
            std::_Exit(3); // nobody listens
        }
        sent += static_cast<std::size_t>(count);
    }
}

[[noreturn]] void beChild(int pipe, std::size_t first, std::size_t count,
                          const std::function<std::vector<std::string>(std::size_t)>& piece,
                          const std::function<std::vector<std::string>()>& end) {
    for (std::size_t number = first; number < count; ++number) {
        tell(pipe, 's', number, "");
        alarm(kPieceSeconds);
        for (const std::string& complaint : piece(number)) {
            tell(pipe, 'c', number, complaint);
        }
        tell(pipe, 'd', number, "");
    }
    alarm(0);
    for (const std::string& complaint : end()) {
        tell(pipe, 'e', 0, complaint);
    }
    std::_Exit(0);
}

std::string death(int status) {
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit " + std::to_string(WEXITSTATUS(status));
}

std::string allOf(int pipe) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = ::read(pipe, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/// \return the piece that was started last
std::size_t understand(const std::string& told, tsWorkResult& result) {
    std::size_t started = 0;
    std::size_t begin = 0;
    for (std::size_t stop = 0; (stop = told.find('\n', begin)) != std::string::npos;
         begin = stop + 1) {
        const std::string line = told.substr(begin, stop - begin);
        const std::size_t space = line.find(' ');
        const std::size_t number = std::stoul(line.substr(1, space - 1));
        switch (line[0]) {
        case 's':
            started = number;
            break;
        case 'c':
            result.complaints[number].push_back(line.substr(space + 1));
            break;
        case 'd':
            ++result.done;
            break;
        default:
            result.ends.push_back(line.substr(space + 1));
        }
    }
    return started;
}

} // namespace

tsWorkResult workInChildren(std::size_t count,
                            const std::function<std::vector<std::string>(std::size_t)>& piece,
                            const std::function<std::vector<std::string>()>& end) {
    tsWorkResult result;
    std::size_t next = 0;
    while (next < count) {
        std::cout.flush();
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        const pid_t child = fork();
        if (child == 0) {
            ::close(ends[0]);
            beChild(ends[1], next, count, piece, end);
        }
        ::close(ends[1]);
        const std::string told = allOf(ends[0]);
        ::close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        const std::size_t last = understand(told, result);
        if (status == 0) {
            break;
        }
        result.deaths[last] = death(status);
        next = last + 1;
    }
    return result;
}
