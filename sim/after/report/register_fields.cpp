#include "sim/after/report/register_fields.h"

#include <span>

#include "sensor/registers.h"
#include "sim/base/register_table.h"

namespace sim {

namespace {

constexpr std::uint32_t kWordBytes = 4;

std::uint32_t extract(const tsRegisterField& field, std::uint32_t value) {
    return value >> field.shift & field.mask;
}

std::string described(const tsRegisterField& field, const tsRegisterChange& change) {
    const std::string name = std::string(field.name) + " ";
    const std::string now = std::to_string(extract(field, change.value));
    const std::string before = change.before ? std::to_string(extract(field, *change.before)) : now;
    return before == now ? name + now : name + before + " to " + now;
}

std::string described(std::span<const tsRegisterField> fields, std::uint32_t number,
                      const tsRegisterChange& change) {
    std::string text;
    for (const tsRegisterField& field : fields) {
        if (field.address == number) {
            text += (text.empty() ? "" : ", ") + described(field, change);
        }
    }
    return text;
}

std::string numbered(const char* what, std::uint32_t number, const std::string& text) {
    return std::string(what) + " " + std::to_string(number) + ": " + text;
}

} // namespace

std::string sensorFields(std::uint32_t address, const tsRegisterChange& change) {
    using namespace sensorRegisters;
    const std::uint32_t place = address - kAreaRows;
    if (place >= std::uint32_t{kAreaStride} * sensorArray::kAreas) {
        return described(kAll, address, change);
    }
    // The table has area 0; the others repeat it.
    return numbered("area", place / kAreaStride,
                    described(kAll, kAreaRows + place % kAreaStride, change));
}

std::string fpgaFields(std::uint32_t address, const tsRegisterChange& change) {
    for (const tsRegisterBlock& block : kFpgaBlocks) {
        if (address < block.base) {
            continue;
        }
        const std::uint32_t word = (address - block.base) / kWordBytes;
        if (word < block.elements) {
            return numbered(block.element, word, described(block.fields, 0, change));
        }
        if (std::string text = described(block.fields, word, change); !text.empty()) {
            return text;
        }
    }
    return "";
}

} // namespace sim
