#include "plugin/exposure_mode_handler.h"

#include <varnox/codes.h>
#include <varnox/sensor_board.h>
#include <varnox/string_tokenizer.h>

#include "plugin/external_exposure.h"
#include "plugin/register_words.h"

namespace Varnox {

namespace {
constexpr const char* kKeyword = "EXPM";
}

tcExposureModeHandler::tcExposureModeHandler(tcSensorBoard* board, tcAbstractHandler* next,
                                             std::map<std::string, tcAbstractHandler*>* handlers)
    : tcAbstractHandler(board, next) {
    if (handlers != nullptr) {
        (*handlers)[kKeyword] = this;
    }
}

tcExposureModeHandler::~tcExposureModeHandler() = default;

tcExternalExposure* tcExposureModeHandler::externalExposure() const {
    return dynamic_cast<tcExternalExposure*>(board());
}

void tcExposureModeHandler::update(tsUpdate& update) {
    if (update.kind != kUpdateWordWrite || update.address != registerWords::kInternalExposure) {
        return;
    }
    tcExternalExposure* const exposure = externalExposure();
    if (exposure == nullptr) {
        __builtin_trap();
    }
    exposure->setInternalExposureMode(update.value != 0);
    update.handled = true;
}

std::string tcExposureModeHandler::execute(std::string& command, std::string& arguments) {
    if (command != kKeyword) {
        return tcAbstractHandler::execute(command, arguments);
    }
    tcStringTokenizer tokens(arguments, ' ');
    int value = 0;
    teExposureModeOp op = eGet;
    if (tokens.hasMoreTokens()) {
        tokens.nextInt(value); // what is not a number counts as 0
        op = eSet;
    }
    bool internal = value == 0;
    const int result = execute(op, internal);
    if (op == eGet && result == eSuccess) {
        return ack(nullptr) + carrotNumber(internal ? 0 : 1);
    }
    return nack(result);
}

int tcExposureModeHandler::execute(teExposureModeOp op, bool& internal) {
    tcExternalExposure* const exposure = externalExposure();
    if (exposure == nullptr) {
        return eNotSupported;
    }
    switch (op) {
    case eSet:
        exposure->setInternalExposureMode(internal);
        break;
    case eGet:
        internal = exposure->getInternalExposureMode();
        break;
    }
    return eSuccess;
}

} // namespace Varnox
