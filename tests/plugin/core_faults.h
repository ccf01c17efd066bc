/// \file
/// FPGA cores that throw: another build of the host library may do so at any call.
#pragma once

#include <string>

/// Makes an operation throw `std::runtime_error` instead of reaching its core.
/// \param operation for example "tcPwm::setDutyClks"; those that can fail stand in core_faults.cpp
void failCore(const std::string& operation, const std::string& text);

/// As `failCore`, with something that is no `std::exception`.
void failCoreStrangely(const std::string& operation);

/// As `failCore`; the operation ends its thread instead of throwing, as a host that cancels it
/// does.
void endThreadInCore(const std::string& operation);

/// No operation throws any more.
void healCores();
