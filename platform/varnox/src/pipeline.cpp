#include <varnox/pipeline.h>

namespace Varnox {

tcPipeline::~tcPipeline() = default;

int tcPipeline::open() {
    return eSuccess;
}

int tcPipeline::close() {
    m_streaming = false;
    return eSuccess;
}

int tcPipeline::startStream() {
    m_streaming = true;
    return eSuccess;
}

int tcPipeline::stopStream() {
    m_streaming = false;
    return eSuccess;
}

bool tcPipeline::isStreaming() {
    return m_streaming;
}

int tcPipeline::flush() {
    return eSuccess;
}

int tcPipeline::setFrameCount(int frames) {
    m_frameCount = frames;
    return eSuccess;
}

int tcPipeline::getFrameCount() {
    return m_frameCount;
}

int tcPipeline::setGeometry(const ROI& roi) {
    m_geometry = roi;
    return eSuccess;
}

ROI tcPipeline::getGeometry() {
    return m_geometry;
}

int tcPipeline::setColor(bool color) {
    m_color = color;
    return eSuccess;
}

bool tcPipeline::getColor() {
    return m_color;
}

int tcPipeline::setGamma(int percent) {
    m_gamma = percent;
    return eSuccess;
}

int tcPipeline::getGamma() {
    return m_gamma;
}

int tcPipeline::getPixelPacking() {
    return m_packing;
}

int tcPipeline::setPixelPacking(int packing) {
    if (packing != ePacking8 && packing != ePacking12 && packing != ePacking16)
        return eInvalidArgument;
    m_packing = packing;
    return eSuccess;
}

} // namespace Varnox
