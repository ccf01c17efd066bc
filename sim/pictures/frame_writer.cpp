#include "sim/pictures/frame_writer.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "sim/pictures/frame_recorder.h"
#include "sim/pictures/png_file.h"

namespace sim {

namespace {

constexpr std::uint32_t kFullCode = 4095; // of the sensor's ADC

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!(bytes << file.rdbuf()) && !bytes.str().empty()) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return bytes.str();
}

std::string fileName(std::size_t number) {
    const std::string digits = std::to_string(number);
    const std::string padding(digits.size() < 4 ? 4 - digits.size() : 0, '0');
    return "frame-" + padding + digits + ".png";
}

bool isNumbered(const std::string& name) {
    constexpr std::string_view prefix = "frame-";
    constexpr std::string_view suffix = ".png";
    if (!name.starts_with(prefix) || !name.ends_with(suffix) ||
        name.size() <= prefix.size() + suffix.size()) {
        return false;
    }
    const std::string digits =
        name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    return digits.find_first_not_of("0123456789") == std::string::npos && digits.size() >= 4;
}

// The first text chunk comes right behind the header.
bool isOurs(const std::filesystem::path& path) {
    constexpr std::size_t start = 200; // bytes
    using namespace std::string_view_literals;
    std::ifstream file(path, std::ios::binary);
    std::string bytes(start, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes.find("tEXtSoftware\0virtual-head"sv) != std::string::npos;
}

// What the pixel shift makes of the ADC's full code, without the bits that fall out at the top.
std::uint32_t whiteOf(const tsFpgaImage& fpga) {
    const std::uint32_t word = fpga.shiftLeft ? kFullCode << fpga.shift : kFullCode >> fpga.shift;
    return std::clamp(word, 1U, 0xFFFFU);
}

} // namespace

tcFrameWriter::tcFrameWriter(tcScene scene, std::vector<tsDefect> defects)
    : m_scene(std::move(scene)), m_defects(std::move(defects)) {}

void tcFrameWriter::clear(const std::string& folder) {
    namespace fs = std::filesystem;
    std::vector<fs::path> old;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (isNumbered(entry.path().filename().string()) &&
            entry.symlink_status().type() == fs::file_type::regular && isOurs(entry.path())) {
            old.push_back(entry.path());
        }
    }
    for (const fs::path& picture : old) {
        fs::remove(picture);
    }
}

std::optional<tsFrame> tcFrameWriter::picture(const std::string& settings) const {
    const std::vector<tsFrameSettings> frames = recordedFrames(settings);
    return frames.size() == 1 ? std::optional(render(frames.front(), m_scene, m_defects))
                              : std::nullopt;
}

std::vector<tsThumbnail> tcFrameWriter::write(const std::string& recording,
                                              const std::string& folder) {
    std::vector<tsThumbnail> thumbnails;
    for (const tsFrameSettings& settings : recordedFrames(contentOf(recording))) {
        const tsFrame frame = render(settings, m_scene, m_defects);
        const std::string file = fileName(m_written + 1);
        writePng(frame, folder + "/" + file);
        ++m_written;
        thumbnails.push_back(thumbnail(frame, whiteOf(settings.fpga)));
        thumbnails.back().file = file;
    }
    return thumbnails;
}

} // namespace sim
