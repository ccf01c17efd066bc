#include "sim/pictures/scene.h"

#include <cstddef>
#include <png.h>
#include <stdexcept>

#include "sim/pictures/chart.h"

namespace sim {

namespace {

// The nearest picture element to the middle of each pixel.
std::size_t nearest(std::uint32_t at, std::uint32_t of, std::uint32_t elements) {
    return static_cast<std::size_t>((std::uint64_t{2} * at + 1) * elements /
                                    (std::uint64_t{2} * of));
}

std::vector<std::uint16_t> scaled(const std::vector<std::uint16_t>& picture, std::uint32_t width,
                                  std::uint32_t height) {
    std::vector<std::uint16_t> light;
    light.reserve(std::size_t{tcScene::kRows} * tcScene::kColumns);
    for (std::uint32_t row = 0; row < tcScene::kRows; ++row) {
        const std::size_t line = nearest(row, tcScene::kRows, height) * width;
        for (std::uint32_t column = 0; column < tcScene::kColumns; ++column) {
            light.push_back(picture[line + nearest(column, tcScene::kColumns, width)]);
        }
    }
    return light;
}

// The library's reader, released however reading ends.
class tcPngReader {
public:
    tcPngReader() { m_image.version = PNG_IMAGE_VERSION; }
    tcPngReader(const tcPngReader&) = delete;
    tcPngReader& operator=(const tcPngReader&) = delete;
    ~tcPngReader() { png_image_free(&m_image); }

    std::vector<std::uint16_t> read(const std::string& path) {
        if (png_image_begin_read_from_file(&m_image, path.c_str()) == 0) {
            fail(path);
        }
        m_image.format = PNG_FORMAT_LINEAR_Y;
        const png_color background{0, 0, 0}; // behind what is transparent
        std::vector<std::uint16_t> picture(std::size_t{width()} * height());
        if (png_image_finish_read(&m_image, &background, picture.data(), 0, nullptr) == 0) {
            fail(path);
        }
        return picture;
    }
    [[nodiscard]] std::uint32_t width() const { return m_image.width; }
    [[nodiscard]] std::uint32_t height() const { return m_image.height; }

private:
    [[noreturn]] void fail(const std::string& path) {
        throw std::runtime_error(path + ": no picture: " + m_image.message);
    }
    png_image m_image{};
};

} // namespace

tcScene tcScene::chart() {
    return tcScene(sim::chart::paint());
}

tcScene tcScene::fromPng(const std::string& path) {
    tcPngReader reader;
    const std::vector<std::uint16_t> picture = reader.read(path);
    return tcScene(scaled(picture, reader.width(), reader.height()));
}

tcScene::tcScene(std::vector<std::uint16_t> light) : m_light(std::move(light)) {
    if (m_light.size() != std::size_t{kRows} * kColumns) {
        throw std::invalid_argument("scene: " + std::to_string(m_light.size()) +
                                    " values; an array has " +
                                    std::to_string(std::size_t{kRows} * kColumns));
    }
}

} // namespace sim
