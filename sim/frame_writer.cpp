#include "sim/frame_writer.h"

#include <array>
#include <bit>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <png.h>
#include <sstream>
#include <stdexcept>

#include "sim/frame_recorder.h"
#include "sim/options.h"
#include "sim/scenario.h"

namespace sim {

namespace {

constexpr int kCompression = 3; // of 9: frames are large, and somebody waits

struct tsCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using tcFile = std::unique_ptr<std::FILE, tsCloser>;

[[noreturn]] void fail(const std::string& path, const char* why) {
    throw std::runtime_error(path + ": cannot be written: " + why);
}

// The PNG library's writer. It reports an error by a jump; only `tryWrite` is jumped into, and it
// has nothing to destroy.
class tcPngWriter {
public:
    tcPngWriter()
        : m_png(png_create_write_struct(PNG_LIBPNG_VER_STRING, this, onError, onWarning)),
          m_info(m_png == nullptr ? nullptr : png_create_info_struct(m_png)) {}
    tcPngWriter(const tcPngWriter&) = delete;
    tcPngWriter& operator=(const tcPngWriter&) = delete;
    ~tcPngWriter() { png_destroy_write_struct(&m_png, &m_info); }

    bool write(const tsFrame& frame, std::FILE* file) {
        m_settings = frame.settings;
        return m_info != nullptr && tryWrite(frame, file);
    }
    [[nodiscard]] const char* error() const { return m_error.data(); }

private:
    static void onError(png_structp png, png_const_charp message) {
        auto& self = *static_cast<tcPngWriter*>(png_get_error_ptr(png));
        std::strncpy(self.m_error.data(), message, self.m_error.size() - 1);
        png_longjmp(png, 1);
    }
    static void onWarning(png_structp, png_const_charp) {}

    bool tryWrite(const tsFrame& frame, std::FILE* file) {
        if (setjmp(png_jmpbuf(m_png)) != 0) {
            return false;
        }
        png_init_io(m_png, file);
        png_set_compression_level(m_png, kCompression);
        png_set_IHDR(m_png, m_info, frame.width, frame.height, 16, PNG_COLOR_TYPE_GRAY,
                     PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_set_gAMA(m_png, m_info, 1.0);
        putText("Software", m_software);
        putText("Settings", m_settings);
        png_write_info(m_png, m_info);
        if constexpr (std::endian::native == std::endian::little) {
            png_set_swap(m_png);
        }
        writeLines(frame);
        png_write_end(m_png, nullptr);
        return true;
    }

    void putText(const char* key, std::string& text) {
        png_text chunk{};
        m_key = key;
        chunk.compression = PNG_TEXT_COMPRESSION_NONE;
        chunk.key = m_key.data();
        chunk.text = text.data();
        chunk.text_length = text.size();
        png_set_text(m_png, m_info, &chunk, 1); // copies
    }

    void writeLines(const tsFrame& frame) {
        std::size_t from = 0;
        for (std::uint32_t y = 0; y < frame.height; ++y, from += frame.width) {
            m_line.resize(2 * std::size_t{frame.width});
            std::memcpy(m_line.data(), &frame.pixels[from], m_line.size());
            png_write_row(m_png, m_line.data());
        }
    }

    std::array<char, 128> m_error{"out of memory"};
    std::string m_software = "virtual-head";
    std::string m_settings;
    std::string m_key;
    std::vector<png_byte> m_line;
    png_structp m_png;
    png_infop m_info;
};

tsHeadOptions optionsOf(const std::string& scenario) {
    tsHeadOptions options;
    if (!scenario.empty()) {
        applyScenario(scenario, options);
    }
    return options;
}

tcScene sceneOf(const std::string& path) {
    return path.empty() ? tcScene::chart() : tcScene::fromPng(path);
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    if (!(bytes << file.rdbuf()) && !bytes.str().empty()) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return bytes.str();
}

std::string pathOf(const std::string& folder, std::size_t number) {
    const std::string digits = std::to_string(number);
    const std::string padding(digits.size() < 4 ? 4 - digits.size() : 0, '0');
    return folder + "/frame-" + padding + digits + ".png";
}

} // namespace

void writePng(const tsFrame& frame, const std::string& path) {
    const tcFile file(std::fopen(path.c_str(), "wbe"));
    if (file == nullptr) {
        fail(path, std::strerror(errno));
    }
    tcPngWriter writer;
    if (!writer.write(frame, file.get())) {
        fail(path, writer.error());
    }
    if (std::fflush(file.get()) != 0) {
        fail(path, std::strerror(errno));
    }
}

tcFrameWriter::tcFrameWriter(const std::string& scenario, const std::string& scene)
    : m_scene(sceneOf(scene.empty() ? optionsOf(scenario).scenePath : scene)),
      m_defects(optionsOf(scenario).defects) {}

void tcFrameWriter::write(const std::string& recording, const std::string& folder) {
    for (const tsFrameSettings& settings : recordedFrames(contentOf(recording))) {
        writePng(render(settings, m_scene, m_defects), pathOf(folder, m_written + 1));
        ++m_written;
    }
}

} // namespace sim
