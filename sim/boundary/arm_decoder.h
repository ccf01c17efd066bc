/// \file
/// Loads and stores of ARM code (A32 and Thumb-2), carried out on a bus. Runs on any host, so that
/// it can be tested there.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace sim {

/// What an instruction changes.
struct tsArmState {
    std::array<std::uint32_t, 16> registers{}; ///< R15 is the instruction's own address
    std::uint32_t status = 0;                  ///< CPSR; bit 5 set: Thumb
    std::uint32_t* singles = nullptr;          ///< S0 to S31, or null when they cannot be reached
};

/// Where the accesses go.
class tcArmBus {
public:
    tcArmBus() = default;
    tcArmBus(const tcArmBus&) = delete;
    tcArmBus& operator=(const tcArmBus&) = delete;
    virtual ~tcArmBus() = default;
    /// \param width 1, 2 or 4 bytes
    virtual std::uint32_t load(std::uint32_t address, unsigned width) = 0;
    /// \param width 1, 2 or 4 bytes
    virtual void store(std::uint32_t address, unsigned width, std::uint32_t value) = 0;
};

/// Carries out one load or store and steps over it: registers, base register and IT state change as
/// the machine changes them. The instruction's condition held, or it would not have faulted.
/// \param code  the instruction: four bytes at R15, or the two that there are
/// \return false for anything that is no load or store that compilers make of register accesses;
///         nothing has changed then
bool emulateArm(tsArmState& state, const std::array<std::uint8_t, 4>& code, tcArmBus& bus);

/// Looks for the vector registers in what the kernel saves of coprocessors in a signal's frame:
/// records one behind the other, each with a mark and its size in bytes in front, and a mark of 0
/// behind the last one. A kernel that knows other coprocessors puts their records first, also where
/// the processor has none.
/// \return S0; null when there is no such record
std::uint32_t* vectorRegistersIn(std::span<std::uint32_t> saved);

} // namespace sim
