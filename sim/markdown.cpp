// Pages of the documentation that follow from tables.

#include <set>
#include <sstream>

#include <varnox/core_registers.h>

#include "fpga/registers.h"
#include "sensor/registers.h"
#include "sim/checker.h"
#include "sim/text.h"
#include "sim/virtual_head.h"

namespace sim {

namespace {

std::string hexText(std::uint64_t value, unsigned digits) {
    tcText text;
    return std::string(text.hex(value, digits).view());
}

unsigned bitsIn(std::uint32_t mask) {
    return static_cast<unsigned>(__builtin_popcount(mask));
}

std::string bitRange(const tsRegisterField& field) {
    const unsigned low = field.shift;
    const unsigned high = low + bitsIn(field.mask) - 1;
    return high == low ? std::to_string(low) : std::to_string(high) + ":" + std::to_string(low);
}

void addFieldRow(std::string& text, const std::string& where, const tsRegisterField& field) {
    text += "| " + where + " | " + bitRange(field) + " | `" + field.name + "` | " + field.meaning +
            " |\n";
}

void addSensor(std::string& text) {
    text +=
        "\n## Sensor\n\nWritten over SPI, one 32-bit word a write: address in bits 31:22, value "
        "in bits 21:0. The readout\nareas stand for area 0; area n (0 to 7) is " +
        std::to_string(sensorRegisters::kAreaStride) +
        " n addresses further.\n\n| Address | Bits | Field | Meaning |\n|---|---|---|---|\n";
    for (const tsRegisterField& field : sensorRegisters::kAll) {
        addFieldRow(text, hexText(field.address, 3), field);
    }
}

template<class Fields>
void addBlock(std::string& text, const char* title, std::uint32_t base, const Fields& fields) {
    text += "\n## " + std::string(title) + ", " + hexText(base, 8) +
            "\n\n| Offset | Bits | Field | Meaning |\n|---|---|---|---|\n";
    for (const tsRegisterField& field : fields) {
        addFieldRow(text, hexText(std::uint64_t{4} * field.address, 3), field);
    }
}

struct tsCoreRow {
    std::uint32_t word;
    std::uint32_t mask;
    const char* name;
    const char* meaning;
};

std::string maskRange(std::uint32_t mask) {
    const auto low = static_cast<unsigned>(__builtin_ctz(mask));
    const unsigned high = 31 - static_cast<unsigned>(__builtin_clz(mask));
    return high == low ? std::to_string(low) : std::to_string(high) + ":" + std::to_string(low);
}

void addCore(std::string& text, const char* title, std::uint32_t base,
             std::initializer_list<tsCoreRow> rows) {
    text += "\n## " + std::string(title) + ", " + hexText(base, 8) +
            "\n\n| Offset | Bits | Field | Meaning |\n|---|---|---|---|\n";
    for (const tsCoreRow& row : rows) {
        text += "| " + hexText(std::uint64_t{4} * row.word, 3) + " | " + maskRange(row.mask) +
                " | `" + row.name + "` | " + row.meaning + " |\n";
    }
}

void addHostCores(std::string& text) {
    constexpr std::uint32_t full = 0xFFFF'FFFF;
    {
        using namespace pwmRegisters;
        addCore(text, "Frame-start pulses", fpgaAddresses::kPwm,
                {{kControlWord, kControlEnable, "enable", "1 = the pulses run"},
                 {kControlWord, kControlInvert, "invert", "1 = the pulse is low"},
                 {kPeriodWord, full, "period", "period, 2 and more [clocks]"},
                 {kDutyWord, kDutyMax, "duty", "length of the pulse [clocks]"},
                 {coreIdentity::kIdWord, full, "id", "reads 0x50574D31"},
                 {coreIdentity::kRevisionWord, full, "revision", "revision of the core"}});
    }
    {
        using namespace pixelShiftRegisters;
        addCore(text, "Pixel shift", fpgaAddresses::kPixelShift,
                {{kControlWord, kControlReset, "reset", "1 = held in reset"},
                 {kControlWord, kControlLeft, "left", "1 = to the left"},
                 {kControlWord, kControlAmount, "amount", "by how many bits"},
                 {coreIdentity::kIdWord, full, "id", "reads 0x50534831"},
                 {coreIdentity::kRevisionWord, full, "revision", "revision of the core"}});
    }
    using namespace badPixelRegisters;
    constexpr std::uint32_t high = 0xFFFF'0000;
    constexpr std::uint32_t low = 0x0000'FFFF;
    addCore(text, "Bad-pixel replacement, control", fpgaAddresses::kBadPixelControl,
            {{kControlWord, kControlReset, "reset", "1 = held in reset"},
             {kControlWord, kControlColor, "color", "1 = neighbours of the same colour"},
             {kControlWord, kControlApplyMap, "apply_map", "1 = listed pixels are replaced"},
             {kControlWord, kControlRun, "run", "1 = the core passes pixels"},
             {kStatusWord, kStatusRunning, "running", "read: run is set, reset is not"},
             {kRoiOriginWord, high, "roi_y", "first line that arrives [lines]"},
             {kRoiOriginWord, low, "roi_x", "first column that arrives [pixels]"},
             {kRoiSizeWord, high, "roi_height", "height that arrives [lines]"},
             {kRoiSizeWord, low, "roi_width", "width that arrives [pixels]"},
             {kEntriesWord, full, "entries", "pixels in the table"},
             {kBufferWord, full, "buffer", "physical address of the line buffer"},
             {coreIdentity::kIdWord, full, "id", "reads 0x42505231"},
             {coreIdentity::kRevisionWord, full, "revision", "revision of the core"}});
    addCore(text, "Bad-pixel replacement, table", fpgaAddresses::kBadPixelTable,
            {{0, high, "y", "line of the first pixel; one word a pixel, 1,024 words [lines]"},
             {0, low, "x", "column of the first pixel [pixels]"}});
    addCore(text, "Bad-pixel replacement, take-over", fpgaAddresses::kBadPixelTakeOver,
            {{kCommitWord, 1, "commit", "write 1: the table is taken with the next frame"},
             {kInForceWord, full, "in_force", "read: pixels of the table in force"}});
}

} // namespace

std::string registersMarkdown() {
    std::string text = "# Registers\n\nEvery register field that driver and virtual head know. "
                       "Generated by\n`virtual-head --print-registers` from the register tables.\n";
    addSensor(text);
    text += "\n# FPGA\n\nMapped at physical addresses; every register is 32 bits wide.\n";
    addBlock(text, "System id", fpgaAddresses::kBase, baseRegisters::kAll);
    addBlock(text, "Clock generator", fpgaAddresses::kPll, pllRegisters::kAll);
    addBlock(text, "Frame control", fpgaAddresses::kFrameCtrl, frameCtrlRegisters::kAll);
    addHostCores(text);
    return text;
}

std::string rulesMarkdown() {
    std::string text =
        "# Rules of the head\n\nWhat the virtual head's checker knows. A violation is "
        "logged, counted and printed once a rule.\nGenerated by `virtual-head "
        "--print-rules`.\n";
    for (const tsRule& rule : rules()) {
        text += "\n## " + std::string(rule.name) + "\n\n" + rule.what +
                "\n\n- Reason: " + rule.why + "\n- Remedy: " + rule.remedy + "\n";
    }
    return text;
}

} // namespace sim
