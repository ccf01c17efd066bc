#include <varnox/clock_handler.h>

#include <varnox/sensor_board.h>
#include <varnox/string_tokenizer.h>

namespace Varnox {

namespace {

constexpr const char* kKeyword = "CLKS";

} // namespace

tcClockHandler::tcClockHandler(tcSensorBoard* board, tcAbstractHandler* next,
                               std::map<std::string, tcAbstractHandler*>* handlers)
    : tcAbstractHandler(board, next) {
    if (handlers != nullptr)
        (*handlers)[kKeyword] = this;
}

tcClockHandler::~tcClockHandler() = default;

std::string tcClockHandler::execute(std::string& command, std::string& arguments) {
    if (command != kKeyword)
        return tcAbstractHandler::execute(command, arguments);
    if (board() == nullptr)
        return nack(eNotSupported);

    tcStringTokenizer tokens(arguments, ' ');
    int index = 0;
    if (!tokens.hasMoreTokens()) {
        const int result = board()->getClockSetting(index);
        return result == eSuccess ? ack(carrotNumber(index).c_str()) : nack(result);
    }
    if (!tokens.nextInt(index))
        return nack(eInvalidArgument);
    const int result = board()->setClockSetting(index);
    return result == eSuccess ? ack(nullptr) : nack(result);
}

} // namespace Varnox
