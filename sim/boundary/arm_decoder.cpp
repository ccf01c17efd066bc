#include "sim/boundary/arm_decoder.h"

#include <optional>

namespace sim {

namespace {

constexpr std::uint32_t kThumbBit = 1U << 5;
constexpr unsigned kPc = 15;
constexpr unsigned kSp = 13;

constexpr std::uint32_t bitsOf(std::uint32_t value, unsigned high, unsigned low) {
    return value >> low & ((1U << (high - low + 1)) - 1);
}

constexpr bool bitOf(std::uint32_t value, unsigned at) {
    return (value >> at & 1U) != 0;
}

// One transfer of a general register.
struct tsTransfer {
    bool load = false;
    unsigned width = 4; // bytes
    bool isSigned = false;
    unsigned target = 0;
    unsigned second = 0; // of a pair
    bool pair = false;
    unsigned base = 0;
    std::uint32_t offset = 0; // added to the base
    bool before = true;       // the offset counts for the access
    bool writeBack = false;   // the base becomes base + offset
};

std::uint32_t extended(std::uint32_t value, unsigned width, bool isSigned) {
    if (width == 4) {
        return value;
    }
    const unsigned bits = 8 * width;
    value &= (1U << bits) - 1;
    return isSigned && bitOf(value, bits - 1) ? value | ~((1U << bits) - 1) : value;
}

bool carryOut(tsArmState& state, const tsTransfer& transfer, tcArmBus& bus) {
    if (transfer.base == kPc || transfer.target == kPc || transfer.second == kPc) {
        return false; // constants and jumps are not register accesses
    }
    auto& registers = state.registers;
    const std::uint32_t base = registers[transfer.base];
    const std::uint32_t changed = base + transfer.offset;
    const std::uint32_t address = transfer.before ? changed : base;
    if (transfer.load) {
        const std::uint32_t first = bus.load(address, transfer.width);
        const std::uint32_t other = transfer.pair ? bus.load(address + 4, 4) : 0;
        if (transfer.writeBack) {
            registers[transfer.base] = changed;
        }
        registers[transfer.target] = extended(first, transfer.width, transfer.isSigned);
        if (transfer.pair) {
            registers[transfer.second] = other;
        }
        return true;
    }
    bus.store(address, transfer.width, extended(registers[transfer.target], transfer.width, false));
    if (transfer.pair) {
        bus.store(address + 4, 4, registers[transfer.second]);
    }
    if (transfer.writeBack) {
        registers[transfer.base] = changed;
    }
    return true;
}

// Several registers, lowest at the lowest address.
struct tsBlock {
    bool load = false;
    unsigned base = 0;
    std::uint32_t list = 0;
    bool up = true;
    bool before = false;
    bool writeBack = false;
};

bool carryOut(tsArmState& state, const tsBlock& block, tcArmBus& bus) {
    if (block.base == kPc || block.list == 0 || bitOf(block.list, kPc)) {
        return false;
    }
    auto& registers = state.registers;
    const auto size = 4 * static_cast<std::uint32_t>(__builtin_popcount(block.list));
    const std::uint32_t base = registers[block.base];
    const std::uint32_t changed = block.up ? base + size : base - size;
    std::uint32_t address = block.up ? base : changed;
    if (block.before == block.up) {
        address += 4;
    }
    if (block.writeBack && block.load) {
        registers[block.base] = changed; // a loaded base wins
    }
    for (unsigned at = 0; at < kPc; ++at) {
        if (!bitOf(block.list, at)) {
            continue;
        }
        if (block.load) {
            registers[at] = bus.load(address, 4);
        } else {
            bus.store(address, 4, registers[at]);
        }
        address += 4;
    }
    if (block.writeBack && !block.load) {
        registers[block.base] = changed;
    }
    return true;
}

// VLDR and VSTR of a single-precision register, the same in both instruction sets.
bool emulateVector(tsArmState& state, std::uint32_t code, tcArmBus& bus) {
    constexpr std::uint32_t single = 0xA;
    if (bitsOf(code, 27, 24) != 0xD || bitOf(code, 21) || bitsOf(code, 11, 8) != single ||
        state.singles == nullptr || bitsOf(code, 19, 16) == kPc) {
        return false;
    }
    const std::uint32_t offset = 4 * bitsOf(code, 7, 0);
    const std::uint32_t base = state.registers[bitsOf(code, 19, 16)];
    const std::uint32_t address = bitOf(code, 23) ? base + offset : base - offset;
    std::uint32_t& target = state.singles[bitsOf(code, 15, 12) << 1 | (bitOf(code, 22) ? 1U : 0U)];
    if (bitOf(code, 20)) {
        target = bus.load(address, 4);
    } else {
        bus.store(address, 4, target);
    }
    return true;
}

// --- A32 ---

// A register operand, shifted by a constant.
std::uint32_t shifted(const tsArmState& state, std::uint32_t code) {
    const std::uint32_t value = state.registers[bitsOf(code, 3, 0)];
    const unsigned amount = bitsOf(code, 11, 7);
    switch (bitsOf(code, 6, 5)) {
    case 0: // LSL
        return value << amount;
    case 1: // LSR; 0 means 32
        return amount == 0 ? 0 : value >> amount;
    case 2: { // ASR; 0 means 32
        const bool negative = bitOf(value, 31);
        if (amount == 0) {
            return negative ? ~0U : 0;
        }
        return value >> amount | (negative ? ~(~0U >> amount) : 0);
    }
    default: // ROR; 0 means one place through the carry
        if (amount == 0) {
            return value >> 1 | (bitOf(state.status, 29) ? 1U << 31 : 0);
        }
        return value >> amount | value << (32 - amount);
    }
}

void addIndexing(tsTransfer& transfer, std::uint32_t code, std::uint32_t offset) {
    transfer.offset = bitOf(code, 23) ? offset : 0U - offset;
    transfer.before = bitOf(code, 24);
    transfer.writeBack = !transfer.before || bitOf(code, 21);
    transfer.base = bitsOf(code, 19, 16);
    transfer.target = bitsOf(code, 15, 12);
}

// Words and bytes.
std::optional<tsTransfer> decodeSingle(const tsArmState& state, std::uint32_t code) {
    const bool byRegister = bitOf(code, 25);
    if (byRegister && bitOf(code, 4)) {
        return std::nullopt; // media instructions
    }
    tsTransfer transfer;
    transfer.load = bitOf(code, 20);
    transfer.width = bitOf(code, 22) ? 1 : 4;
    addIndexing(transfer, code, byRegister ? shifted(state, code) : bitsOf(code, 11, 0));
    return transfer;
}

// Halfwords, signed values and pairs.
std::optional<tsTransfer> decodeExtra(const tsArmState& state, std::uint32_t code) {
    const std::uint32_t kind = bitsOf(code, 6, 5);
    if (!bitOf(code, 7) || !bitOf(code, 4) || kind == 0) {
        return std::nullopt;
    }
    tsTransfer transfer;
    const bool loadBit = bitOf(code, 20);
    transfer.pair = !loadBit && kind >= 2;
    transfer.load = loadBit || kind == 2;
    transfer.width = transfer.pair ? 4 : (kind == 2 ? 1 : 2);
    transfer.isSigned = loadBit && kind >= 2;
    const std::uint32_t offset = bitOf(code, 22) ? bitsOf(code, 11, 8) << 4 | bitsOf(code, 3, 0)
                                                 : state.registers[bitsOf(code, 3, 0)];
    addIndexing(transfer, code, offset);
    transfer.second = transfer.pair ? transfer.target + 1 : 0;
    return transfer;
}

tsBlock decodeBlock(std::uint32_t code) {
    tsBlock block;
    block.load = bitOf(code, 20);
    block.base = bitsOf(code, 19, 16);
    block.list = bitsOf(code, 15, 0);
    block.up = bitOf(code, 23);
    block.before = bitOf(code, 24);
    block.writeBack = bitOf(code, 21);
    return block;
}

bool emulateA32(tsArmState& state, std::uint32_t code, tcArmBus& bus) {
    constexpr std::uint32_t unconditional = 0xF;
    if (bitsOf(code, 31, 28) == unconditional) {
        return false;
    }
    std::optional<tsTransfer> transfer;
    switch (bitsOf(code, 27, 25)) {
    case 0:
        transfer = decodeExtra(state, code);
        break;
    case 2:
    case 3:
        transfer = decodeSingle(state, code);
        break;
    case 4:
        return !bitOf(code, 22) && carryOut(state, decodeBlock(code), bus);
    case 6:
        return emulateVector(state, code, bus);
    default:
        break;
    }
    return transfer && carryOut(state, *transfer, bus);
}

// --- Thumb ---

std::optional<tsTransfer> decodeThumb16(const tsArmState& state, std::uint32_t code) {
    tsTransfer transfer;
    transfer.base = bitsOf(code, 5, 3);
    transfer.target = bitsOf(code, 2, 0);
    transfer.load = bitOf(code, 11);
    const std::uint32_t scale = bitsOf(code, 10, 6);
    switch (bitsOf(code, 15, 12)) {
    case 5: { // register offset
        constexpr std::array<unsigned, 8> widths{4, 2, 1, 1, 4, 2, 1, 2};
        const std::uint32_t operation = bitsOf(code, 11, 9);
        transfer.load = operation >= 3;
        transfer.width = widths[operation];
        transfer.isSigned = operation == 3 || operation == 7;
        transfer.offset = state.registers[bitsOf(code, 8, 6)];
        return transfer;
    }
    case 6: // word
        transfer.offset = 4 * scale;
        return transfer;
    case 7: // byte
        transfer.width = 1;
        transfer.offset = scale;
        return transfer;
    case 8: // halfword
        transfer.width = 2;
        transfer.offset = 2 * scale;
        return transfer;
    case 9: // relative to the stack pointer
        transfer.base = kSp;
        transfer.target = bitsOf(code, 10, 8);
        transfer.offset = 4 * bitsOf(code, 7, 0);
        return transfer;
    default:
        return std::nullopt;
    }
}

bool emulateThumb16(tsArmState& state, std::uint32_t code, tcArmBus& bus) {
    constexpr std::uint32_t blockTransfer = 0xC;
    if (bitsOf(code, 15, 12) == blockTransfer) {
        tsBlock block;
        block.load = bitOf(code, 11);
        block.base = bitsOf(code, 10, 8);
        block.list = bitsOf(code, 7, 0);
        block.writeBack = !block.load || !bitOf(block.list, block.base);
        return carryOut(state, block, bus);
    }
    const std::optional<tsTransfer> transfer = decodeThumb16(state, code);
    return transfer && carryOut(state, *transfer, bus);
}

// Single registers: first halfword 1111100 S I size L Rn.
std::optional<tsTransfer> decodeThumb32Single(const tsArmState& state, std::uint32_t first,
                                              std::uint32_t second) {
    const std::uint32_t size = bitsOf(first, 6, 5);
    if (size == 3) {
        return std::nullopt;
    }
    tsTransfer transfer;
    transfer.load = bitOf(first, 4);
    transfer.isSigned = bitOf(first, 8);
    transfer.width = 1U << size;
    transfer.base = bitsOf(first, 3, 0);
    transfer.target = bitsOf(second, 15, 12);
    if (transfer.isSigned && !transfer.load) {
        return std::nullopt;
    }
    if (bitOf(first, 7)) {
        transfer.offset = bitsOf(second, 11, 0);
    } else if (bitOf(second, 11)) {
        const std::uint32_t offset = bitsOf(second, 7, 0);
        transfer.offset = bitOf(second, 9) ? offset : 0U - offset;
        transfer.before = bitOf(second, 10);
        transfer.writeBack = bitOf(second, 8);
    } else if (bitsOf(second, 10, 6) == 0) {
        transfer.offset = state.registers[bitsOf(second, 3, 0)] << bitsOf(second, 5, 4);
    } else {
        return std::nullopt;
    }
    return transfer;
}

// Pairs: first halfword 1110100 P U 1 W L Rn, without the exclusive forms.
std::optional<tsTransfer> decodeThumb32Pair(std::uint32_t first, std::uint32_t second) {
    if (!bitOf(first, 8) && !bitOf(first, 5)) {
        return std::nullopt;
    }
    tsTransfer transfer;
    transfer.load = bitOf(first, 4);
    transfer.pair = true;
    transfer.base = bitsOf(first, 3, 0);
    transfer.target = bitsOf(second, 15, 12);
    transfer.second = bitsOf(second, 11, 8);
    const std::uint32_t offset = 4 * bitsOf(second, 7, 0);
    transfer.offset = bitOf(first, 7) ? offset : 0U - offset;
    transfer.before = bitOf(first, 8);
    transfer.writeBack = bitOf(first, 5);
    return transfer;
}

bool emulateThumb32(tsArmState& state, std::uint32_t first, std::uint32_t second, tcArmBus& bus) {
    std::optional<tsTransfer> transfer;
    if (bitsOf(first, 15, 9) == 0x7C) {
        transfer = decodeThumb32Single(state, first, second);
    } else if ((first & 0xFE40) == 0xE840) {
        transfer = decodeThumb32Pair(first, second);
    } else if ((first & 0xFE40) == 0xE800 && bitOf(first, 8) != bitOf(first, 7)) {
        tsBlock block;
        block.load = bitOf(first, 4);
        block.base = bitsOf(first, 3, 0);
        block.list = second;
        block.up = bitOf(first, 7);
        block.before = bitOf(first, 8);
        block.writeBack = bitOf(first, 5);
        return carryOut(state, block, bus);
    } else if (bitsOf(first, 15, 8) == 0xED) {
        return emulateVector(state, first << 16 | second, bus);
    }
    return transfer && carryOut(state, *transfer, bus);
}

// The If-Then state counts the instructions of its block: bits 15..10 and 26..25 of the status.
void advanceIfThen(tsArmState& state) {
    std::uint32_t block = bitsOf(state.status, 15, 10) << 2 | bitsOf(state.status, 26, 25);
    block = (block & 7) == 0 ? 0 : (block & 0xE0) | (block << 1 & 0x1F);
    constexpr std::uint32_t places = 0x3FU << 10 | 3U << 25;
    state.status = (state.status & ~places) | (block >> 2) << 10 | (block & 3) << 25;
}

} // namespace

bool emulateArm(tsArmState& state, const std::array<std::uint8_t, 4>& code, tcArmBus& bus) {
    const std::uint32_t first =
        static_cast<std::uint32_t>(code[0]) | static_cast<std::uint32_t>(code[1]) << 8;
    const std::uint32_t second =
        static_cast<std::uint32_t>(code[2]) | static_cast<std::uint32_t>(code[3]) << 8;
    if ((state.status & kThumbBit) == 0) {
        if (!emulateA32(state, second << 16 | first, bus)) {
            return false;
        }
        state.registers[kPc] += 4;
        return true;
    }
    constexpr std::uint32_t firstOfTwo =
        0xE800; // halfwords from here on begin a 32-bit instruction
    const bool wide = first >= firstOfTwo;
    if (wide ? !emulateThumb32(state, first, second, bus) : !emulateThumb16(state, first, bus)) {
        return false;
    }
    state.registers[kPc] += wide ? 4 : 2;
    advanceIfThen(state);
    return true;
}

std::uint32_t* vectorRegistersIn(std::span<std::uint32_t> saved) {
    constexpr std::uint32_t kVectorMark = 0x5646'5001;
    constexpr std::size_t kHeader = 2; // words: mark, size
    while (saved.size() > kHeader && saved[0] != 0) {
        if (saved[0] == kVectorMark) {
            return saved.data() + kHeader;
        }
        const std::size_t words = saved[1] / sizeof(std::uint32_t);
        if (words < kHeader || words > saved.size()) {
            return nullptr;
        }
        saved = saved.subspan(words);
    }
    return nullptr;
}

} // namespace sim
