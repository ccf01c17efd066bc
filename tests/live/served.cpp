#include "tests/live/served.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/patience.h"

namespace {

struct tsPipe {
    int out = -1;
    int in = -1;
};

tsPipe makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    return {ends[0], ends[1]};
}

std::string readLine(int descriptor) {
    std::string line;
    char one = 0;
    pollfd wanted{descriptor, POLLIN, 0};
    while (poll(&wanted, 1, kPatienceMs) > 0 && read(descriptor, &one, 1) == 1 && one != '\n') {
        line += one;
    }
    return line;
}

} // namespace

tcServed::tcServed(const std::string& arguments) {
    const tsPipe input = makePipe();
    const tsPipe output = makePipe();
    const tsPipe errors = makePipe();
    const std::string command = std::string("exec ") + LAUNCHER + " " + arguments;
    m_process = fork();
    if (m_process == 0) {
        dup2(input.out, STDIN_FILENO);
        dup2(output.in, STDOUT_FILENO);
        dup2(errors.in, STDERR_FILENO);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    close(input.out);
    close(output.in);
    close(errors.in);
    m_input = input.in;
    m_output = output.out;
    m_errors = errors.out;
    const std::string start = "virtual-head: bench at http://127.0.0.1:";
    for (std::string line = readLine(m_errors); !line.empty(); line = readLine(m_errors)) {
        if (line.starts_with(start)) {
            m_port = static_cast<std::uint16_t>(std::stoul(line.substr(start.size())));
            return;
        }
    }
}

tcServed::~tcServed() {
    if (m_status < 0) {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
    }
    for (const int descriptor : {m_input, m_output, m_errors}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

void tcServed::send(const std::string& line) const {
    const std::string text = line + "\n";
    if (write(m_input, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the program reads nothing");
    }
}

std::string tcServed::line() {
    return readLine(m_output);
}

std::string tcServed::tell(const std::string& line) {
    send(line);
    return this->line();
}

int tcServed::finish() {
    close(m_input);
    m_input = -1;
    int status = 0;
    waitpid(m_process, &status, 0);
    m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return m_status;
}

void tcServed::signal(int number) const {
    kill(m_process, number);
}

std::string tcServed::complaints() {
    std::string text;
    std::array<char, 4096> some{};
    for (ssize_t count = 1; count > 0;) {
        count = read(m_errors, some.data(), some.size());
        text.append(some.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return text;
}

tcConnection::tcConnection(std::uint16_t port) : m_socket(socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const void* start = &address;
    if (connect(m_socket, static_cast<const sockaddr*>(start), sizeof address) != 0) {
        const int error = errno;
        close(m_socket);
        throw std::runtime_error(std::string("cannot connect: ") + std::strerror(error));
    }
}

tcConnection::~tcConnection() {
    close(m_socket);
}

bool tcConnection::send(const std::string& bytes) const {
    return ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

std::string tcConnection::rest(int waitMs) const {
    std::string text = m_received;
    pollfd wanted{m_socket, POLLIN, 0};
    std::array<char, 65536> some{};
    while (poll(&wanted, 1, waitMs) > 0) {
        const ssize_t count = recv(m_socket, some.data(), some.size(), 0);
        if (count <= 0) {
            break;
        }
        text.append(some.data(), static_cast<std::size_t>(count));
    }
    return text;
}

std::string tcConnection::until(const std::string& text) {
    pollfd wanted{m_socket, POLLIN, 0};
    std::array<char, 4096> some{};
    while (m_received.find(text) == std::string::npos && poll(&wanted, 1, kPatienceMs) > 0) {
        const ssize_t count = recv(m_socket, some.data(), some.size(), 0);
        if (count <= 0) {
            break;
        }
        m_received.append(some.data(), static_cast<std::size_t>(count));
    }
    const std::size_t end = std::min(m_received.find(text) + text.size(), m_received.size());
    std::string result = m_received.substr(0, end);
    m_received.erase(0, end);
    return result;
}

tsAnswer ask(std::uint16_t port, const std::string& method, const std::string& path,
             const std::string& body, const std::string& headers, const std::string& host) {
    std::string request = method + " " + path + " HTTP/1.1\r\nConnection: close\r\n" + headers;
    if (!host.empty()) {
        request += "Host: " + host + ":" + std::to_string(port) + "\r\n";
    }
    if (!body.empty()) {
        request +=
            "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
            "\r\n";
    }
    const tcConnection connection(port);
    connection.send(request + "\r\n" + body);
    const std::string reply = connection.rest(kPatienceMs);
    tsAnswer answer;
    const std::size_t end = reply.find("\r\n\r\n");
    if (end == std::string::npos) {
        return answer;
    }
    answer.status = std::stoi(reply.substr(reply.find(' ') + 1));
    answer.body = reply.substr(end + 4);
    std::size_t at = reply.find("\r\n");
    while (at < end) {
        const std::size_t next = reply.find("\r\n", at + 2);
        const std::string line = reply.substr(at + 2, next - at - 2);
        std::string name = line.substr(0, line.find(':'));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        answer.headers[name] = line.substr(line.find(':') + 2);
        at = next;
    }
    return answer;
}
