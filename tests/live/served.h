/// \file
/// A program on a head that is served, and somebody who asks over HTTP.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

/// The launcher with a program, in a process of its own.
class tcServed {
public:
    /// \param arguments of the launcher: options, "--" and the program, as a shell takes them
    explicit tcServed(const std::string& arguments);
    tcServed(const tcServed&) = delete;
    tcServed& operator=(const tcServed&) = delete;
    /// Ends it, if it has not ended.
    ~tcServed();

    [[nodiscard]] std::uint16_t port() const { return m_port; }
    /// Sends a line to the program. \return the line that it answers
    std::string tell(const std::string& line);
    /// Sends a line without waiting for an answer.
    void send(const std::string& line) const;
    /// \return the next line that the program prints
    std::string line();
    /// The program's input ends. \return the launcher's exit status, 128 and the signal
    int finish();
    /// \param number of a signal for the launcher
    void signal(int number) const;
    /// \return what the launcher has said on standard error since it said where it serves
    std::string complaints();

private:
    pid_t m_process = -1;
    int m_input = -1;
    int m_output = -1;
    int m_errors = -1;
    std::uint16_t m_port = 0;
    int m_status = -1;
};

/// An answer over HTTP.
struct tsAnswer {
    int status = 0;                             ///< 0: none came
    std::map<std::string, std::string> headers; ///< names in small letters
    std::string body;
};

/// One connection to a port of this machine.
class tcConnection {
public:
    explicit tcConnection(std::uint16_t port);
    tcConnection(const tcConnection&) = delete;
    tcConnection& operator=(const tcConnection&) = delete;
    ~tcConnection();
    /// \return false when the other side takes nothing more
    bool send(const std::string& bytes) const;
    /// \return all until the other side ends, or has sent nothing for so long
    [[nodiscard]] std::string rest(int waitMs) const;
    /// \return all until this text has come, with it; what there was when nothing more comes
    std::string until(const std::string& text);

private:
    int m_socket;
    std::string m_received;
};

/// \param host the header; empty: none
tsAnswer ask(std::uint16_t port, const std::string& method, const std::string& path,
             const std::string& body = "", const std::string& headers = "",
             const std::string& host = "localhost");
