// Pages of the documentation that follow from tables.

#include <set>
#include <sstream>
#include <vector>

#include "sensor/registers.h"
#include "sensor/supplies.h"
#include "sim/base/register_table.h"
#include "sim/base/rules.h"
#include "sim/base/text.h"
#include "sim/journal/checker.h"
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

void addBlock(std::string& text, const tsRegisterBlock& block) {
    text += "\n## " + std::string(block.title) + ", " + hexText(block.base, 8) +
            "\n\n| Offset | Bits | Field | Meaning |\n|---|---|---|---|\n";
    for (const tsRegisterField& field : block.fields) {
        addFieldRow(text, hexText(std::uint64_t{4} * field.address, 3), field);
    }
}

// A field of the table as an object on a line of its own. Names and meanings hold no quote.
std::string fieldJson(const char* place, const std::string& where, const std::string& name,
                      const tsRegisterField& field) {
    return R"({"name": ")" + name + R"(", ")" + place + R"(": ")" + where + R"(", "low_bit": )" +
           std::to_string(field.shift) + R"(, "bits": )" + std::to_string(bitsIn(field.mask)) +
           R"(, "meaning": ")" + field.meaning + R"("})";
}

std::string joinedLines(const std::vector<std::string>& entries, const std::string& indent) {
    std::string text;
    for (const std::string& entry : entries) {
        text += (text.empty() ? "" : ",") + ("\n" + indent) + entry;
    }
    return text;
}

bool isOfAnArea(const tsRegisterField& field) {
    return field.address == sensorRegisters::kAreaRows ||
           field.address == sensorRegisters::kAreaColumns;
}

std::vector<std::string> areaFields() {
    std::vector<std::string> entries;
    for (unsigned area = 0; area < sensorArray::kAreas; ++area) {
        for (const tsRegisterField& field : sensorRegisters::kAll) {
            if (isOfAnArea(field)) {
                entries.push_back(fieldJson(
                    "address", hexText(field.address + area * sensorRegisters::kAreaStride, 3),
                    "area" + std::to_string(area) + "_" + field.name, field));
            }
        }
    }
    return entries;
}

std::vector<std::string> sensorFieldsJson() {
    std::vector<std::string> entries;
    bool areasAreThere = false;
    for (const tsRegisterField& field : sensorRegisters::kAll) {
        if (!isOfAnArea(field)) {
            entries.push_back(fieldJson("address", hexText(field.address, 3), field.name, field));
        } else if (!areasAreThere) {
            areasAreThere = true;
            const std::vector<std::string> areas = areaFields();
            entries.insert(entries.end(), areas.begin(), areas.end());
        }
    }
    return entries;
}

std::string blockJson(const tsRegisterBlock& block) {
    std::vector<std::string> fields;
    for (const tsRegisterField& field : block.fields) {
        fields.push_back(
            fieldJson("offset", hexText(std::uint64_t{4} * field.address, 3), field.name, field));
    }
    return R"({"title": ")" + std::string(block.title) + R"(", "base": ")" +
           hexText(block.base, 8) + R"(", "words": )" +
           (block.element != nullptr ? std::to_string(block.elements) : "null") +
           R"(, "fields": [)" + joinedLines(fields, "      ") + "]}";
}

// As few digits as name the number: 1.3, not the nearest one of single precision.
std::string shortNumber(float value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string supplyJson(const supplyMonitor::tsSupply& supply) {
    return R"({"name": ")" + std::string(supply.name) + R"(", "channel": )" +
           std::to_string(supply.channel) + R"(, "scale": )" + shortNumber(supply.scale) +
           R"(, "least": )" + shortNumber(supply.minimum) + R"(, "most": )" +
           shortNumber(supply.maximum) + "}";
}

std::string monitorJson() {
    std::vector<std::string> supplies;
    supplies.reserve(supplyMonitor::kSupplies.size());
    for (const supplyMonitor::tsSupply& supply : supplyMonitor::kSupplies) {
        supplies.push_back(supplyJson(supply));
    }
    return R"({
    "chip": "ADS7828",
    "bus": "/dev/i2c-)" +
           std::to_string(supplyMonitor::kBus) + R"(",
    "address": ")" +
           hexText(supplyMonitor::kAddress, 2) + R"(",
    "reference": )" +
           shortNumber(supplyMonitor::kReferenceVolts) + R"(,
    "value_bits": )" +
           std::to_string(supplyMonitor::kValueBits) + R"(,
    "supplies": [)" +
           joinedLines(supplies, "      ") + R"(
    ]
  })";
}

} // namespace

std::string registersJson() {
    std::vector<std::string> blocks;
    blocks.reserve(std::size(kFpgaBlocks));
    for (const tsRegisterBlock& block : kFpgaBlocks) {
        blocks.push_back(blockJson(block));
    }
    return R"({
  "format": 1,
  "board": "3U5MGXS",
  "about": "Registers of sensor and FPGA, and the supplies, for people and programs: docs/register-table.md describes the format. Made by virtual-head --print-register-table.",
  "sensor": {
    "address_bits": 10,
    "value_bits": 22,
    "fastest_clock": )" +
           std::to_string(limits::kFastestSpiHz) + R"(,
    "fields": [)" +
           joinedLines(sensorFieldsJson(), "      ") + R"(
    ]
  },
  "monitor": )" +
           monitorJson() + R"(,
  "fpga": [)" +
           joinedLines(blocks, "    ") + "\n  ]\n}\n";
}

std::string registersMarkdown() {
    std::string text = "# Registers\n\nEvery register field that driver and virtual head know. "
                       "Generated by\n`virtual-head --print-registers` from the register tables.\n";
    addSensor(text);
    text += "\n# FPGA\n\nMapped at physical addresses; every register is 32 bits wide.\n";
    for (const tsRegisterBlock& block : kFpgaBlocks) {
        addBlock(text, block);
    }
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
