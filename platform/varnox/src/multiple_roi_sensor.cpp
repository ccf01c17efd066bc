#include <varnox/multiple_roi_sensor.h>

#include <varnox/codes.h>

namespace Varnox {

tcMultipleROISensor::tcMultipleROISensor(std::size_t slots) : regions(slots) {}

tcMultipleROISensor::~tcMultipleROISensor() = default;

int tcMultipleROISensor::programMultipleROI() {
    return eNotSupported;
}

} // namespace Varnox
