#include "sim/frame_recorder.h"

#include <cstring>

namespace sim {

void tcFrameRecorder::record(const tsFrameSettings& frame) {
    ++m_delivered;
    if (m_kept < m_frames.size()) {
        m_frames[m_kept++] = frame;
    }
}

std::string tcFrameRecorder::bytes() const {
    std::string result(frames().size_bytes(), '\0');
    std::memcpy(result.data(), m_frames.data(), result.size());
    return result;
}

std::vector<tsFrameSettings> recordedFrames(const std::string& bytes) {
    std::vector<tsFrameSettings> result(bytes.size() / sizeof(tsFrameSettings));
    std::memcpy(result.data(), bytes.data(), result.size() * sizeof(tsFrameSettings));
    return result;
}

} // namespace sim
