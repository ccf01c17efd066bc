#include <varnox/abstract_handler.h>

namespace Varnox {

namespace {

/// Code of the reply to a keyword that no handler of the chain knows.
constexpr int kUnknownCommand = 1;

} // namespace

tcAbstractHandler::tcAbstractHandler(tcSensorBoard* board, tcAbstractHandler* next)
    : m_next(next), m_board(board) {}

tcAbstractHandler::~tcAbstractHandler() = default;

void tcAbstractHandler::update(tsUpdate& /*update*/) {}

std::string tcAbstractHandler::execute(std::string& command, std::string& arguments) {
    return m_next != nullptr ? m_next->execute(command, arguments) : nack(kUnknownCommand);
}

int tcAbstractHandler::forward(int event) {
    return m_next != nullptr ? m_next->forward(event) : 0;
}

std::string tcAbstractHandler::ack(const char* payload) {
    return payload != nullptr ? "<ack " + std::string(payload) + ">" : "<ack>";
}

std::string tcAbstractHandler::nack(int code) {
    return "<nack " + std::to_string(code) + ">";
}

std::string tcAbstractHandler::carrotNumber(int value) {
    return "^" + std::to_string(value);
}

} // namespace Varnox
