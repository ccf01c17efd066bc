/// \file
/// A sensor-board plug-in: a shared library with two functions.
#pragma once

#include <memory>
#include <string>

#include <varnox/sensor_board.h>

namespace camhost {

/// A loaded plug-in. Whatever comes from it has to go before it goes.
class tcPlugin {
public:
    /// Loads the library. Its symbols stay its own.
    /// \param path file of the plug-in; a relative path starts in the working directory
    /// \throws tcFatalError (`ePlugin`) when it is missing, not loadable or no plug-in
    explicit tcPlugin(const std::string& path);

    [[nodiscard]] const std::string& path() const { return m_path; }

    /// \return the host's code of the sensor that it serves
    [[nodiscard]] int sensorType() const { return m_sensorType(); }

    /// Builds the board.
    /// \param device SPI device of the sensor
    /// \throws tcFatalError (`eBoard`) when the plug-in throws or returns none
    [[nodiscard]] std::unique_ptr<Varnox::tcSensorBoard> makeBoard(const std::string& device) const;

private:
    using SensorType = int();
    using MakeSensor = Varnox::tcSensorBoard*(const char*);

    template<typename F>
    [[nodiscard]] F* symbol(const char* name) const;

    std::string m_path;
    std::unique_ptr<void, void (*)(void*)> m_library;
    SensorType* m_sensorType;
    MakeSensor* m_makeSensor;
};

} // namespace camhost
