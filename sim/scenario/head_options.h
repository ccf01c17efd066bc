/// \file
/// What a head is like.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/base/calls.h"
#include "sim/chips/conditions.h"
#include "sim/chips/fpga.h"
#include "sim/pictures/sensor_image.h"
#include "sim/scenario/fault_plan.h"

namespace sim {

/// One call, or all from one on, that fails.
struct tsFailure {
    teCall kind = teCall::open;
    std::string device;
    std::uint64_t nth = 1;
    bool lasting = false;
    int error = 0;
};

/// Everything that builder and scenario can say. The defaults are a healthy head.
struct tsHeadOptions {
    tsHeadOptions();

    tsConditions conditions; // without faults
    std::vector<tsPlannedFault> faults;
    std::string gpioPath = "/dev/gpiochip0";
    std::string spiPath = "/dev/spidev1.0";
    std::uint64_t spiFailFrom = 0; // message, from 1; 0: none
    int spiFailError = 0;
    tsFpgaFacts fpga;
    std::string scenePath;         // PNG picture; empty: the test chart
    std::vector<tsDefect> defects; // of the sensor's array
    std::vector<tsFailure> failures;
    std::size_t recordedFrames = 0; // at most
    std::string recording;          // file that keeps what passes at the boundary; empty: none
    std::string replayed;           // recording that answers in place of the model; empty: none
    std::string claims;    // files that say which recordings of the run are played; empty: none
    bool hardware = false; // the machine's own devices answer; needs a recording
    bool realTime = false;
    bool wireTime = false;
    bool quiet = false;
    bool stateEvents = false; // the log also says what the head does by itself
    std::size_t logCapacity = std::size_t{1} << 21; // records
};

/// \return whether a sensor's array can have this defect
bool possible(const tsDefect& defect);

/// \return ns as the link keeps them
std::uint64_t linkTime(std::chrono::nanoseconds time);

} // namespace sim
