// The C library's signal functions: the program's own handler of SIGSEGV stands behind ours, and
// SIGSEGV is never blocked, because a blocked fault ends the program.

#include <cerrno>
#include <csignal>

#include "sim/base/export.h"
#include "sim/base/real_calls.h"
#include "sim/boundary/boundary.h"
#include "sim/boundary/head_access.h"
#include "sim/boundary/mmio.h"

namespace sim {

namespace {

// \return the set without SIGSEGV, in `copy`, where that matters
const sigset_t* withoutFaults(int how, const sigset_t* set, sigset_t& copy) {
    if (set == nullptr || how == SIG_UNBLOCK || !trapInstalled()) {
        return set;
    }
    copy = *set;
    sigdelset(&copy, SIGSEGV);
    return &copy;
}

} // namespace

} // namespace sim

extern "C" {

SIM_API int sigaction(int number, const struct sigaction* action, struct sigaction* old) noexcept {
    if (number == SIGSEGV && sim::trapInstalled() && !sim::g_headLock.mine()) {
        const sim::tcHeadAccess lock;
        const struct sigaction before = sim::exchangeProgramAction(action);
        if (old != nullptr) {
            *old = before;
        }
        return 0;
    }
    return sim::real::sigaction(number, action, old);
}

SIM_API sighandler_t signal(int number, sighandler_t handler) noexcept {
    if (number == SIGSEGV && sim::trapInstalled() && !sim::g_headLock.mine()) {
        struct sigaction action {};
        action.sa_handler = handler;
        action.sa_flags = SA_RESTART;
        const sim::tcHeadAccess lock;
        return sim::exchangeProgramAction(&action).sa_handler;
    }
    return sim::real::signal(number, handler);
}

SIM_API int sigprocmask(int how, const sigset_t* set, sigset_t* old) noexcept {
    sigset_t copy;
    return sim::real::sigprocmask(how, sim::withoutFaults(how, set, copy), old);
}

SIM_API int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) noexcept {
    sigset_t copy;
    return sim::real::pthreadSigmask(how, sim::withoutFaults(how, set, copy), old);
}

} // extern "C"
