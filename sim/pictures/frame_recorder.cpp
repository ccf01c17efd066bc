#include "sim/pictures/frame_recorder.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace sim {

void tcFrameRecorder::record(const tsFrameSettings& frame) {
    ++m_delivered;
    if (m_ring != nullptr) {
        m_ring->keepFrame(std::as_bytes(std::span(&frame, 1)));
    }
    if (m_kept < m_frames.size()) {
        m_frames[m_kept++] = frame;
    }
}

std::string tcFrameRecorder::bytes() const {
    const auto kept = std::as_bytes(frames());
    std::string result;
    std::transform(kept.begin(), kept.end(), std::back_inserter(result),
                   [](std::byte byte) { return static_cast<char>(byte); });
    return result;
}

std::vector<tsFrameSettings> recordedFrames(const std::string& bytes) {
    std::vector<tsFrameSettings> result(bytes.size() / sizeof(tsFrameSettings));
    if (!result.empty()) {
        std::memcpy(result.data(), bytes.data(), result.size() * sizeof(tsFrameSettings));
    }
    return result;
}

} // namespace sim
