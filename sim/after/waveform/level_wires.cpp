#include "sim/after/waveform/level_wires.h"

#include <cstdint>
#include <string>

#include "fpga/registers.h"
#include "sim/base/timed_text.h"

namespace sim {

void drawGpioLine(tcDumpWriter& dump, const tsTraceLine& line) {
    if (line.words.size() != 4 || line.words[1] == "line") {
        return;
    }
    if (line.words[2] == "=" || line.words[2] == "out") {
        dump.level(line.words[1], line.timeNs, line.words[3] == "1");
    }
}

void drawFlag(tcDumpWriter& dump, const tsTraceLine& line) {
    dump.level(line.words[1], line.timeNs, line.words[2] == "1");
}

void drawLanes(tcDumpWriter& dump, const tsTraceLine& line) {
    const std::uint64_t lanes = numberFrom(line.words[2]);
    for (unsigned lane = 0; lane < frameCtrlRegisters::kLanes; ++lane) {
        dump.level(line.words[1] + std::to_string(lane), line.timeNs, (lanes >> lane & 1) != 0);
    }
}

} // namespace sim
