/// \file
/// The head as one thing: its parts, and how they act on each other.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "sim/base/states.h"
#include "sim/base/write_fates.h"
#include "sim/chips/adc.h"
#include "sim/chips/fpga.h"
#include "sim/chips/gpio_chip.h"
#include "sim/chips/link.h"
#include "sim/chips/sensor.h"
#include "sim/chips/spi_port.h"
#include "sim/chips/supplies.h"
#include "sim/head/device_files.h"
#include "sim/head/frame_watch.h"
#include "sim/head/state_watch.h"
#include "sim/journal/journal.h"
#include "sim/pictures/frame_recorder.h"
#include "sim/pictures/frame_settings.h"
#include "sim/recordings/tape.h"
#include "sim/scenario/fault_timing.h"
#include "sim/scenario/head_options.h"

namespace sim {

/// The head. Takes no lock: whoever uses it sees to it that nobody else does.
class tcModel final : private tcWitness, private tcWiring, private tcSpiPeripheral {
public:
    explicit tcModel(const tsHeadOptions& options);
    tcModel(const tcModel&) = delete;
    tcModel& operator=(const tcModel&) = delete;

    /// What waits for time to pass: faults, rules, and frames to be recorded.
    void timePassed() override;
    /// Makes up for the faults that began or ended, and the supplies that sank away, since the last
    /// call: each at its own time.
    void catchUp() {
        if (m_mayChange && !m_catchingUp) {
            catchUpNow();
        }
    }
    /// Looks whether pictures come, and keeps what the frames since the last call depended on, if
    /// anybody wants them. To be called before anything of it changes.
    void recordFrames();
    /// Looks whether pictures come, and logs what the head did by itself since the last look, if
    /// anybody wants to know.
    void lookAround();
    /// Shows every event and the latest picture to somebody from now on. \param ring null: to
    /// nobody
    void showTo(tcLiveRing* ring);
    /// Another fault, at once or when it says. \return as `tcFaults::add`
    bool addFault(tcFaults::tcRoom& room);
    /// \return as `tcFaults::end`
    bool endFault(std::string_view name);
    std::uint32_t load(std::uint32_t address, unsigned width);
    void store(std::uint32_t address, unsigned width, std::uint32_t value);

    [[nodiscard]] tsSensorState sensorState() const;
    /// \return what a frame that is complete now depends on; empty when none is delivered
    [[nodiscard]] std::optional<tsFrameSettings> frameSettings();
    const tsHeadOptions& options() const { return m_options; }

    tcJournal journal;
    tcFaults faults;
    tcDeviceFiles devices;
    tcSupplies supplies;
    tcSensor sensor;
    tcSpiPort spi;
    tcGpioChip gpio;
    tcAdc adc;
    tcLink link;
    tcFpga fpga;
    tcFrameRecorder recorder;
    tcFrameWatch frameWatch;
    tcTape tape;
    std::shared_ptr<const tcScene> scene; // null: the test chart, not painted yet

private:
    // The parts tell each other
    void lineDriven(std::string_view name, int level, bool requested) override;
    void wordArrived(std::uint32_t word, teWriteFate how) override;
    void wordLost(std::uint32_t word, teWriteFate why) override;
    void wordNotSent(std::uint32_t word) override;
    /// Logs what becomes of a word for the sensor, if anybody wants to know. To be called before
    /// the sensor takes it.
    void tellSensorWord(std::uint32_t word, teWriteFate fate);
    void sensorChanged();
    void watchFrames();
    [[nodiscard]] std::uint64_t frameIntervalNs() const;
    void sees(const tsLogEvent& event) override;
    void catchUpNow();
    [[nodiscard]] std::optional<std::uint64_t> nextChangeNs() const;
    void changeAt(std::uint64_t timeNs);

    tsHeadOptions m_options;
    bool m_mayChange; // a head without faults has nothing to make up for
    bool m_catchingUp = false;
    tcStateWatch m_watch;
    std::uint64_t m_framesSeen = 0; // by the recorder
};

} // namespace sim
