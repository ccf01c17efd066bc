/// \file
/// Text access to a board's clock setting.
#pragma once

#include <map>
#include <string>

#include <varnox/abstract_handler.h>
#include <varnox/export.h>

namespace Varnox {

/// Keyword "CLKS": with a number it sets the clock setting, without it asks.
///
/// | command | reply |
/// |---|---|
/// | CLKS | `ack("^INDEX")`, or `nack(result)` |
/// | CLKS INDEX | `ack(nullptr)`, or `nack(result)` with the board's result |
/// | CLKS TEXT | `nack(3)` |
///
/// Without a board every form answers `nack(7)`.
class VARNOX_API tcClockHandler : public tcAbstractHandler {
public:
    /// \param board    the board whose clock it sets, not owned; may be null
    /// \param next     who answers other keywords, not owned; may be null
    /// \param handlers keyword table to enter itself into under "CLKS"; may be null
    tcClockHandler(tcSensorBoard* board, tcAbstractHandler* next,
                   std::map<std::string, tcAbstractHandler*>* handlers);
    ~tcClockHandler() override;

    std::string execute(std::string& command, std::string& arguments) override;
};

} // namespace Varnox
