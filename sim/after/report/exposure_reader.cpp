#include "sim/after/report/exposure_reader.h"

#include <algorithm>

#include "fpga/registers.h"
#include "sensor/registers.h"

namespace sim {

namespace {

constexpr std::uint64_t kSet = 100'000; // ns, between two writes that belong together

} // namespace

void tcExposureReader::see(const tsTraceLine& line) {
    const bool goesOn = line.words.front() == "SPI" || line.words.front() == "STATE";
    if (!goesOn || line.timeNs > m_timingNs + kSet) {
        settle();
    }
}

void tcExposureReader::takeWrite(std::uint64_t timeNs, std::uint32_t address) {
    using namespace sensorRegisters;
    const bool isTiming =
        (address >= kFrameState.address && address <= kGsPos2.address) || address == kHdPrd.address;
    if (isTiming && (m_set.contains(address) || address == kHdMax.address)) {
        settle(); // the next set begins: with the frame's length, where it has one
    }
    if (isTiming) {
        m_set.insert(address);
    }
    m_timingNs = timeNs;
}

void tcExposureReader::settle() {
    const tsTiming now = timing();
    if (!m_set.empty() && now.frameLines != 0 &&
        (m_run.timings.empty() || m_run.timings.back().timing != now)) {
        m_run.timings.push_back({m_timingNs, now});
    }
    m_set.clear();
}

tsTiming tcExposureReader::timing() const {
    using namespace sensorRegisters;
    constexpr std::uint32_t unused = 0x3FFF;
    const std::uint32_t mode = field(kFrameControlMode);
    const bool twice = m_held.sensor.contains(kGsPos2.address) && field(kGsPos2) != unused;
    const std::uint32_t end = field(twice ? kGsPos2 : kGsPos1);
    tsTiming now;
    now.triggered = mode == 1 || mode == 3;
    now.frameLines = field(kHdMax);
    now.lineClocks = field(kHdPrd) + 1;
    now.exposureLines = now.triggered ? field(kTiming14) : end - std::min(end, field(kAccFpos));
    now.fromFirstLine = !now.triggered && field(kAccFpos) == 0;
    now.clockMhz = clockMhz();
    return now;
}

std::uint32_t tcExposureReader::field(const tsRegisterField& wanted) const {
    const auto found = m_held.sensor.find(wanted.address);
    return found == m_held.sensor.end() ? 0 : found->second >> wanted.shift & wanted.mask;
}

// As the generator's counter register has it; 36 MHz until it is written.
double tcExposureReader::clockMhz() const {
    using namespace pllRegisters;
    const auto counter = m_held.fpga.find(fpgaAddresses::kPll + 4 * kCounter.address);
    return counter != m_held.fpga.end() && counter->second == kCounter24MHz ? 24.0 : 36.0;
}

} // namespace sim
