#include "tests/support/fed_pipe.h"

#include <fstream>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

tcFedPipe::tcFedPipe(std::string name, std::string text) : m_name(std::move(name)) {
    if (::mkfifo(m_name.c_str(), 0600) != 0) {
        throw std::runtime_error("no pipe " + m_name);
    }
    m_writer = std::thread([this, given = std::move(text)] {
        std::ofstream(m_name) << given; // waits until it is opened to be read
    });
}

tcFedPipe::~tcFedPipe() {
    // Opens it for a writer that still waits; what it writes then is lost.
    const int reader = ::open(m_name.c_str(), O_RDONLY | O_NONBLOCK);
    m_writer.join();
    ::close(reader);
}
