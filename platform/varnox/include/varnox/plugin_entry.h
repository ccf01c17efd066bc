/// \file
/// The two functions by which a host finds a camera head's board in a plug-in.
///
/// A plug-in is a shared library that defines both; the declarations give them plain names and
/// export them. A host declares nothing else either:
///
///     void* library = dlopen("./sensor_board.so", RTLD_NOW | RTLD_LOCAL);
///     auto make = reinterpret_cast<decltype(&makeSensor)>(dlsym(library, "makeSensor"));
#pragma once

#include <varnox/export.h>

namespace Varnox {
class tcSensorBoard;
}

extern "C" {

/// Starts nothing: a host may ask each plug-in that it finds.
/// \return the host's code of the sensor that the plug-in serves
VARNOX_API int sensorType();

/// Builds a board. A host builds no second one while the first one lives: it would find the
/// board's lines in use.
/// \param spiDevice path of the sensor's SPI device, for example "/dev/spidev1.0"
/// \return the board; the host deletes it through its virtual destructor, before it unloads the
///         plug-in
/// \throws whatever the board's construction throws. The exception's type may live in the plug-in:
///         catch it before you unload the plug-in.
VARNOX_API Varnox::tcSensorBoard* makeSensor(const char* spiDevice);
}
