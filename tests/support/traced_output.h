/// \file
/// What the code under test prints, in order with what the hardware sees.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

/// Takes the place of a stream's buffer for as long as it lives.
class tcTracedOutput {
public:
    /// \param stream for example std::cout
    /// \param piece  called with every piece of text as it is written; may be empty
    explicit tcTracedOutput(std::ostream& stream,
                            std::function<void(const std::string& text)> piece = {});
    ~tcTracedOutput();
    tcTracedOutput(const tcTracedOutput&) = delete;
    tcTracedOutput& operator=(const tcTracedOutput&) = delete;

    /// \return everything written so far
    [[nodiscard]] const std::string& text() const;
    /// \return everything written so far, with "<flush>" wherever the stream was flushed
    [[nodiscard]] const std::string& textWithFlushes() const;
    void clear();

private:
    class tcBuffer;
    std::ostream& m_stream;
    std::unique_ptr<tcBuffer> m_buffer;
    std::streambuf* m_before;
};
