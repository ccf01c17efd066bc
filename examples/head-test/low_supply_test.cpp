// A test of a camera stack against a head that is broken on purpose: the 1.2 V supply stays at 1 V.
// Whatever opens the camera must refuse to go on, must say why, and must not start a sensor that it
// cannot supply.
//
//     low_supply_test PLUG-IN SETTINGS-FOLDER
//
// The program links the virtual head's library. While a head exists, it answers /dev/spidev*,
// /dev/gpiochip*, /dev/i2c-* and /dev/mem of this process; the code under test is what runs on the
// board. Time is virtual: the 300 ms that a supply takes to settle pass at once. Ends with 0 when
// all holds.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <dlfcn.h>

#include <sim/virtual_head.h>
#include <varnox/plugin_entry.h>
#include <varnox/sensor_board.h>

namespace {

int failures = 0;

void expect(bool holds, const std::string& what) {
    std::cout << (holds ? "ok: " : "FAILED: ") << what << std::endl;
    failures += holds ? 0 : 1;
}

/// What your camera stack does to open a camera: here by the plug-in alone, in your test by your
/// stack. \param lines gets the board's status lines \return the result of `initialize`
int openCamera(void* plugin, std::vector<std::string>& lines) {
    const auto makeBoard = reinterpret_cast<decltype(&makeSensor)>(dlsym(plugin, "makeSensor"));
    const std::unique_ptr<Varnox::tcSensorBoard> board(makeBoard("/dev/spidev1.0"));
    board->setStatusListener([&lines](int, const std::string& text) { lines.push_back(text); });
    return board->initialize();
}

void refusesALowSupply(void* plugin) {
    const sim::tcVirtualHead head = sim::aVirtualHead().withRail(sim::kRail1V2, 1.0).build();
    std::vector<std::string> lines;
    expect(openCamera(plugin, lines) != 0, "a camera with 1 V in place of 1.2 V does not open");
    expect(!lines.empty() && lines.back() == "Sensor powerup error!",
           "its last status line says why");
    expect(head.lines(sim::teEventKind::spi).empty(), "no register of its sensor is written");
    expect(!head.link().enabled, "its link stays off");
    expect(head.violations().empty(), "no rule of the hardware is broken");
}

// A test that can only fail says little: the same on a head of which nothing is said, which is a
// healthy one.
void opensAHealthyHead(void* plugin) {
    const sim::tcVirtualHead head = sim::aVirtualHead().build();
    std::vector<std::string> lines;
    expect(openCamera(plugin, lines) == 0, "a healthy camera opens");
    expect(head.sensorAlive(), "its sensor runs");
    expect(head.violations().empty(), "no rule of the hardware is broken");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: low_supply_test PLUG-IN SETTINGS-FOLDER" << std::endl;
        return EXIT_FAILURE;
    }
    const std::string file = std::filesystem::absolute(argv[1]).string();
    std::filesystem::current_path(argv[2]); // where the plug-in looks for its settings
    void* const plugin = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::cerr << dlerror() << std::endl;
        return EXIT_FAILURE;
    }
    refusesALowSupply(plugin);
    opensAHealthyHead(plugin);
    dlclose(plugin);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
