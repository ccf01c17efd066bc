/// \file
/// The numbers that host and sensor boards exchange: results, status levels, modes.
///
/// Every enumeration has a fixed underlying type, so a host may pass a value that has no
/// enumerator; the board decides what to do with it.
#pragma once

#include <cstdint>

namespace Varnox {

/// Results of the sensor-board operations. Codes of lower layers pass through unchanged.
enum teResult : int {
    eSuccess = 0,           ///< done
    eInvalidArgument = 3,   ///< invalid argument or unknown register
    eValidationFailed = 4,  ///< validation failed or mode not supported
    eCaptureInProgress = 5, ///< refused while capturing
    eLinkFailure = 6,       ///< serial link or pipeline failure
    eNotSupported = 7,      ///< the board has nothing of the kind
};

/// Levels of the status lines that a board reports to its host.
enum teStatusLevel : int {
    eStatusPlain = -1,         ///< a line reported without a level
    eStatusCaptureStarted = 0, ///< a capture begins
    eStatusCaptureEnded = 1,   ///< a capture is over
    eStatusError = 4,          ///< something failed
    eStatusProgress = 6,       ///< a step of what is under way
};

/// What starts a frame.
enum teTriggerMode : int {
    eTriggerFreeRunning = 0, ///< the board itself, once a frame interval
    eTriggerExternal = 1,    ///< the trigger input
};

/// How the rows of a frame are exposed.
enum teShutterMode : int {
    eShutterRolling = 0, ///< one after the other
    eShutterGlobal = 1,  ///< all at once
};

/// How pixels are delivered. The sensor's ADC depth is not part of it.
enum teBPPMode : int {
    eBPP12 = 0, ///< 12 bits, right-aligned in 16
    eBPP10 = 1, ///< 10 bits, right-aligned in 16
    eBPP8 = 2,  ///< the upper 8 of 12 bits
    eBPP16 = 3, ///< 12 bits, left-aligned in 16
};

/// What the board delivers in place of the picture.
enum teTestPattern : int {
    eTestPatternOff = 0,           ///< the picture
    eTestPatternDefault = 1,       ///< the board's usual ramp
    eTestPatternSensorFirst = 16,  ///< first pattern made by the sensor itself
    eTestPatternSensorSecond = 17, ///< second pattern made by the sensor itself
};

/// Codes that `tcPipeline::setPixelPacking` takes.
enum tePixelPacking : int {
    ePacking8 = 1,  ///< upper byte of a left-aligned pixel
    ePacking12 = 2, ///< 12 bits, right-aligned in 16
    ePacking16 = 3, ///< 12 bits, left-aligned in 16
};

/// `tsUpdate::kind` of a write to one word of the register file.
inline constexpr int kUpdateWordWrite = 1;

/// `tsUpdate::status` of an update that an observer took and could not carry out.
inline constexpr std::uint16_t kUpdateFailed = 0x8FFF;

} // namespace Varnox
