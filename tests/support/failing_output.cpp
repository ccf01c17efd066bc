#include "tests/support/failing_output.h"

#include <string_view>
#include <utility>

class tcFailingOutput::tcBuffer : public std::streambuf {
public:
    tcBuffer(std::streambuf& next, std::string at, std::function<void()> fail)
        : m_next(next), m_at(std::move(at)), m_fail(std::move(fail)) {}

protected:
    std::streamsize xsputn(const char* characters, std::streamsize count) override {
        const std::string_view piece(characters, static_cast<std::size_t>(count));
        if (piece.find(m_at) != std::string_view::npos) {
            m_fail();
        }
        return m_next.sputn(characters, count);
    }
    int sync() override { return m_next.pubsync(); }

private:
    std::streambuf& m_next;
    std::string m_at;
    std::function<void()> m_fail;
};

tcFailingOutput::tcFailingOutput(std::ostream& stream, std::string at, std::function<void()> fail)
    : m_stream(stream),
      m_buffer(std::make_unique<tcBuffer>(*stream.rdbuf(), std::move(at), std::move(fail))),
      m_before(stream.rdbuf(m_buffer.get())),
      m_exceptions(stream.exceptions()) {
    stream.exceptions(std::ios_base::badbit);
}

tcFailingOutput::~tcFailingOutput() {
    m_stream.rdbuf(m_before); // which clears the stream's state, too
    m_stream.exceptions(m_exceptions);
}
