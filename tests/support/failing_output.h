/// \file
/// A stream that fails and says so by exceptions, as a host may set it up.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

/// Passes on what is written to a stream until a text comes; that piece fails with an exception,
/// and so does every later one ("basic_ios::clear: iostream error").
class tcFailingOutput {
public:
    /// \param stream for example std::cout
    /// \param at     fails with the piece that has this text in it
    /// \param fail   throws
    tcFailingOutput(std::ostream& stream, std::string at, std::function<void()> fail);
    /// The stream is as it was.
    ~tcFailingOutput();
    tcFailingOutput(const tcFailingOutput&) = delete;
    tcFailingOutput& operator=(const tcFailingOutput&) = delete;

private:
    class tcBuffer;
    std::ostream& m_stream;
    std::unique_ptr<tcBuffer> m_buffer;
    std::streambuf* m_before;
    std::ios_base::iostate m_exceptions;
};
