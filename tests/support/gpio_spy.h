/// \file
/// Sees what is made of looked-up lines, and answers look-ups.
#pragma once

#include <functional>
#include <map>
#include <string>

/// What the spy does, for the whole process. Set it while no other thread runs.
struct tsGpioSpy {
    /// Called with "LINE 11" for a line object on this pin, unsigned as it is given, and with
    /// "DIRECTION 1 0" for a `SetDirection`, before they are carried out.
    std::function<void(const std::string& what)> seen;
    /// Answers of the look-up, by device-tree name. Other names are looked up.
    std::map<std::string, int> pins;
};

tsGpioSpy& gpioSpy();
