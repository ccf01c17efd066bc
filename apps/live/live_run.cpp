#include "apps/live/live_run.h"

#include <utility>

namespace live {

tcLiveRun::tcLiveRun(const tsLiveOptions& options, sim::tcFrameWriter pictures)
    : m_pictures(std::move(pictures)),
      m_programs(options.folder, m_timeLine),
      m_faults(options.scenarioText, m_timeLine),
      m_interface(options.about, m_timeLine, m_programs, m_faults, m_pictures),
      m_service(m_interface, options.host, options.port) {
    m_programs.begin([this](bool news) {
        m_programs.watched(m_service.watched());
        m_service.tellStreams(news);
    });
}

void tcLiveRun::programEnded(int status) {
    m_programs.drain();
    m_interface.ended(status);
    m_service.tellStreams(true);
}

} // namespace live
