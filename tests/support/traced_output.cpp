#include "tests/support/traced_output.h"

#include <utility>

class tcTracedOutput::tcBuffer : public std::streambuf {
public:
    explicit tcBuffer(std::function<void(const std::string&)> piece) : m_piece(std::move(piece)) {}

    std::string text;
    std::string withFlushes;

protected:
    std::streamsize xsputn(const char* characters, std::streamsize count) override {
        const std::string piece(characters, static_cast<std::size_t>(count));
        text += piece;
        withFlushes += piece;
        if (m_piece && !piece.empty()) {
            m_piece(piece);
        }
        return count;
    }
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) {
            return traits_type::not_eof(character);
        }
        const char one = traits_type::to_char_type(character);
        xsputn(&one, 1);
        return character;
    }
    int sync() override {
        withFlushes += "<flush>";
        return 0;
    }

private:
    std::function<void(const std::string&)> m_piece;
};

tcTracedOutput::tcTracedOutput(std::ostream& stream,
                               std::function<void(const std::string& text)> piece)
    : m_stream(stream),
      m_buffer(std::make_unique<tcBuffer>(std::move(piece))),
      m_before(stream.rdbuf(m_buffer.get())) {}

tcTracedOutput::~tcTracedOutput() {
    m_stream.rdbuf(m_before);
}

const std::string& tcTracedOutput::text() const {
    return m_buffer->text;
}

const std::string& tcTracedOutput::textWithFlushes() const {
    return m_buffer->withFlushes;
}

void tcTracedOutput::clear() {
    m_buffer->text.clear();
    m_buffer->withFlushes.clear();
}
