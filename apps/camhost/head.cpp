#include "apps/camhost/head.h"

#include <utility>

namespace camhost {

tcHead::tcHead(int sensorType, std::unique_ptr<Varnox::tcSensorBoard> board, tcOutput& output)
    : m_sensorType(sensorType),
      m_registerFile(*Varnox::tcRegisterFile::getInstance(nullptr, true)),
      m_board(std::move(board)) {
    m_board->setPipeline(&m_pipeline);
    m_board->setStatusListener([&output](int level, const std::string& text) {
        output.log("[" + std::to_string(level) + "] " + text);
    });
    takeHandlers();
    m_registerFile.observable().registerObserver(*m_board);
    for (const auto& handler : m_handlers)
        m_registerFile.observable().registerObserver(*handler);
}

void tcHead::takeHandlers() {
    m_chain = m_board->getCustomHandlers(nullptr, &m_keywords);
    // A handler may answer several keywords, and the head of the chain none: each is owned once.
    std::set<Varnox::tcAbstractHandler*> handlers;
    for (const auto& [keyword, handler] : m_keywords)
        handlers.insert(handler);
    handlers.insert(m_chain);
    handlers.erase(nullptr);
    for (Varnox::tcAbstractHandler* handler : handlers)
        m_handlers.emplace(handler);
    std::erase_if(m_keywords, [](const auto& entry) { return entry.second == nullptr; });
}

tcHead::~tcHead() {
    if (m_board->isCapturing())
        m_board->stop();
    for (const auto& handler : m_handlers)
        m_registerFile.observable().unregisterObserver(*handler);
    m_registerFile.observable().unregisterObserver(*m_board);
    m_handlers.clear(); // they work on the board: they go first
    m_board->setStatusListener(nullptr);
    m_board.reset();
}

Varnox::tcMultipleROISensor* tcHead::regions() {
    return dynamic_cast<Varnox::tcMultipleROISensor*>(m_board.get());
}

std::vector<std::string> tcHead::keywords() const {
    std::vector<std::string> keywords;
    for (const auto& [keyword, handler] : m_keywords)
        keywords.push_back(keyword);
    return keywords;
}

bool tcHead::hasKeyword(const std::string& keyword) const {
    return m_keywords.contains(keyword);
}

std::string tcHead::execute(std::string keyword, std::string arguments) {
    const auto entry = m_keywords.find(keyword);
    Varnox::tcAbstractHandler* const handler = entry != m_keywords.end() ? entry->second : m_chain;
    if (handler == nullptr)
        return "<nack 1>"; // as the last handler of a chain answers what nobody knows
    return handler->execute(keyword, arguments);
}

std::optional<int> tcHead::remembered(const std::string& setting) const {
    const auto entry = m_remembered.find(setting);
    return entry != m_remembered.end() ? std::optional(entry->second) : std::nullopt;
}

} // namespace camhost
