/// \file
/// What a host finds in the plug-in. Both functions have C linkage and plain names. They are
/// declared here, and not by varnox/plugin_entry.h, since another stack's library need not have
/// that header.
#pragma once

namespace Varnox {
class tcSensorBoard;
}

extern "C" {

/// \return 7, the host's code of the 3U5MGXS sensor
__attribute__((visibility("default"))) int sensorType();

/// Builds the board. The sensor stays off until the board's `initialize`.
/// \param spiDevice path of the sensor's SPI device, for example "/dev/spidev1.0"
/// \return the board; the host deletes it through its virtual destructor
/// \throws std::logic_error for a null pointer; whatever the board's construction throws
__attribute__((visibility("default"))) Varnox::tcSensorBoard* makeSensor(const char* spiDevice);
}
