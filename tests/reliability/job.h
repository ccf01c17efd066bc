/// \file
/// All that a host does with a board in its life, on a head of its own, with everything to judge
/// it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"

/// What one board did.
struct tsJob {
    int initialized = 0;               ///< result of `initialize`
    std::vector<std::string> results;  ///< "setExposure 0", in the order of the calls
    std::vector<std::string> statuses; ///< "4 Sensor powerup error!", in order; -1 without a level
    std::string errors;                ///< standard error, `perror` included
    std::chrono::nanoseconds took{0};  ///< virtual time
};

/// What a second board did on the same head afterwards.
struct tsFollowUp {
    int initialized = 0;
    std::vector<std::string> trace; ///< construction to destruction, without loads and violations:
                                    ///< what a load finds depends on who used the head before, as
                                    ///< is the enable bit that a flip of the line pairs keeps
    std::map<std::uint16_t, std::uint32_t> sensor;
    std::vector<std::uint32_t> fpga; ///< the frame-control core's words that software sets
    std::uint64_t violations = 0;
};

/// What a board did when it was initialized once more, at the end of its job.
struct tsAgain {
    int initialized = 0;
    std::vector<std::string> trace;  ///< as that of `tsFollowUp`
    std::vector<std::string> broken; ///< rules of the head
};

/// A job, then an undisturbed second board on the same head.
struct tsLife {
    tsJob job;
    std::optional<tsAgain> again; ///< when the plan wanted it
    tsFollowUp next;
    int descriptorsLost = 0;     ///< by the job
    int descriptorsLostNext = 0; ///< by the second board
};

/// What a life needs besides its head. Each may be empty.
struct tsLifePlan {
    std::function<bool(int)> goOn; ///< whether the job goes on after this result of `initialize`
    std::function<void()> atWork;  ///< when everything but the first board is built
    /// Asked when the job is done and its board still lives: whether this board is initialized once
    /// more. The fault is over then.
    std::function<bool(const sim::tcVirtualHead&)> initializesAgain;
    std::function<void()> heal; ///< between the two boards: mends what is not the head's
    /// Whether every fault of the head has struck; one that has not would strike the second board,
    /// which then gets a head of its own.
    std::function<bool(const sim::tcVirtualHead&)> spent;
};

/// Events that the log of a head for `live` must hold.
inline constexpr std::size_t kLogEvents = 65'536;

/// \param builder of the head, with its faults
tsLife live(sim::tcVirtualHeadBuilder& builder, const tsLifePlan& plan);

/// \return open descriptors of this process
int openDescriptors();

/// \return the lowest number that a descriptor opened next can have, as limits count
rlim_t firstFreeDescriptor();
