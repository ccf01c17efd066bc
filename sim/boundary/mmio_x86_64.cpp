// Register accesses of x86-64 code. MOV, MOVZX and MOVSX, which compilers use for volatile 32-bit
// objects, are carried out right here. For other instructions with a memory operand a copy of the
// instruction runs out of line on a word of our own, followed by a HLT that brings us back.

#if defined(__x86_64__)

#include <array>
#include <atomic>
#include <cstring>
#include <sched.h>
#include <sys/mman.h>
#include <ucontext.h>

#include "sim/base/real_calls.h"
#include "sim/boundary/mmio.h"

namespace sim {

namespace {

constexpr std::size_t kLongestInstruction = 15; // bytes
constexpr std::uint8_t kHlt = 0xF4;
constexpr std::uint8_t kRexW = 8;
constexpr std::uint8_t kRexR = 4;

// Machine number of a register to its place in the signal's context.
constexpr std::array<int, 16> kRegisterPlaces{REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP,
                                              REG_RSI, REG_RDI, REG_R8,  REG_R9,  REG_R10, REG_R11,
                                              REG_R12, REG_R13, REG_R14, REG_R15};

greg_t& registerOf(ucontext_t& machine, unsigned number) {
    return machine.uc_mcontext.gregs[kRegisterPlaces[number]];
}

std::uint64_t valueOf(ucontext_t& machine, unsigned number) {
    return static_cast<std::uint64_t>(registerOf(machine, number));
}

void setRegister(ucontext_t& machine, unsigned number, std::uint64_t value) {
    registerOf(machine, number) = static_cast<greg_t>(value);
}

// An instruction taken apart.
struct tsInstruction {
    std::array<std::uint8_t, kLongestInstruction> bytes{};
    std::size_t prefixes = 0; // bytes before REX and opcode
    bool operandSize = false; // 0x66
    bool repeat = false;      // 0xF3
    bool repeatNot = false;   // 0xF2
    bool segment = false;
    std::uint8_t rex = 0; // 0: none
    std::size_t opcodeAt = 0;
    bool twoBytes = false; // 0x0F before the opcode
    std::uint8_t opcode = 0;
    std::size_t modRmAt = 0;
    std::size_t operandEnd = 0; // behind ModRM, SIB and displacement

    [[nodiscard]] std::uint8_t modRm() const { return bytes[modRmAt]; }
    [[nodiscard]] unsigned digit() const { return modRm() >> 3 & 7U; }
    [[nodiscard]] unsigned registerNumber() const {
        return digit() | ((rex & kRexR) != 0 ? 8U : 0U);
    }
    [[nodiscard]] unsigned width(bool byteForm) const {
        return byteForm ? 1 : ((rex & kRexW) != 0 ? 8 : (operandSize ? 2 : 4));
    }
};

void parsePrefixes(tsInstruction& instruction, std::size_t& at) {
    for (; at < kLongestInstruction; ++at) {
        switch (instruction.bytes[at]) {
        case 0x66:
            instruction.operandSize = true;
            break;
        case 0xF2:
            instruction.repeatNot = true;
            break;
        case 0xF3:
            instruction.repeat = true;
            break;
        case 0x64:
        case 0x65:
            instruction.segment = true;
            break;
        case 0xF0:
        case 0x2E:
        case 0x36:
        case 0x3E:
        case 0x26:
        case 0x67:
            break;
        default:
            instruction.prefixes = at;
            return;
        }
    }
}

std::size_t operandLength(std::uint8_t modRm, std::uint8_t sib) {
    const unsigned mode = modRm >> 6;
    const unsigned base = modRm & 7U;
    const bool hasSib = base == 4;
    std::size_t length = hasSib ? 2 : 1;
    if (mode == 1) {
        length += 1;
    } else if (mode == 2 || (mode == 0 && (hasSib ? (sib & 7U) == 5 : base == 5))) {
        length += 4;
    }
    return length;
}

tsInstruction parse(std::uintptr_t pc) {
    tsInstruction instruction;
    copyCode(pc, instruction.bytes);
    std::size_t at = 0;
    parsePrefixes(instruction, at);
    if (at + 4 < kLongestInstruction && (instruction.bytes[at] & 0xF0) == 0x40) {
        instruction.rex = instruction.bytes[at++];
    }
    instruction.opcodeAt = at;
    if (at + 4 < kLongestInstruction && instruction.bytes[at] == 0x0F) {
        instruction.twoBytes = true;
        ++at;
    }
    if (at + 3 < kLongestInstruction) {
        instruction.opcode = instruction.bytes[at++];
        instruction.modRmAt = at;
        instruction.operandEnd =
            at + operandLength(instruction.bytes[at], instruction.bytes[at + 1]);
    }
    return instruction;
}

std::uint64_t signExtended(std::uint64_t value, unsigned width) {
    const unsigned shift = 64 - 8 * width;
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(value << shift) >> shift);
}

// A load into a register as the machine does it: 32 bits clear the upper half, narrower ones keep
// the rest. Without REX the byte registers 4 to 7 are AH, CH, DH and BH.
void loadRegister(ucontext_t& machine, const tsInstruction& instruction, std::uint64_t value,
                  unsigned width) {
    const unsigned number = instruction.registerNumber();
    if (width == 8) {
        setRegister(machine, number, value);
    } else if (width == 4) {
        setRegister(machine, number, value & 0xFFFF'FFFF);
    } else if (width == 2) {
        setRegister(machine, number,
                    (valueOf(machine, number) & ~std::uint64_t{0xFFFF}) | (value & 0xFFFF));
    } else {
        const bool high = instruction.rex == 0 && number >= 4;
        const unsigned place = high ? number - 4 : number;
        const unsigned shift = high ? 8 : 0;
        setRegister(machine, place,
                    (valueOf(machine, place) & ~(std::uint64_t{0xFF} << shift)) | (value & 0xFF)
                                                                                      << shift);
    }
}

std::uint64_t storedRegister(ucontext_t& machine, const tsInstruction& instruction,
                             unsigned width) {
    const unsigned number = instruction.registerNumber();
    if (width == 1 && instruction.rex == 0 && number >= 4) {
        return valueOf(machine, number - 4) >> 8;
    }
    return valueOf(machine, number);
}

void stepTo(ucontext_t& machine, std::size_t length) {
    machine.uc_mcontext.gregs[REG_RIP] += static_cast<greg_t>(length);
}

void loadInto(ucontext_t& machine, const tsInstruction& instruction, std::uint32_t physical,
              unsigned memoryWidth, unsigned registerWidth, bool isSigned) {
    const std::uint64_t loaded = busLoad(physical, memoryWidth);
    const std::uint64_t mask =
        memoryWidth == 8 ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * memoryWidth) - 1;
    loadRegister(machine, instruction, isSigned ? signExtended(loaded, memoryWidth) : loaded & mask,
                 registerWidth);
    stepTo(machine, instruction.operandEnd);
}

bool emulateTwoByteMove(ucontext_t& machine, const tsInstruction& instruction,
                        std::uint32_t physical) {
    const unsigned registerWidth = instruction.width(false);
    switch (instruction.opcode) {
    case 0xB6: // MOVZX
    case 0xB7:
        loadInto(machine, instruction, physical, instruction.opcode == 0xB6 ? 1 : 2, registerWidth,
                 false);
        return true;
    case 0xBE: // MOVSX
    case 0xBF:
        loadInto(machine, instruction, physical, instruction.opcode == 0xBE ? 1 : 2, registerWidth,
                 true);
        return true;
    default:
        return false;
    }
}

bool emulateMove(ucontext_t& machine, const tsInstruction& instruction, std::uint32_t physical) {
    if (instruction.twoBytes) {
        return emulateTwoByteMove(machine, instruction, physical);
    }
    const bool byteForm = (instruction.opcode & 1) == 0;
    const unsigned width = instruction.width(byteForm);
    switch (instruction.opcode) {
    case 0x88: // MOV to memory
    case 0x89:
        busStore(physical, width,
                 static_cast<std::uint32_t>(storedRegister(machine, instruction, width)));
        stepTo(machine, instruction.operandEnd);
        return true;
    case 0x8A: // MOV from memory
    case 0x8B:
        loadInto(machine, instruction, physical, width, width, false);
        return true;
    case 0x63: // MOVSXD
        loadInto(machine, instruction, physical, 4, instruction.width(false), true);
        return true;
    case 0xC6: // MOV constant to memory
    case 0xC7: {
        if (instruction.digit() != 0) {
            return false;
        }
        const std::size_t length = byteForm ? 1 : (width == 2 ? 2 : 4);
        std::uint32_t constant = 0;
        std::memcpy(&constant, &instruction.bytes[instruction.operandEnd], length);
        busStore(physical, width, constant);
        stepTo(machine, instruction.operandEnd + length);
        return true;
    }
    default:
        return false;
    }
}

// --- Everything else: out of line ---

enum class teEffect : std::uint8_t { unknown, reads, writes, modifies };

struct tsOperation {
    teEffect effect = teEffect::unknown;
    unsigned width = 4;        // of the memory operand [bytes]
    std::size_t constants = 0; // bytes behind the operand
};

std::size_t constantLength(const tsInstruction& instruction, bool byteForm) {
    return byteForm ? 1 : (instruction.width(false) == 2 ? 2 : 4); // REX.W outweighs 0x66
}

tsOperation classifyTwoBytes(const tsInstruction& instruction) {
    const std::uint8_t opcode = instruction.opcode;
    const unsigned width = instruction.width(false);
    const unsigned scalar = (instruction.rex & kRexW) != 0 ? 8 : 4;
    using enum teEffect;
    if ((opcode & 0xF0) == 0x40 || opcode == 0xAF || opcode == 0xBC || opcode == 0xBD ||
        (opcode == 0xB8 && instruction.repeat)) { // CMOV, IMUL, BSF, BSR, POPCNT
        return {reads, width, 0};
    }
    if ((opcode & 0xF0) == 0x90) { // SET
        return {writes, 1, 0};
    }
    if (opcode == 0xBA && instruction.digit() >= 4) { // BT, BTS, BTR, BTC with a constant
        return {instruction.digit() == 4 ? reads : modifies, width, 1};
    }
    if (opcode == 0xB0 || opcode == 0xC0) { // CMPXCHG, XADD
        return {modifies, 1, 0};
    }
    if (opcode == 0xB1 || opcode == 0xC1) {
        return {modifies, width, 0};
    }
    if (opcode == 0x6E && instruction.operandSize) { // MOVD to XMM
        return {reads, scalar, 0};
    }
    if (opcode == 0x7E && instruction.operandSize && !instruction.repeat) { // MOVD from XMM
        return {writes, scalar, 0};
    }
    if ((opcode == 0x10 || opcode == 0x11) && instruction.repeat) { // MOVSS
        return {opcode == 0x10 ? reads : writes, 4, 0};
    }
    if (opcode == 0x2A && (instruction.repeat || instruction.repeatNot)) { // CVTSI2SS, CVTSI2SD
        return {reads, scalar, 0};
    }
    return {};
}

tsOperation classifyGroup3(const tsInstruction& instruction, bool byteForm) {
    using enum teEffect;
    const unsigned width = instruction.width(byteForm);
    switch (instruction.digit()) {
    case 0: // TEST
    case 1:
        return {reads, width, constantLength(instruction, byteForm)};
    case 2: // NOT
    case 3: // NEG
        return {modifies, width, 0};
    default: // MUL, IMUL, DIV, IDIV
        return {reads, width, 0};
    }
}

tsOperation classify(const tsInstruction& instruction) {
    using enum teEffect;
    if (instruction.twoBytes) {
        return classifyTwoBytes(instruction);
    }
    const std::uint8_t opcode = instruction.opcode;
    const bool byteForm = (opcode & 1) == 0;
    const unsigned width = instruction.width(byteForm);
    constexpr unsigned compare = 7;
    if (opcode < 0x40 && (opcode & 7) < 4) { // ADD, OR, ADC, SBB, AND, SUB, XOR, CMP
        const bool toMemory = (opcode & 2) == 0;
        return {toMemory && opcode >> 3 != compare ? modifies : reads, width, 0};
    }
    switch (opcode) {
    case 0x69: // IMUL with a constant
        return {reads, instruction.width(false), constantLength(instruction, false)};
    case 0x6B:
        return {reads, instruction.width(false), 1};
    case 0x80: // the same eight with a constant
    case 0x81:
        return {instruction.digit() == compare ? reads : modifies, width,
                constantLength(instruction, byteForm)};
    case 0x83:
        return {instruction.digit() == compare ? reads : modifies, width, 1};
    case 0x84: // TEST
    case 0x85:
        return {reads, width, 0};
    case 0x86: // XCHG
    case 0x87:
    case 0xD0: // shifts and rotations
    case 0xD1:
    case 0xD2:
    case 0xD3:
        return {modifies, width, 0};
    case 0xC0:
    case 0xC1:
        return {modifies, width, 1};
    case 0xF6:
    case 0xF7:
        return classifyGroup3(instruction, byteForm);
    case 0xFE: // INC, DEC
    case 0xFF:
        return instruction.digit() <= 1 ? tsOperation{modifies, width, 0} : tsOperation{};
    default:
        return {};
    }
}

// Copies of instructions run here: code and words on pages of their own, so that a store does not
// look like self-modifying code to the machine.
constexpr std::size_t kSlots = 64;
constexpr std::size_t kSlotBytes = 32;
struct tsSlot {
    tsOperation operation;
    std::uint32_t physical = 0;
    unsigned base = 0;           // register that points at the word meanwhile
    std::uint64_t baseValue = 0; // what belongs in it
    std::uint64_t resumeAt = 0;
};
std::array<tsSlot, kSlots> s_slots;
constinit std::atomic<std::uint64_t> s_taken{0};
constinit std::atomic<std::uint8_t*> s_code{nullptr};
std::uint8_t* s_words = nullptr;

void* pages(int protection) {
    void* result =
        real::mmap(nullptr, kSlots * kSlotBytes, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (result == MAP_FAILED) {
        stopProgram("virtual head: no memory for instructions out of line\n");
    }
    return result;
}

std::size_t takeSlot() {
    for (;;) {
        std::uint64_t taken = s_taken.load(std::memory_order_relaxed);
        while (~taken != 0) {
            const auto slot = static_cast<std::size_t>(__builtin_ctzll(~taken));
            if (s_taken.compare_exchange_weak(taken, taken | std::uint64_t{1} << slot,
                                              std::memory_order_acquire)) {
                return slot;
            }
        }
        sched_yield();
    }
}

// A register that the instruction does not use, neither as its operand (RBX is number 3, and 7 is
// BH in byte operations) nor without naming it.
unsigned freeRegister(const tsInstruction& instruction) {
    constexpr unsigned rbx = 3;
    constexpr unsigned rsi = 6;
    return (instruction.digit() & rbx) == rbx ? rsi : rbx;
}

void writeCopy(const tsInstruction& instruction, const tsOperation& operation, unsigned base,
               std::uint8_t* code) {
    std::size_t to = 0;
    const auto put = [&](std::uint8_t byte) { code[to++] = byte; };
    for (std::size_t at = 0; at < instruction.prefixes; ++at) {
        if (instruction.bytes[at] != 0x67) {
            put(instruction.bytes[at]);
        }
    }
    if (instruction.rex != 0) {
        put(static_cast<std::uint8_t>(instruction.rex & ~3U)); // base is one of the first eight
    }
    for (std::size_t at = instruction.opcodeAt; at < instruction.modRmAt; ++at) {
        put(instruction.bytes[at]);
    }
    put(static_cast<std::uint8_t>(instruction.digit() << 3 | base));
    for (std::size_t at = 0; at < operation.constants; ++at) {
        put(instruction.bytes[instruction.operandEnd + at]);
    }
    put(kHlt);
}

bool startOutOfLine(ucontext_t& machine, const tsInstruction& instruction, std::uint32_t physical) {
    const tsOperation operation = classify(instruction);
    if (operation.effect == teEffect::unknown) {
        return false;
    }
    const std::size_t number = takeSlot();
    std::uint8_t* code = s_code.load(std::memory_order_acquire) + number * kSlotBytes;
    std::uint8_t* word = s_words + number * kSlotBytes;
    std::uint64_t value = 0;
    if (operation.effect != teEffect::writes) {
        value = busLoad(physical, operation.width);
    }
    std::memcpy(word, &value, sizeof value);
    tsSlot& slot = s_slots[number];
    slot.operation = operation;
    slot.physical = physical;
    slot.base = freeRegister(instruction);
    slot.baseValue = valueOf(machine, slot.base);
    slot.resumeAt = static_cast<std::uint64_t>(machine.uc_mcontext.gregs[REG_RIP]) +
                    instruction.operandEnd + operation.constants;
    writeCopy(instruction, operation, slot.base, code);
    setRegister(machine, slot.base, numberOf(word));
    machine.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(numberOf(code));
    return true;
}

} // namespace

std::uintptr_t programCounter(const void* context) {
    const auto* machine = static_cast<const ucontext_t*>(context);
    return static_cast<std::uintptr_t>(machine->uc_mcontext.gregs[REG_RIP]);
}

bool finishOutOfLine(void* context) {
    auto& machine = *static_cast<ucontext_t*>(context);
    const std::uint8_t* code = s_code.load(std::memory_order_acquire);
    const std::uintptr_t offset = programCounter(context) - numberOf(code);
    if (code == nullptr || offset >= kSlots * kSlotBytes || code[offset] != kHlt) {
        return false;
    }
    const std::size_t number = offset / kSlotBytes;
    const tsSlot& slot = s_slots[number];
    if (slot.operation.effect != teEffect::reads) {
        std::uint32_t value = 0;
        std::memcpy(&value, s_words + number * kSlotBytes, sizeof value);
        busStore(slot.physical, slot.operation.width, value);
    }
    setRegister(machine, slot.base, slot.baseValue);
    machine.uc_mcontext.gregs[REG_RIP] = static_cast<greg_t>(slot.resumeAt);
    s_taken.fetch_and(~(std::uint64_t{1} << number), std::memory_order_release);
    return true;
}

bool emulateAccess(std::uintptr_t, std::uint32_t physicalAddress, void* context) {
    auto& machine = *static_cast<ucontext_t*>(context);
    const tsInstruction instruction = parse(programCounter(context));
    if (instruction.operandEnd == 0 || instruction.segment) {
        return false;
    }
    return emulateMove(machine, instruction, physicalAddress) ||
           startOutOfLine(machine, instruction, physicalAddress);
}

void prepareOutOfLine() {
    if (s_code.load(std::memory_order_relaxed) == nullptr) {
        s_words = static_cast<std::uint8_t*>(pages(PROT_READ | PROT_WRITE));
        s_code.store(static_cast<std::uint8_t*>(pages(PROT_READ | PROT_WRITE | PROT_EXEC)),
                     std::memory_order_release);
    }
}

} // namespace sim

#endif
