/// \file
/// Commands that set one number of the board and read it back.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "apps/camhost/call.h"
#include "apps/camhost/command_table.h"

namespace camhost {

/// One number of the board.
/// A setting beside another one, as its replies tell it.
struct tsCompanion {
    std::string name; ///< keyword
    std::string unit; ///< with a leading blank; may be empty
    std::function<int(Varnox::tcSensorBoard&)> get;
};

struct tsSetting {
    using Set = std::function<int(Varnox::tcSensorBoard&, int)>;
    using Get = std::function<int(Varnox::tcSensorBoard&, int&)>;
    using Bound = std::function<std::string(Varnox::tcSensorBoard&, int asked, int applied)>;

    std::string group;
    std::string name;     ///< keyword
    std::string argument; ///< name of the value in the help
    std::string unit;     ///< for the replies, with a leading blank; may be empty
    std::string summary;
    std::string details;
    std::vector<std::string> examples;
    std::vector<tsChoice> choices; ///< names of values; may be empty
    int lowest = 0;
    int highest = 0;
    Set set; ///< \return the board's result; empty function: it can only be read
    Get get; ///< \return the board's result; empty function: the board does not tell
    /// \return what kept the board from applying what was asked, for example "the frame interval of
    ///         100000 us"; empty when nothing is known; empty function: the same
    Bound bound;
    /// \return what an applied value does to pictures, and what to give instead; empty when nothing
    /// is
    ///         wrong with it; empty function: the same
    Bound warning;
    /// \return a sentence for its help, of the bounds that hold now; empty function: none
    std::function<std::string(Varnox::tcSensorBoard&)> now;
    /// Settings that the board changes along with this one, also when it refuses the value.
    std::vector<tsCompanion> companions;
    /// What the board took counts, not what it tells: its answer may be a constant.
    bool remember = false;
    int order = -1; ///< place among the settings that are saved; negative: it is not saved
};

/// \return the command that serves the setting: with the value it sets, without it asks
tsCommand settingCommand(tsSetting setting);

/// A value that only the board's operation itself returns.
/// \return a function for `tsSetting::get`
template<typename Operation>
tsSetting::Get plainGetter(Operation operation) {
    return [operation](Varnox::tcSensorBoard& board, int& value) {
        value = (board.*operation)();
        return 0;
    };
}

/// \return "yes" or "no", "on" or "off"
inline std::string yesNo(bool value) {
    return value ? "yes" : "no";
}
inline std::string onOff(bool value) {
    return value ? "on" : "off";
}

} // namespace camhost
