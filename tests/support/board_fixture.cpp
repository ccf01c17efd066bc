#include "tests/support/board_fixture.h"

#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "tests/support/publish_spy.h"

namespace fs = std::filesystem;

namespace {

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += "\\n";
        } else {
            result += character;
        }
    }
    return result;
}

} // namespace

class tcBoardFixture::tcPipelineSpy : public Varnox::tcPipeline {
public:
    explicit tcPipelineSpy(tcBoardFixture& fixture) : m_fixture(fixture) {}
    int setPixelPacking(int packing) override {
        m_fixture.head().note("PIPELINE " + std::to_string(packing));
        return tcPipeline::setPixelPacking(packing);
    }

private:
    tcBoardFixture& m_fixture;
};

tcBoardFixture::tcBoardFixture() : m_head(sim::aVirtualHead().build()) {
    m_out = std::make_unique<tcTracedOutput>(
        std::cout, [this](const std::string& text) { m_head->note("OUT " + escaped(text)); });
    m_err = std::make_unique<tcTracedOutput>(
        std::cerr, [this](const std::string& text) { m_head->note("ERR " + escaped(text)); });
    m_pipeline = std::make_unique<tcPipelineSpy>(*this);
    setPublishSpy([this](std::uint32_t address, std::uint32_t value) {
        std::array<char, 40> text{};
        std::snprintf(text.data(), text.size(), "WORD 0x%05" PRIX32 " = %" PRIu32, address, value);
        m_head->note(text.data());
    });
}

tcBoardFixture::~tcBoardFixture() {
    destroyBoard();
    setPublishSpy({});
}

void tcBoardFixture::useHead(sim::tcVirtualHeadBuilder& builder) {
    m_head.reset(); // a process has one head at a time
    m_head.emplace(builder.build());
}

void tcBoardFixture::useShippedFiles() {
    fs::copy(fs::path(HEAD_DATA_DIRECTORY), m_directory.path(),
             fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

Varnox::tc3U5MGXSSensorBoard& tcBoardFixture::makeBoard() {
    m_board = std::make_unique<Varnox::tc3U5MGXSSensorBoard>("/dev/spidev1.0");
    m_board->setPipeline(m_pipeline.get());
    m_board->setStatusListener([this](int level, const std::string& text) {
        m_head->note("STATUS " + std::to_string(level) + " " + text);
    });
    return *m_board;
}

Varnox::tc3U5MGXSSensorBoard& tcBoardFixture::makeInitializedBoard() {
    useShippedFiles();
    makeBoard();
    if (const int result = m_board->initialize(); result != 0) {
        throw std::runtime_error("initialize on a healthy head gave " + std::to_string(result));
    }
    m_head->clearLog();
    return *m_board;
}

void tcBoardFixture::destroyBoard() {
    m_board.reset();
}

Varnox::tcRegisterFile& tcBoardFixture::registerFile() {
    return *Varnox::tcRegisterFile::getInstance(nullptr, true);
}

std::string spiLine(std::uint32_t address, std::uint32_t value) {
    const std::uint32_t word = ((address & 0x3FFU) << 22) | (value & 0x3FFFFFU);
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "SPI %02X %02X %02X %02X", word & 0xFFU,
                  (word >> 8) & 0xFFU, (word >> 16) & 0xFFU, word >> 24);
    return text.data();
}
