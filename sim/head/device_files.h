/// \file
/// The head's device files: their paths, whether they can be opened, and calls that are made to
/// fail.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/base/calls.h"
#include "sim/chips/conditions.h"
#include "sim/scenario/head_options.h"

namespace sim {

/// Device files of the head.
enum class teDevice : std::uint8_t { spi, gpio, i2c, memory, clock };
inline constexpr std::size_t kDevices = 5;
inline constexpr std::size_t kCallKinds = 8;

/// What a program meets before a call reaches a chip. Takes no lock.
class tcDeviceFiles {
public:
    /// \param now which devices are there
    /// \throws std::invalid_argument for a failure that no call can have
    tcDeviceFiles(const tsHeadOptions& options, const tsConditions& now);

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
    /// \return whether the program opened any device
    [[nodiscard]] bool used() const { return m_used; }

private:
    struct tsPlannedFailure {
        teCall kind;
        teDevice device;
        std::uint64_t nth;
        bool lasting;
        int error;
    };
    std::string m_spiPath;
    std::string m_gpioPath;
    const tsConditions& m_now;
    std::array<std::array<std::uint64_t, kDevices>, kCallKinds> m_calls{};
    std::vector<tsPlannedFailure> m_failures;
    bool m_used = false;
};

} // namespace sim
