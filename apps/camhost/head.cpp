#include "apps/camhost/head.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace camhost {

namespace {

constexpr std::size_t kStatusLines = 4096; // of one command: as many as are kept of its output

} // namespace

tcHead::tcHead(int sensorType, std::function<std::unique_ptr<Varnox::tcSensorBoard>()> makeBoard,
               tcOutput& output)
    : m_sensorType(sensorType),
      m_makeBoard(std::move(makeBoard)),
      m_output(output),
      m_registerFile(*Varnox::tcRegisterFile::getInstance(nullptr, true)) {
    build();
}

void tcHead::build() {
    m_board = m_makeBoard();
    m_builtWith = lines();
    m_builtComplaints = complaints();
    m_board->setPipeline(&m_pipeline);
    m_board->setStatusListener([this](int level, const std::string& text) {
        const std::string line = "[" + std::to_string(level) + "] " + text;
        m_output.log(line);
        const std::lock_guard lock(m_statusLock);
        m_statusLines.push_back(line);
        if (m_statusLines.size() > kStatusLines)
            m_statusLines.pop_front();
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
    takeDown();
}

void tcHead::takeDown() {
    if (!m_board)
        return;
    if (m_board->isCapturing())
        m_board->stop();
    for (const auto& handler : m_handlers)
        m_registerFile.observable().unregisterObserver(*handler);
    m_registerFile.observable().unregisterObserver(*m_board);
    m_keywords.clear();
    m_chain = nullptr;
    m_handlers.clear(); // they work on the board: they go first
    m_board->setStatusListener(nullptr);
    m_board.reset();
}

void tcHead::rebuild() {
    takeDown();
    m_isUp = false;
    m_mayBeOn = false;
    forgetSettings();
    beginCommand();
    build();
}

int tcHead::initialize() {
    forgetSettings();
    m_isUp = false; // also when it throws
    m_mayBeOn = true;
    const int result = m_board->initialize();
    m_isUp = result == Varnox::eSuccess;
    return result;
}

void tcHead::beginCommand() {
    m_talk.beginCommand();
    m_complaints.beginCommand();
    const std::lock_guard lock(m_statusLock);
    m_statusLines.clear();
}

std::vector<std::string> tcHead::lines() const {
    std::vector<std::string> lines = m_talk.lines();
    const std::vector<std::string> complaints = m_complaints.lines();
    lines.insert(lines.end(), complaints.begin(), complaints.end());
    const std::lock_guard lock(m_statusLock);
    lines.insert(lines.end(), m_statusLines.begin(), m_statusLines.end());
    return lines;
}

std::vector<std::string> tcHead::complaints() const {
    std::vector<std::string> lines = m_complaints.lines();
    const std::string error = "[" + std::to_string(Varnox::eStatusError) + "] ";
    const std::lock_guard lock(m_statusLock);
    std::copy_if(m_statusLines.begin(), m_statusLines.end(), std::back_inserter(lines),
                 [&](const std::string& line) { return line.starts_with(error); });
    return lines;
}

std::optional<failures::tsExplanation> tcHead::explanation(int result) const {
    if (!m_failures)
        return std::nullopt;
    std::vector<std::string> all = m_builtWith; // a line that was not there then is not there now
    const std::vector<std::string> now = lines();
    all.insert(all.end(), now.begin(), now.end());
    return m_failures->explain(result, all);
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
