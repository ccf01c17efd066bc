#include "sim/boundary/mmio.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <ucontext.h>
#include <unistd.h>

#include "sim/base/real_calls.h"
#include "sim/base/text.h"
#include "sim/base/user_pointer.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/mappings.h"
#include "sim/boundary/preload.h"
#include "sim/boundary/taped.h"
#include "sim/boundary/user_memory.h"

namespace sim {

namespace {

constinit std::atomic<bool> s_installed{false};
struct ::sigaction s_programAction {};

constexpr std::size_t kShownBytes = 16; // of an instruction that cannot be decoded
constexpr std::uintptr_t kPage = 4096;  // the smallest there is

[[noreturn]] void stopUndecodable(std::uintptr_t address, std::uint32_t physicalAddress,
                                  const void* context) {
    tcText text;
    const std::uintptr_t pc = programCounter(context);
    text.add("virtual head: cannot decode the access to register ").hex(physicalAddress, 8);
    text.add(" (address ").hex(address).add(") at PC ").hex(pc).add(", bytes");
    std::array<std::uint8_t, kShownBytes> bytes{};
    const std::size_t shown = copyCode(pc, bytes);
    for (const std::uint8_t byte : std::span(bytes).first(shown)) {
        text.add(" ").bareHex(byte, 2);
    }
    stopProgram(text.add("\n").view());
}

std::optional<std::uint32_t> physicalOf(std::uintptr_t address) {
    const tcHeadAccess head;
    return head ? g_mappings.physical(address) : std::nullopt;
}

// As the kernel would have called it, had ours not been there.
void callProgramHandler(int number, siginfo_t* info, void* context) {
    struct ::sigaction action {};
    {
        const tcHeadAccess head;
        action = s_programAction;
    }
    programMayDie();
    const bool withInfo = (action.sa_flags & SA_SIGINFO) != 0;
    if (!withInfo && (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN)) {
        struct ::sigaction standard {};
        standard.sa_handler = SIG_DFL;
        real::sigaction(SIGSEGV, &standard, nullptr);
        return; // the instruction faults again and ends the program
    }
    auto* machine = static_cast<ucontext_t*>(context);
    sigset_t mask = action.sa_mask;
    for (int other = 1; other < NSIG; ++other) {
        if (sigismember(&machine->uc_sigmask, other) == 1) {
            sigaddset(&mask, other);
        }
    }
    sigset_t old{};
    real::pthreadSigmask(SIG_SETMASK, &mask, &old);
    if (withInfo) {
        action.sa_sigaction(number, info, context);
    } else {
        action.sa_handler(number);
    }
    real::pthreadSigmask(SIG_SETMASK, &old, nullptr);
}

void onFault(int number, siginfo_t* info, void* context) {
    const int error = errno;
    if (finishOutOfLine(context)) {
        errno = error;
        return;
    }
    const std::uintptr_t address = numberOf(info->si_addr);
    if (info->si_code > 0) {
        if (const std::optional<std::uint32_t> physical = physicalOf(address)) {
            if (!emulateAccess(address, *physical, context)) {
                stopUndecodable(address, *physical, context);
            }
            errno = error;
            return;
        }
    }
    callProgramHandler(number, info, context);
    errno = error;
}

} // namespace

std::uintptr_t numberOf(const void* pointer) {
    std::uintptr_t number = 0;
    std::memcpy(&number, &pointer, sizeof number);
    return number;
}

std::size_t copyCode(std::uintptr_t pc, std::span<std::uint8_t> bytes) {
    const std::uintptr_t left = kPage - pc % kPage;
    const std::uint8_t* const code = userPointer(pc);
    const std::size_t length = left >= bytes.size() || userMemory::readable(code + left, 1)
                                   ? bytes.size()
                                   : static_cast<std::size_t>(left);
    std::memcpy(bytes.data(), code, length);
    return length;
}

void installTrap() {
    if (s_installed.load(std::memory_order_relaxed)) {
        return;
    }
    prepareOutOfLine();
    struct ::sigaction action {};
    action.sa_sigaction = onFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigfillset(&action.sa_mask);
    real::sigaction(SIGSEGV, &action, &s_programAction);
    s_installed.store(true, std::memory_order_release);
    sigset_t fault{};
    sigemptyset(&fault);
    sigaddset(&fault, SIGSEGV);
    real::pthreadSigmask(SIG_UNBLOCK, &fault, nullptr);
}

bool trapInstalled() {
    return s_installed.load(std::memory_order_acquire);
}

struct ::sigaction exchangeProgramAction(const struct ::sigaction* action) {
    const struct ::sigaction old = s_programAction;
    if (action != nullptr) {
        s_programAction = *action;
    }
    return old;
}

std::uint32_t busLoad(std::uint32_t physicalAddress, unsigned width) {
    const tcHeadAccess head;
    if (!head) {
        return tcFpga::kUnmodelledValue;
    }
    return taped::wanted(*head) ? taped::load(*head, physicalAddress, width)
                                : head->load(physicalAddress, width);
}

void busStore(std::uint32_t physicalAddress, unsigned width, std::uint32_t value) {
    const tcHeadAccess head;
    if (head && taped::wanted(*head)) {
        taped::store(*head, physicalAddress, width, value);
    } else if (head) {
        head->store(physicalAddress, width, value);
    }
}

} // namespace sim
