#include <varnox/bad_pixel_replacement.h>

#include <cerrno>
#include <iostream>
#include <optional>

#include <sys/stat.h>

#include <varnox/core_registers.h>

#include "bad_pixel_map.h"
#include "core_text.h"
#include "platform/support/file_descriptor.h"

namespace {

using namespace badPixelRegisters;

constexpr std::uint32_t kControlWords = coreIdentity::kRevisionWord + 1;
constexpr std::uint32_t kTakeOverWords = kInForceWord + 1;

/// A full table with a comment on every line takes far less. [bytes]
constexpr std::size_t kMapFileMax = 1'048'576;

constexpr std::uint32_t coordinates(std::int32_t y, std::int32_t x) {
    return (static_cast<std::uint32_t>(y) << 16) | (static_cast<std::uint32_t>(x) & 0xFFFF);
}

constexpr std::int64_t end(std::int32_t begin, std::int32_t length) {
    return std::int64_t{begin} + length;
}

bool isInside(const Varnox::ROI& roi, const Varnox::ROI& frame) {
    return roi.width > 0 && roi.height > 0 && roi.x >= frame.x && roi.y >= frame.y &&
           end(roi.x, roi.width) <= end(frame.x, frame.width) &&
           end(roi.y, roi.height) <= end(frame.y, frame.height);
}

/// \return the file's text, up to a block more than a map may have, or nothing when `name` does not
/// name a readable file
std::optional<std::string> readFile(const std::string& name) {
    if (name.find('\0') != std::string::npos)
        return std::nullopt;
    const auto file = platform::tcFileDescriptor::open(name.c_str(), O_RDONLY | O_NONBLOCK);
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;

    std::string text;
    char buffer[4096];
    while (text.size() <= kMapFileMax) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return std::nullopt;
        if (count == 0)
            break;
        text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
}

void reportMapError(const std::string& where, const tsBadPixelMapError& error) {
    std::cerr << "tcBadPixelReplacement: setData: " + where + ", line " +
                     std::to_string(error.line) + ": " + error.reason +
                     "; the map in force stays\n";
}

} // namespace

tcBadPixelReplacement::tcBadPixelReplacement(std::uint32_t control, std::uint32_t table,
                                             std::uint32_t takeOver, std::uint32_t buffer,
                                             const Varnox::ROI& fullFrame)
    : m_control(control, kControlWords),
      m_table(table, kTableEntries),
      m_takeOver(takeOver, kTakeOverWords),
      m_base(control),
      m_buffer(buffer),
      m_fullFrame(fullFrame) {}

bool tcBadPixelReplacement::initialize() {
    m_initialized = m_control.mapped() && m_table.mapped() && m_takeOver.mapped() &&
                    m_control.read(coreIdentity::kIdWord) == kId;
    if (!m_initialized)
        return false;
    m_control.write(kControlWord, 0); // stands still while it is set up
    m_control.write(kBufferWord, m_buffer);
    setRoi(m_fullFrame);
    takeOver({});
    m_control.write(kControlWord, kControlRun);
    return true;
}

void tcBadPixelReplacement::reset(bool hold) {
    setControlBit("reset", kControlReset, hold);
}

void tcBadPixelReplacement::setRoi(const Varnox::ROI& roi) {
    if (!usable("setRoi"))
        return;
    if (!isInside(roi, m_fullFrame)) {
        std::cerr << "tcBadPixelReplacement: setRoi: " + roi.toString() +
                         " is not inside the full frame " + m_fullFrame.toString() +
                         "; the region in force stays\n";
        return;
    }
    m_control.write(kRoiOriginWord, coordinates(roi.y, roi.x));
    m_control.write(kRoiSizeWord, coordinates(roi.height, roi.width));
}

void tcBadPixelReplacement::setColor(bool color) {
    setControlBit("setColor", kControlColor, color);
}

bool tcBadPixelReplacement::setData(const std::string& data) {
    if (!usable("setData"))
        return false;
    const std::optional<std::string> file = readFile(data);
    if (file && file->size() > kMapFileMax) {
        reportMapError(data,
                       {1, "the file is longer than " + std::to_string(kMapFileMax) + " bytes"});
        return false;
    }
    const auto map = parseBadPixelMap(file ? *file : data, m_fullFrame);
    if (const auto* error = std::get_if<tsBadPixelMapError>(&map)) {
        reportMapError(file ? data : "text (no readable file of that name)", *error);
        return false;
    }
    std::vector<std::uint32_t> entries;
    for (const tsBadPixel& pixel : std::get<std::vector<tsBadPixel>>(map))
        entries.push_back(coordinates(pixel.y, pixel.x));
    takeOver(entries);
    return true;
}

void tcBadPixelReplacement::takeOver(const std::vector<std::uint32_t>& entries) {
    const auto count = static_cast<std::uint32_t>(entries.size());
    for (std::uint32_t i = 0; i < count; ++i)
        m_table.write(i, entries[i]);
    m_control.write(kEntriesWord, count);
    m_takeOver.write(kCommitWord, 1);
}

std::string tcBadPixelReplacement::defaultData() const {
    return "# No defective pixel\n";
}

bool tcBadPixelReplacement::mapState() const {
    return usable("mapState") && (m_control.read(kControlWord) & kControlApplyMap) != 0;
}

void tcBadPixelReplacement::setMapState(bool apply) {
    setControlBit("setMapState", kControlApplyMap, apply);
}

bool tcBadPixelReplacement::onState() const {
    return usable("onState") && (m_control.read(kStatusWord) & kStatusRunning) != 0;
}

void tcBadPixelReplacement::dumpRegisters() const {
    const std::string title = "tcBadPixelReplacement at " + hexText(m_base);
    if (!m_initialized) {
        std::cout << title + ": the core is not there\n";
        return;
    }
    // One load a statement: the order within one is the compiler's affair.
    const std::uint32_t revision = m_control.read(coreIdentity::kRevisionWord);
    const std::uint32_t control = m_control.read(kControlWord);
    const std::uint32_t status = m_control.read(kStatusWord);
    const std::uint32_t origin = m_control.read(kRoiOriginWord);
    const std::uint32_t size = m_control.read(kRoiSizeWord);
    const std::uint32_t buffer = m_control.read(kBufferWord);
    const std::uint32_t pixels = m_control.read(kEntriesWord);
    const std::uint32_t inForce = m_takeOver.read(kInForceWord);
    std::cout << title + ": revision " + hexText(revision) + ", control " + hexText(control) +
                     ", status " + hexText(status) + ", origin " + hexText(origin) + ", size " +
                     hexText(size) + ", buffer " + hexText(buffer) + ", pixels " +
                     std::to_string(pixels) + ", in force " + std::to_string(inForce) + "\n";
}

bool tcBadPixelReplacement::usable(const char* operation) const {
    if (!m_initialized && !m_reported) {
        m_reported = true;
        std::cerr << "tcBadPixelReplacement at " + hexText(m_base) + ": " + operation +
                         ": the core is not there\n";
    }
    return m_initialized;
}

void tcBadPixelReplacement::setControlBit(const char* operation, std::uint32_t bit, bool set) {
    if (!usable(operation))
        return;
    const std::uint32_t control = m_control.read(kControlWord);
    m_control.write(kControlWord, set ? control | bit : control & ~bit);
}
