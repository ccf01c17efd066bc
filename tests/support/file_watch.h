/// \file
/// Sees files of the working directory being opened and closed.
#pragma once

#include <string>
#include <vector>

/// Watches the directory that is the working directory when it is made.
class tcFileWatch {
public:
    tcFileWatch();
    ~tcFileWatch();
    tcFileWatch(const tcFileWatch&) = delete;
    tcFileWatch& operator=(const tcFileWatch&) = delete;

    /// \return what happened since the last call, oldest first: "OPENED name", "CLOSED name"
    std::vector<std::string> take();

private:
    int m_descriptor;
};
