/// \file
/// From microseconds to lines and back. Pure functions: no register is read or written here.
///
/// The sensor counts in lines; one line lasts (hd_prd + 1) / master clock microseconds. Everything
/// is single precision, as the figures of the boards in the field are. Counts are unsigned and wrap
/// where the text of a function says so.
///
///     line 0          acc_fpos              gs_pos (frame length - 2)
///       |----------------|======== exposure ========|--|
#pragma once

#include <chrono>
#include <cstdint>

namespace exposureArithmetic {

/// Longest trigger-driven exposure [lines]: what the 14 bits of its register hold.
inline constexpr std::uint32_t kMaxTriggeredLines = 16383;
/// Largest frame length [lines]: what the 14 bits of hd_max hold.
inline constexpr std::uint16_t kMaxFrameLength = 16383;
/// Lines that the sensor needs besides the row pairs it reads out.
inline constexpr std::uint32_t kReadoutOverhead = 57;

/// \param duration  [us]
/// \param clockMhz  master clock [MHz]
/// \param hdPrd     horizontal period less one [master clocks]
/// \return whole lines in `duration`, 0 to 4294967295
[[nodiscard]] std::uint32_t lines(std::chrono::microseconds duration, float clockMhz,
                                  std::uint32_t hdPrd);

/// \return frame length [lines] for a frame time: the low 16 bits of the line count, at most 16383
[[nodiscard]] std::uint16_t frameLength(std::chrono::microseconds frameTime, float clockMhz,
                                        std::uint32_t hdPrd);

/// \param readoutRows rows read out per frame
/// \param period      horizontal period [master clocks]
/// \param twice       both shutter positions are read out
/// \return time to read a frame out [us]
[[nodiscard]] std::chrono::microseconds readoutTime(std::uint32_t readoutRows, std::uint16_t period,
                                                    float clockMhz, bool twice);

/// An exposure that one global-shutter position ends.
struct tsSingleExposure {
    std::uint16_t gsPos1;              ///< end of accumulation [line]
    std::uint16_t gresPos;             ///< reset position [line]
    std::uint32_t requestedLines;      ///< what was asked for
    bool limited;                      ///< longer than the frame: cut to it
    std::uint32_t accFposBeforeRaise;  ///< start of accumulation before the minimum was applied
    bool raised;                       ///< shorter than one line: made one line
    std::uint32_t accFpos;             ///< start of accumulation [line]
    std::chrono::microseconds applied; ///< what the registers come to
};

/// \param hdMax frame length [lines]
[[nodiscard]] tsSingleExposure singleExposure(std::chrono::microseconds exposure, float clockMhz,
                                              std::uint32_t hdPrd, std::uint32_t hdMax);

/// An exposure in two equal halves, each ended by a global-shutter position.
struct tsDualExposure {
    std::uint16_t gsPos2;              ///< end of the second half [line]
    std::uint32_t requestedLines;      ///< what was asked for
    bool limited;                      ///< longer than the frame: cut to it
    std::uint32_t accFposBeforeRaise;  ///< start of accumulation before the minimum was applied
    bool raised;                       ///< shorter than one line: made two lines
    std::uint32_t accFposBeforeEven;   ///< start of accumulation before the halves were made equal
    bool madeEven;                     ///< odd: made one line shorter
    std::uint32_t accFpos;             ///< start of accumulation [line]
    std::uint16_t gsPos1;              ///< end of the first half [line]
    std::uint16_t gresPos;             ///< reset position [line]
    std::chrono::microseconds applied; ///< what the registers come to
};

/// \param hdMax frame length [lines]
[[nodiscard]] tsDualExposure dualExposure(std::chrono::microseconds exposure, float clockMhz,
                                          std::uint32_t hdPrd, std::uint32_t hdMax);

/// An exposure that a trigger starts.
struct tsTriggeredExposure {
    bool limited;        ///< cut to the maximum
    std::uint32_t count; ///< [lines], 2 to 16383
    std::uint32_t end;   ///< reset position [line]
};

[[nodiscard]] tsTriggeredExposure triggeredExposure(std::chrono::microseconds exposure,
                                                    float clockMhz, std::uint32_t hdPrd);

} // namespace exposureArithmetic
