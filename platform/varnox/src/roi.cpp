#include <varnox/roi.h>

namespace Varnox {

std::string ROI::toString() const {
    return "[y: " + std::to_string(y) + ", x: " + std::to_string(x) +
           ", width: " + std::to_string(width) + ", height: " + std::to_string(height) + "]";
}

} // namespace Varnox
