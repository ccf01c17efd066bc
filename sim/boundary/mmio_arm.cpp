// Register accesses of ARM code.

#if defined(__arm__)

#include <cstring>
#include <optional>
#include <ucontext.h>

#include "sim/boundary/arm_decoder.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/mappings.h"
#include "sim/boundary/mmio.h"

namespace sim {

namespace {

constexpr std::uint32_t kThumbBit = 1U << 5;

std::optional<std::uint32_t> registerAt(std::uint32_t address) {
    const tcHeadAccess head;
    return head ? g_mappings.physical(address) : std::nullopt;
}

void* pointerTo(std::uint32_t address) {
    void* pointer = nullptr;
    std::memcpy(&pointer, &address, sizeof pointer);
    return pointer;
}

// Registers, and ordinary memory where a transfer of several words reaches beyond them.
class tcProcessBus : public tcArmBus {
public:
    std::uint32_t load(std::uint32_t address, unsigned width) override {
        if (const std::optional<std::uint32_t> physical = registerAt(address)) {
            return busLoad(*physical, width);
        }
        std::uint32_t value = 0;
        std::memcpy(&value, pointerTo(address), width);
        return value;
    }
    void store(std::uint32_t address, unsigned width, std::uint32_t value) override {
        if (const std::optional<std::uint32_t> physical = registerAt(address)) {
            busStore(*physical, width, value);
        } else {
            std::memcpy(pointerTo(address), &value, width);
        }
    }
};

std::uint32_t* vectorRegisters(ucontext_t& machine) {
    void* const saved = machine.uc_regspace;
    return vectorRegistersIn(
        {static_cast<std::uint32_t*>(saved), sizeof machine.uc_regspace / sizeof(std::uint32_t)});
}

} // namespace

std::uintptr_t programCounter(const void* context) {
    return static_cast<const ucontext_t*>(context)->uc_mcontext.arm_pc;
}

bool finishOutOfLine(void*) {
    return false;
}

void prepareOutOfLine() {}

bool emulateAccess(std::uintptr_t, std::uint32_t, void* context) {
    auto& machine = *static_cast<ucontext_t*>(context);
    tsArmState state;
    static_assert(sizeof(machine.uc_mcontext.arm_r0) == 4);
    // R0 to R15 lie one behind the other.
    std::memcpy(state.registers.data(), &machine.uc_mcontext.arm_r0, sizeof state.registers);
    state.status = static_cast<std::uint32_t>(machine.uc_mcontext.arm_cpsr);
    state.singles = vectorRegisters(machine);
    std::array<std::uint8_t, 4> code{};
    const void* pc = pointerTo(state.registers[15]);
    std::memcpy(code.data(), pc, 2);
    const bool wide = (state.status & kThumbBit) == 0 || code[1] >= 0xE8;
    if (wide) {
        std::memcpy(code.data(), pc, code.size());
    }
    tcProcessBus bus;
    if (!emulateArm(state, code, bus)) {
        return false;
    }
    std::memcpy(&machine.uc_mcontext.arm_r0, state.registers.data(), sizeof state.registers);
    machine.uc_mcontext.arm_cpsr = state.status;
    return true;
}

} // namespace sim

#endif
