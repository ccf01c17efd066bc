/// \file
/// Several regions of interest in one frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <varnox/export.h>
#include <varnox/roi.h>

namespace Varnox {

/// Base of boards that read out several regions, stacked in the delivered image. The host fills
/// `regions` and `numberOfRegions`, then calls `programMultipleROI`.
///
/// Slots: complete destructor, deleting destructor, `programMultipleROI`.
class VARNOX_API tcMultipleROISensor {
public:
    /// \param slots how many regions the sensor can read out
    explicit tcMultipleROISensor(std::size_t slots);
    tcMultipleROISensor(const tcMultipleROISensor&) = delete;
    tcMultipleROISensor& operator=(const tcMultipleROISensor&) = delete;
    virtual ~tcMultipleROISensor();

    /// Programs the regions into the sensor.
    /// \return a `teResult`
    virtual int programMultipleROI();

    std::int32_t numberOfRegions = 0; ///< active regions; 1 = the board's own single region
    std::vector<ROI> regions;         ///< as many entries as slots, all zero at first
};

} // namespace Varnox
