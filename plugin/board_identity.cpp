// Identity, version and temperature.

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <string>

#include "common/mutex_guard.h"
#include "plugin/board.h"

namespace Varnox {

namespace {

constexpr char kModel[] = "3U5MGXS";
constexpr char kMaker[] = "Canon";

// In the order of the version text.
constexpr std::array kVersionFiles{
    "version/cam_part.txt",      "version/serial.txt",           "version/sensor_part.txt",
    "version/sensor_serial.txt", "version/sensor_board_rev.txt", "version/soc_io_board_rev.txt",
    "version/io_board_rev.txt",  "version/kernel_version.txt",
};

/// \return the file's first line as it stands; "???" when it cannot be read
std::string firstLine(const char* fileName) {
    std::ifstream file(fileName);
    std::string line;
    std::getline(file, line);
    // An empty file has ended, which is no failure.
    const bool readable = file.good() || file.eof();
    return readable ? line : "???";
}

} // namespace

std::string tc3U5MGXSSensorBoard::getVersion() {
    const tcMutexGuard guard(boardMutex());
    std::string version;
    for (const char* fileName : kVersionFiles) {
        version += '"' + firstLine(fileName) + "\" ";
    }
    // The compiler's own date and time, which a reproducible build pins.
    version += "\"SW:" __DATE__ " " __TIME__ "\" ";
    version += "SYSID:" + m_fpga.getSysId();
    return version;
}

int tc3U5MGXSSensorBoard::GetCameraInfo(tsCameraInfo& info) {
    // Everything behind the model's eight characters, padding included: hosts compare whole
    // records.
    auto* const bytes = static_cast<unsigned char*>(static_cast<void*>(&info));
    std::fill(bytes + sizeof(kModel), bytes + sizeof(info), static_cast<unsigned char>(0));
    std::memcpy(info.model, kModel, sizeof(kModel));
    std::memcpy(info.maker, kMaker, sizeof(kMaker));
    info.fullFrame = kFullFrame;
    info.flags = 0;
    info.sensorWidth = kFullFrame.width;
    info.sensorHeight = kFullFrame.height;
    return eSuccess;
}

std::string tc3U5MGXSSensorBoard::getTemperature(int /*index*/) {
    return "-275";
}

int tc3U5MGXSSensorBoard::save(int /*slot*/) {
    return eNotSupported;
}

int tc3U5MGXSSensorBoard::recall(int /*slot*/) {
    return eNotSupported;
}

} // namespace Varnox
