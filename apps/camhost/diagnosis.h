/// \file
/// What an examination of a head finds: values only. `examination` and `bring_up` gather them,
/// `judgement` says what they mean, `diagnosis_tree` and `diagnosis_json` show them.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/failures/failure_table.h"

namespace camhost {

/// A process that has a device file open.
struct tsHolder {
    int pid = 0;
    std::string program;
};

/// A device file.
struct tsDevice {
    std::string name; ///< of the fact: "port"
    std::string what;
    std::string path;
    bool there = false;
    bool rightKind = false;
    std::string kind; ///< what it is instead: "regular file"
    int error = 0;    ///< errno of opening it for reading and writing
    unsigned mode = 0;
    unsigned owner = 0; ///< user
    unsigned group = 0;
    std::string ownerName;
    std::string groupName;
    std::vector<tsHolder> holders; ///< other processes than this one
};

/// A GPIO line.
struct tsControlLine {
    std::string name;
    std::string onlyFor; ///< what does not work without it; empty: the head does not
    std::string chip;    ///< device file; empty: no chip has a line of this name
    unsigned offset = 0;
    bool output = false;
    bool used = false;
    std::string consumer;
    bool ours = false; ///< the board of this session holds it
};

/// The chip that measures the supplies.
struct tsMonitor {
    failures::tsMonitorFact fact;
    bool asked = false; ///< false: its bus could not be opened
    int error = 0;      ///< errno of the read
    unsigned answer = 0;
};

/// The file of the sensor's register settings.
struct tsSettingsFile {
    std::string path;
    int error = 0; ///< errno of opening it
    unsigned lines = 0;
    unsigned writes = 0;
    unsigned pauses = 0;
    std::chrono::microseconds paused{0};
    unsigned badLine = 0; ///< number of the line at which the driver stops; 0: none
    std::string badText;
    std::vector<unsigned> repeats; ///< lines without both numbers: they repeat earlier ones
};

/// A supply as the board measured it [V].
struct tsSupply {
    std::string name;
    double volts = 0;
    std::optional<failures::tsLimits> limits;
    [[nodiscard]] bool good() const {
        return !limits || (volts >= limits->least && volts <= limits->most);
    }
};

/// A wait for something, with how often it was looked at again.
struct tsWait {
    bool reached = false;
    unsigned tries = 0; ///< looks after the first one
    std::chrono::milliseconds time{0};
};

/// What the board told of its link.
struct tsLink {
    std::vector<std::pair<std::string, bool>> flags; ///< of the PLL, as they were last
    tsWait pll;
    std::optional<std::uint32_t> locked; ///< mask of the lanes
    tsWait lanes;
    std::optional<bool> aligned;
    tsWait alignment;
};

/// Times that hold after an initialization [us].
struct tsTiming {
    int exposure = 0;
    int interval = 0;
    int leastInterval = 0;
};

/// What came of bringing the head up.
struct tsBringUp {
    int result = 0;
    std::string thrown; ///< what the board threw; empty: nothing
    std::vector<tsSupply> supplies;
    tsLink link;
    std::optional<tsTiming> timing;      ///< of a head that came up
    std::vector<std::string> lines;      ///< all that the board said
    std::vector<std::string> complaints; ///< of them what it complained of
    std::string left;                    ///< how the head was left
};

/// Who runs the program.
struct tsUser {
    unsigned id = 0;
    std::string name;
    std::vector<std::string> groups;
    std::vector<unsigned> groupIds;
};

/// Stages of bringing a head up, in their order.
enum class teStage : std::size_t {
    eDevices,
    eLines,
    eMonitor,
    eSettings,
    ePort,
    eSupplies,
    eFpga,
    ePll,
    eLanes,
    eAlignment,
    eTiming
};
inline constexpr std::size_t kStages = 11;

/// What an examination says of a stage.
enum class teState {
    eGood,
    eNoted,   ///< the head comes up, but something does not work
    eWrong,   ///< the head does not come up
    eUnknown, ///< nothing shows it: an earlier stage failed, or the board does not tell
    eLeftOut  ///< not examined
};

/// All that was found.
struct tsDiagnosis {
    std::string plugin;
    std::string spi;
    std::string folder; ///< working directory
    tsUser user;
    std::string noFacts;                 ///< why nothing is known of the head; empty: something is
    bool power = false;                  ///< the head was to be brought up
    bool isUp = false;                   ///< it was brought up earlier in this session
    std::vector<std::string> complaints; ///< of this session's board as it was made
    unsigned lanesOfHead = 0;
    std::vector<tsDevice> devices;
    std::vector<tsControlLine> lines;
    std::optional<tsMonitor> monitor;
    std::optional<tsSettingsFile> settings;
    std::string notBroughtUp; ///< with `power`: why the head was left alone all the same
    std::optional<tsBringUp> broughtUp;
};

} // namespace camhost
