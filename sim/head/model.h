/// \file
/// The head as one thing: its parts, and how they act on each other.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/calls.h"
#include "sim/base/spin_lock.h"
#include "sim/base/states.h"
#include "sim/base/write_fates.h"
#include "sim/chips/adc.h"
#include "sim/chips/fpga.h"
#include "sim/chips/gpio_chip.h"
#include "sim/chips/link.h"
#include "sim/chips/sensor.h"
#include "sim/chips/spi_port.h"
#include "sim/chips/supplies.h"
#include "sim/head/state_watch.h"
#include "sim/journal/journal.h"
#include "sim/pictures/frame_recorder.h"
#include "sim/pictures/frame_settings.h"
#include "sim/recordings/tape.h"
#include "sim/scenario/faults.h"
#include "sim/scenario/options.h"

namespace sim {

/// Device files of the head.
enum class teDevice : std::uint8_t { spi, gpio, i2c, memory, clock };
inline constexpr std::size_t kDevices = 5;
inline constexpr std::size_t kCallKinds = 8;

/// The head. Whoever uses it holds `g_headLock`.
class tcModel final : private tcWitness {
public:
    explicit tcModel(const tsHeadOptions& options);
    tcModel(const tcModel&) = delete;
    tcModel& operator=(const tcModel&) = delete;

    // --- The parts tell each other ---

    void lineDriven(std::string_view name, int level, bool requested);
    /// \param arrived how the word came over the wire
    void sensorReceives(std::uint32_t word, teWriteFate arrived);
    void sensorMissed(std::uint32_t word, teFate fate);
    /// Logs what becomes of a word for the sensor, if anybody wants to know. To be called before
    /// the sensor takes it.
    void tellSensorWord(std::uint32_t word, teWriteFate fate);

    // --- The boundary asks ---

    /// \return the device with this path, present or not
    [[nodiscard]] std::optional<teDevice> deviceAt(std::string_view path) const;
    [[nodiscard]] std::string_view pathOf(teDevice device) const;
    /// Counts a call. \return errno or `kShort` of a failure that was asked for, else 0
    int count(teCall kind, teDevice device);
    [[nodiscard]] std::uint64_t calls(teCall kind, teDevice device) const;
    void fail(const tsFailure& failure);
    /// \return 0, or errno for a device that is absent or cannot be opened
    [[nodiscard]] int openError(teDevice device) const;
    /// \return errno for a block that cannot be mapped, else 0
    [[nodiscard]] int mapError(std::uint32_t physicalAddress) const;
    /// What waits for time to pass: faults, rules, and frames to be recorded.
    void timePassed() override;
    /// Makes up for the faults that began or ended, and the supplies that sank away, since the last
    /// call: each at its own time.
    void catchUp() {
        if (m_mayChange && !m_catchingUp) {
            catchUpNow();
        }
    }
    /// Keeps what the frames since the last call depended on, if anybody wants pictures. To be
    /// called before anything of it changes.
    void recordFrames();
    /// Logs what the head did by itself since the last look, if anybody wants to know.
    void lookAround();
    std::uint32_t load(std::uint32_t address, unsigned width);
    void store(std::uint32_t address, unsigned width, std::uint32_t value);

    [[nodiscard]] tsSensorState sensorState() const;
    /// \return what a frame that is complete now depends on; empty when none is delivered
    [[nodiscard]] std::optional<tsFrameSettings> frameSettings();
    [[nodiscard]] std::string summary();
    /// \return the summary of a run, which may have been recorded, or played from a recording
    [[nodiscard]] std::string report();
    /// \return whether the program opened any device
    [[nodiscard]] bool used() const { return m_used; }

    const tsHeadOptions& options() const { return m_options; }

    tcJournal journal;
    tcFaults faults;
    tcSupplies supplies;
    tcSensor sensor;
    tcSpiPort spi;
    tcGpioChip gpio;
    tcAdc adc;
    tcLink link;
    tcFpga fpga;
    tcFrameRecorder recorder;
    tcTape tape;
    std::shared_ptr<const tcScene> scene; // null: the test chart, not painted yet

private:
    struct tsPlannedFailure {
        teCall kind;
        teDevice device;
        std::uint64_t nth;
        bool lasting;
        int error;
    };
    void sensorChanged();
    void sees(const tsLogEvent& event) override;
    void catchUpNow();
    [[nodiscard]] std::optional<std::uint64_t> nextChangeNs() const;
    void changeAt(std::uint64_t timeNs);

    tsHeadOptions m_options;
    bool m_mayChange; // a head without faults has nothing to make up for
    bool m_catchingUp = false;
    std::array<std::array<std::uint64_t, kDevices>, kCallKinds> m_calls{};
    std::vector<tsPlannedFailure> m_failures;
    bool m_used = false;
    tcStateWatch m_watch;
    std::uint64_t m_framesSeen = 0; // by the recorder
};

/// The head that answers this process's devices, or null. Changes only under `g_headLock`.
extern std::atomic<tcModel*> g_head;

/// Holds the head's lock. `model` is null when there is no head.
class tcHeadAccess {
public:
    tcHeadAccess() {
        g_headLock.lock();
        m_model = g_head.load(std::memory_order_relaxed);
        if (m_model != nullptr) {
            m_model->catchUp();
        }
    }
    tcHeadAccess(const tcHeadAccess&) = delete;
    tcHeadAccess& operator=(const tcHeadAccess&) = delete;
    ~tcHeadAccess() { g_headLock.unlock(); }
    explicit operator bool() const { return m_model != nullptr; }
    tcModel* operator->() const { return m_model; }
    tcModel& operator*() const { return *m_model; }

private:
    tcModel* m_model;
};

/// From now on a child process gets the head with its lock free, whatever other threads did.
void survivesFork();

/// \return whether there is a head at all, without taking the lock
inline bool headPresent() {
    return g_head.load(std::memory_order_acquire) != nullptr;
}

} // namespace sim
