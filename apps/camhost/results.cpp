#include "apps/camhost/results.h"

#include <varnox/codes.h>

#include "apps/camhost/errors.h"

namespace camhost {

namespace {

const char* meaningOf(int result) {
    switch (result) {
    case Varnox::eSuccess:
        return "success";
    case Varnox::eInvalidArgument:
        return "invalid argument or unknown register";
    case Varnox::eValidationFailed:
        return "validation failed or mode not supported";
    case Varnox::eCaptureInProgress:
        return "refused while capturing";
    case Varnox::eLinkFailure:
        return "serial link or pipeline failure";
    case Varnox::eNotSupported:
        return "not supported by this board";
    default:
        return "a code of the board's lower layers";
    }
}

} // namespace

std::string resultText(int result) {
    return "result " + std::to_string(result) + ": " + meaningOf(result);
}

std::string remedyFor(int result) {
    switch (result) {
    case Varnox::eSuccess:
        return {};
    case Varnox::eInvalidArgument:
        return "give a value that the board takes";
    case Varnox::eValidationFailed:
        return "choose another mode";
    case Varnox::eCaptureInProgress:
        return "end the capture with \"stop\" first";
    case Varnox::eLinkFailure:
        return "see the board's lines above; end a running capture, or run \"init\" again";
    case Varnox::eNotSupported:
        return "leave it out: the board has nothing of the kind";
    default:
        return "see the board's lines above";
    }
}

void requireSuccess(const std::string& what, int result, const std::string& still) {
    if (result == Varnox::eSuccess)
        return;
    throw tcBoardError(what + " failed, " + resultText(result) +
                           (still.empty() ? "" : "; " + still) + "; " + remedyFor(result),
                       result);
}

} // namespace camhost
