#include "sensor/exposure_arithmetic.h"

#include <algorithm>

#include "common/saturate.h"

namespace exposureArithmetic {

namespace {

using std::chrono::microseconds;

/// Lines between the last line of a frame and the positions that end it.
constexpr std::uint32_t kGsBeforeEnd = 2;
constexpr std::uint32_t kResetBeforeGs = 2;
constexpr std::uint32_t kMinSingleLines = 1;
constexpr std::uint32_t kMinDualLines = 2; // one for each half

constexpr std::uint16_t low16(std::uint32_t value) {
    return static_cast<std::uint16_t>(value);
}

/// The count is unsigned on the way and lands in a signed duration: a clock of 0 MHz gives -1.
microseconds wholeMicroseconds(std::uint64_t clocks, float clockMhz) {
    const auto count = saturatingTo<std::uint64_t>(static_cast<float>(clocks) / clockMhz);
    return microseconds(static_cast<std::int64_t>(count));
}

/// Where accumulation starts so that `requested` lines pass until `end`.
struct tsStart {
    bool limited;
    std::uint32_t line;
};

tsStart accumulationStart(std::uint32_t requested, std::uint16_t end) {
    if (end < requested) {
        return {true, 0};
    }
    return {false, end - requested};
}

} // namespace

std::uint32_t lines(microseconds duration, float clockMhz, std::uint32_t hdPrd) {
    return saturatingTo<std::uint32_t>(static_cast<float>(duration.count()) * clockMhz /
                                       static_cast<float>(hdPrd + 1));
}

std::uint16_t frameLength(microseconds frameTime, float clockMhz, std::uint32_t hdPrd) {
    return std::min(low16(lines(frameTime, clockMhz, hdPrd)), kMaxFrameLength);
}

microseconds readoutTime(std::uint32_t readoutRows, std::uint16_t period, float clockMhz,
                         bool twice) {
    const std::uint64_t clocks =
        std::uint64_t{(readoutRows >> 1) + kReadoutOverhead} * std::uint64_t{period};
    const microseconds once = wholeMicroseconds(clocks, clockMhz);
    if (!twice) {
        return once;
    }
    // Doubled as the unsigned count it is: it may wrap when the clock is 0 MHz.
    return microseconds(static_cast<std::int64_t>(static_cast<std::uint64_t>(once.count()) * 2));
}

tsSingleExposure singleExposure(microseconds exposure, float clockMhz, std::uint32_t hdPrd,
                                std::uint32_t hdMax) {
    tsSingleExposure result{};
    result.gsPos1 = low16(hdMax - kGsBeforeEnd);
    result.gresPos = low16(hdMax - kGsBeforeEnd - kResetBeforeGs);
    result.requestedLines = lines(exposure, clockMhz, hdPrd);
    const tsStart start = accumulationStart(result.requestedLines, result.gsPos1);
    result.limited = start.limited;
    result.accFposBeforeRaise = start.line;
    result.raised = result.gsPos1 <= start.line;
    result.accFpos = result.raised ? result.gsPos1 - kMinSingleLines : start.line;
    const std::uint32_t clocks = (hdPrd + 1) * (result.gsPos1 - result.accFpos);
    result.applied = wholeMicroseconds(clocks, clockMhz);
    return result;
}

tsDualExposure dualExposure(microseconds exposure, float clockMhz, std::uint32_t hdPrd,
                            std::uint32_t hdMax) {
    tsDualExposure result{};
    result.gsPos2 = low16(hdMax - kGsBeforeEnd);
    result.requestedLines = lines(exposure, clockMhz, hdPrd);
    const tsStart start = accumulationStart(result.requestedLines, result.gsPos2);
    result.limited = start.limited;
    result.accFposBeforeRaise = start.line;
    result.raised = result.gsPos2 <= start.line;
    result.accFposBeforeEven = result.raised ? result.gsPos2 - kMinDualLines : start.line;

    std::uint32_t duration = result.gsPos2 - result.accFposBeforeEven;
    result.madeEven = duration % 2 != 0;
    result.accFpos = result.accFposBeforeEven;
    if (result.madeEven) {
        ++result.accFpos;
        --duration;
    }
    result.gsPos1 = low16(result.accFpos + duration / 2);
    result.gresPos = low16(result.gsPos1 - kResetBeforeGs);
    const std::uint32_t clocks = duration * (hdPrd + 1);
    result.applied = wholeMicroseconds(clocks, clockMhz);
    return result;
}

tsTriggeredExposure triggeredExposure(microseconds exposure, float clockMhz, std::uint32_t hdPrd) {
    constexpr std::uint32_t kMinLines = 2;
    constexpr std::uint32_t kEndBeforeCount = 2;
    const std::uint32_t requested = lines(exposure, clockMhz, hdPrd);
    const bool limited = requested > kMaxTriggeredLines;
    const std::uint32_t count = limited ? kMaxTriggeredLines : std::max(requested, kMinLines);
    return {limited, count, count - kEndBeforeCount};
}

} // namespace exposureArithmetic
