#include "sim/pictures/png_file.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <png.h>
#include <stdexcept>
#include <vector>

namespace sim {

namespace {

constexpr int kCompression = 3;           // of 9: frames are large, and somebody waits
constexpr std::uint32_t kThumbnail = 240; // pixels, the longer side at most

struct tsCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using tcFile = std::unique_ptr<std::FILE, tsCloser>;

[[noreturn]] void fail(const std::string& path, const char* why) {
    throw std::runtime_error(path + ": cannot be written: " + why);
}

// What a PNG file holds.
struct tsPng {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int bits = 16;              // of a pixel
    std::vector<png_byte> rows; // one after the other; words as this machine has them
    std::string settings;       // text chunk
};

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

    bool write(const tsPng& picture, std::FILE* file) {
        m_settings = picture.settings;
        m_rows = picture.rows;
        return m_info != nullptr && tryWrite(picture, file);
    }
    [[nodiscard]] const char* error() const { return m_error.data(); }

private:
    static void onError(png_structp png, png_const_charp message) {
        auto& self = *static_cast<tcPngWriter*>(png_get_error_ptr(png));
        std::strncpy(self.m_error.data(), message, self.m_error.size() - 1);
        png_longjmp(png, 1);
    }
    static void onWarning(png_structp, png_const_charp) {}

    bool tryWrite(const tsPng& picture, std::FILE* file) {
        if (setjmp(png_jmpbuf(m_png)) != 0) {
            return false;
        }
        png_init_io(m_png, file);
        png_set_compression_level(m_png, kCompression);
        png_set_IHDR(m_png, m_info, picture.width, picture.height, picture.bits,
                     PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                     PNG_FILTER_TYPE_DEFAULT);
        png_set_gAMA(m_png, m_info, 1.0);
        putText("Software", m_software);
        putText("Settings", m_settings);
        png_write_info(m_png, m_info);
        if constexpr (std::endian::native == std::endian::little) {
            png_set_swap(m_png);
        }
        const std::size_t bytes =
            std::size_t{picture.width} * static_cast<unsigned>(picture.bits) / 8;
        for (std::uint32_t y = 0; y < picture.height; ++y) {
            png_write_row(m_png, &m_rows[y * bytes]);
        }
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

    std::array<char, 128> m_error{"out of memory"};
    std::string m_software = "virtual-head";
    std::string m_settings;
    std::string m_key;
    std::vector<png_byte> m_rows;
    png_structp m_png;
    png_infop m_info;
};

tsPng wholePicture(const tsFrame& frame) {
    tsPng picture{frame.width, frame.height, 16, {}, frame.settings};
    picture.rows.resize(2 * frame.pixels.size());
    if (!picture.rows.empty()) {
        std::memcpy(picture.rows.data(), frame.pixels.data(), picture.rows.size());
    }
    return picture;
}

// A part of a picture.
struct tsBox {
    std::uint32_t left = 0;
    std::uint32_t top = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

// The mean of the pixels, as 8 bits.
png_byte mean(const tsFrame& frame, const tsBox& box, std::uint32_t white) {
    std::uint64_t sum = 0;
    for (std::uint32_t y = box.top; y < box.top + box.height; ++y) {
        for (std::uint32_t x = box.left; x < box.left + box.width; ++x) {
            sum += frame.pixels[std::size_t{y} * frame.width + x];
        }
    }
    const std::uint64_t brightest = std::uint64_t{white} * box.width * box.height;
    return static_cast<png_byte>((std::min(sum, brightest) * 255 + brightest / 2) / brightest);
}

// Pictures of a few lines keep one at least.
tsPng smallPicture(const tsFrame& frame, std::uint32_t white) {
    const std::uint32_t longer = std::max(frame.width, frame.height);
    const std::uint32_t side = (longer + kThumbnail - 1) / kThumbnail;
    const tsBox box{0, 0, std::min(side, frame.width), std::min(side, frame.height)};
    tsPng picture{frame.width / box.width, frame.height / box.height, 8, {}, frame.settings};
    for (std::uint32_t y = 0; y < picture.height; ++y) {
        for (std::uint32_t x = 0; x < picture.width; ++x) {
            picture.rows.push_back(
                mean(frame, {x * box.width, y * box.height, box.width, box.height}, white));
        }
    }
    return picture;
}

struct tsFreed {
    void operator()(char* bytes) const { std::free(bytes); }
};

// The PNG library writes to files: this one is memory.
std::string pngBytes(const tsPng& picture) {
    char* start = nullptr;
    std::size_t size = 0;
    tcFile file(open_memstream(&start, &size));
    if (file == nullptr) {
        fail("a picture in memory", std::strerror(errno));
    }
    tcPngWriter writer;
    const bool written = writer.write(picture, file.get());
    const bool kept = std::fclose(file.release()) == 0;
    const std::unique_ptr<char, tsFreed> bytes(start);
    if (!written || !kept) {
        fail("a picture in memory", writer.error());
    }
    return {bytes.get(), size};
}

} // namespace

void writePng(const tsFrame& frame, const std::string& path) {
    const tcFile file(std::fopen(path.c_str(), "wbe"));
    if (file == nullptr) {
        fail(path, std::strerror(errno));
    }
    tcPngWriter writer;
    if (!writer.write(wholePicture(frame), file.get())) {
        fail(path, writer.error());
    }
    if (std::fflush(file.get()) != 0) {
        fail(path, std::strerror(errno));
    }
}

std::string pngOf(const tsFrame& frame) {
    return pngBytes(wholePicture(frame));
}

tsThumbnail thumbnail(const tsFrame& frame, std::uint32_t white) {
    const tsPng picture = smallPicture(frame, white);
    tsThumbnail result;
    result.width = picture.width;
    result.height = picture.height;
    result.png = pngBytes(picture);
    result.frameWidth = frame.width;
    result.frameHeight = frame.height;
    result.time = frame.time;
    result.settings = frame.settings;
    return result;
}

} // namespace sim
