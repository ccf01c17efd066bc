/// \file
/// From the value of a scenario's key to what it means for the head.
///
/// Every operation returns false for a value that is not allowed; what it would have set is then of
/// no use.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/chips/supplies.h"
#include "sim/scenario/head_options.h"

namespace sim::values {

/// \param value one of the words `on` and `off`
[[nodiscard]] bool setFlag(bool& flag, const std::string& value, const char* on, const char* off);
/// \param value milliseconds, or "never"
[[nodiscard]] bool setTime(std::uint64_t& time, const std::string& value);
/// \param value volts, or an offset with its sign
[[nodiscard]] bool setRail(tsHeadOptions& options, teRail rail, const std::string& value);
/// \param lines one bit each \param value names of the head's lines, separated by commas
[[nodiscard]] bool setLines(std::uint32_t& lines, const std::string& value);
/// \param value names of FPGA cores, separated by commas
[[nodiscard]] bool setSilentCores(tsHeadOptions& options, const std::string& value);
/// \param value physical addresses of FPGA pages, separated by commas
[[nodiscard]] bool setUnmappable(tsHeadOptions& options, const std::string& value);
/// \param value a message's number and an error: "5 EIO"
[[nodiscard]] bool setFailFrom(tsHeadOptions& options, const std::string& value);
/// \param value two numbers: "0x3505 0x10203"
[[nodiscard]] bool setSystemId(tsHeadOptions& options, const std::string& value);
/// \param present false for the value "none" \param prefix with which the path begins
[[nodiscard]] bool setPath(std::string& path, bool& present, const std::string& value,
                           std::string_view prefix);
/// \param value "CALL DEVICE N ERRNO", N with a "+" behind it for all later ones as well
[[nodiscard]] bool addFailure(tsHeadOptions& options, const std::string& value);
/// \param value "X Y CODE", or "none" for none of those before
[[nodiscard]] bool addDefect(tsHeadOptions& options, const std::string& value);

} // namespace sim::values
