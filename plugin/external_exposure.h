/// \file
/// Who times the exposure: the sensor or the trigger.
#pragma once

namespace Varnox {

/// What the exposure-mode command needs of a board. A host's board is asked for it by a run-time
/// checked cast, so boards without it are told apart.
///
/// Slots: complete destructor, deleting destructor, `setInternalExposureMode`,
/// `getInternalExposureMode`.
class tcExternalExposure {
public:
    tcExternalExposure() = default;
    tcExternalExposure(const tcExternalExposure&) = delete;
    tcExternalExposure& operator=(const tcExternalExposure&) = delete;
    virtual ~tcExternalExposure() = default;

    /// \param internal true: the sensor times the exposure; false: the trigger does
    /// \return a `teResult`
    virtual int setInternalExposureMode(bool internal) = 0;

    virtual bool getInternalExposureMode() = 0;
};

} // namespace Varnox
