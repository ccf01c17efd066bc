// A host, as small as one can be: it loads a sensor-board plug-in, builds the board, sets an
// exposure, captures for half a second, and prints what the board answers.
//
//     host ./sensor_board_3u5mgxs.so /dev/spidev1.0
//
// The plug-in reads its settings files in the working directory. The host ends with 0 when all went
// well, else with 1 and the reason on standard error.

#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <dlfcn.h>

#include <varnox/codes.h>
#include <varnox/plugin_entry.h>
#include <varnox/sensor_board.h>

namespace {

/// \return the plug-in's function of this name
template<typename F>
F functionOf(void* plugin, const char* name) {
    void* const address = dlsym(plugin, name);
    if (address == nullptr) {
        throw std::runtime_error(std::string("no sensor-board plug-in: ") + dlerror());
    }
    return reinterpret_cast<F>(address);
}

/// Prints a result. Every operation answers with a number; varnox/codes.h has the common ones.
void expectSuccess(const char* operation, int result) {
    std::cout << operation << ": result " << result << std::endl;
    if (result != Varnox::eSuccess) {
        throw std::runtime_error(std::string(operation) +
                                 " failed; the lines of the board say why");
    }
}

void captureWith(void* plugin, const char* spiDevice) {
    const auto typeOfSensor = functionOf<decltype(&sensorType)>(plugin, "sensorType");
    std::cout << "sensor type " << typeOfSensor() << std::endl;
    const auto makeBoard = functionOf<decltype(&makeSensor)>(plugin, "makeSensor");
    const std::unique_ptr<Varnox::tcSensorBoard> board(makeBoard(spiDevice));
    if (!board) {
        throw std::runtime_error("the plug-in built no board");
    }
    // The board tells what it does, and why something failed, on the thread that called it.
    board->setStatusListener([](int level, const std::string& text) {
        std::cout << '[' << level << "] " << text << std::endl;
    });

    // Power, registers and link. Before it, settings are remembered at best.
    expectSuccess("initialize", board->initialize());
    // The sensor counts in lines: what it took differs from what it was asked.
    expectSuccess("setExposure 10000 us", board->setExposure(10000));
    const int exposure = board->getExposure(); // boards print, too: not in the middle of a line
    std::cout << "exposure " << exposure << " us" << std::endl;
    expectSuccess("start", board->start());
    // Your host fetches its pictures here.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    expectSuccess("stop", board->stop());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: host PLUG-IN SPI-DEVICE" << std::endl;
        return 1;
    }
    // RTLD_NOW: a plug-in that this host's libraries do not fit fails here, and not in the middle
    // of a capture.
    void* const plugin = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::cerr << "host: " << dlerror() << std::endl;
        return 1;
    }
    int status = 0;
    // The board and what it throws come from the plug-in: both are gone before it is.
    try {
        captureWith(plugin, argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "host: " << error.what() << std::endl;
        status = 1;
    }
    dlclose(plugin);
    return status;
}
