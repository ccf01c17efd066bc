/// \file
/// A pipe in the place of a file.
#pragma once

#include <string>
#include <thread>

/// Makes a pipe and gives a text to whoever opens it first, then ends.
class tcFedPipe {
public:
    tcFedPipe(std::string name, std::string text);
    /// Ends also when nobody opened the pipe.
    ~tcFedPipe();
    tcFedPipe(const tcFedPipe&) = delete;
    tcFedPipe& operator=(const tcFedPipe&) = delete;

private:
    std::string m_name;
    std::thread m_writer;
};
