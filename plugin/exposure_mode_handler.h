/// \file
/// Text and register-file access to the exposure mode.
#pragma once

#include <map>
#include <string>

#include <varnox/abstract_handler.h>

namespace Varnox {

class tcExternalExposure;

/// Keyword "EXPM": without an argument it asks (1 external, 0 internal), with 0 it selects internal
/// exposure, with another number external exposure. Register-file word 0x3A200 has the opposite
/// sense: 0 selects external exposure.
class tcExposureModeHandler : public tcAbstractHandler {
public:
    enum teExposureModeOp : int { eSet = 0, eGet = 1 };

    /// \param handlers keyword table to enter itself into under "EXPM"; may be null
    tcExposureModeHandler(tcSensorBoard* board, tcAbstractHandler* next,
                          std::map<std::string, tcAbstractHandler*>* handlers);
    ~tcExposureModeHandler() override;

    /// Serves word writes to 0x3A200 and marks them as handled. Such a write to a handler without a
    /// board that has external exposure ends the program: it was wired up wrongly.
    void update(tsUpdate& update) override;

    /// \return for a question `ack(nullptr)` followed by the caret number; for a set `nack` with
    /// its
    ///         result, `nack(0)` for success: clients rely on it
    std::string execute(std::string& command, std::string& arguments) override;

    /// \param internal what to set, or what was asked for
    /// \return 0; 7 without a board that has external exposure
    int execute(teExposureModeOp op, bool& internal);

private:
    [[nodiscard]] tcExternalExposure* externalExposure() const;
};

} // namespace Varnox
