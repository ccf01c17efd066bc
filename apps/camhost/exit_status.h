/// \file
/// What the program ends with.
#pragma once

#include <string>

namespace camhost {

/// Exit statuses of the program. Scripts rely on them: they never change their meaning.
enum class teExit : int {
    eSuccess = 0,
    eInternal = 1,   ///< a defect of this program
    eUsage = 2,      ///< command line not understood
    ePlugin = 3,     ///< plug-in not loadable
    eBoard = 4,      ///< board not constructed
    eInitialize = 5, ///< the board's initialization failed
    eCommand = 6,    ///< a command failed
    eScript = 7,     ///< script not readable
    eListen = 8,     ///< address not to be had
    // 9 to 11 are those of whoever starts this program on a virtual head. What a diagnosis ends
    // with, by the first stage that is wrong:
    eNoFacts = 20,      ///< nothing is known of the head: its board has no table
    eDevices = 21,      ///< a device file
    eLines = 22,        ///< a GPIO line
    eMonitor = 23,      ///< the supply monitor
    eSettings = 24,     ///< the sensor's settings file
    ePort = 25,         ///< the sensor's port
    eSupplies = 26,     ///< a supply
    eFpga = 27,         ///< the FPGA
    ePll = 28,          ///< the receiver's PLL
    eLanes = 29,        ///< a lane
    eAlignment = 30,    ///< frame alignment
    eTiming = 31,       ///< exposure or interval
    eUnexplained = 32,  ///< the head does not come up, and its table does not know why
    eInterrupted = 130, ///< Ctrl-C or a request to end
};

/// \param command that failed, without its arguments; empty for a line that was not understood
/// \return what the program would end with
teExit statusOfFailed(const std::string& command);

/// What the lines of the command line and of a script end with: the first failure, or success.
class tcScriptStatus {
public:
    void failed(teExit status);
    [[nodiscard]] teExit get() const { return m_status; }

private:
    teExit m_status = teExit::eSuccess;
};

} // namespace camhost
