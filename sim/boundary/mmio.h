/// \file
/// Loads and stores of registers, seen one by one.
///
/// Register pages are inaccessible. A load or store faults, the handler decodes the instruction,
/// asks or tells the model, sets the destination register and steps over the instruction.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <span>

namespace sim {

/// Installs the handler of SIGSEGV; the first call does. Whoever calls holds `g_headLock`.
void installTrap();
/// \return whether the handler is installed
bool trapInstalled();

/// What the program asked for SIGSEGV itself; its handler gets the faults that are none of ours.
/// Whoever calls holds `g_headLock`.
struct ::sigaction exchangeProgramAction(const struct ::sigaction* action);

/// Carries out the faulting instruction's access.
/// \param address         that faulted
/// \param physicalAddress of the register there
/// \param context         of the signal, changed as the instruction would change it
/// \return false when the instruction cannot be decoded
bool emulateAccess(std::uintptr_t address, std::uint32_t physicalAddress, void* context);
/// Makes what `emulateAccess` needs; called once, outside any signal handler.
void prepareOutOfLine();
/// Ends an instruction that runs out of line, if the fault is its end.
/// \return whether it was
bool finishOutOfLine(void* context);
/// \return the program counter of the fault
std::uintptr_t programCounter(const void* context);

/// One load from the head. Possible in a signal handler. \param width [bytes]
std::uint32_t busLoad(std::uint32_t physicalAddress, unsigned width);
/// One store to the head. Possible in a signal handler. \param width [bytes]
void busStore(std::uint32_t physicalAddress, unsigned width, std::uint32_t value);
/// Copies the machine code at an address as far as it can be read: nothing need lie behind the page
/// of an instruction. Possible in a signal handler; changes errno.
/// \return bytes copied; the others stay as they are
std::size_t copyCode(std::uintptr_t pc, std::span<std::uint8_t> bytes);
/// \return address as a number
std::uintptr_t numberOf(const void* pointer);

} // namespace sim
