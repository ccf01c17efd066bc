#include "apps/camhost/listing.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include <fcntl.h>
#include <linux/gpio.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "apps/camhost/descriptor.h"
#include "apps/camhost/plugin.h"
#include "apps/camhost/plugin_search.h"
#include "apps/settings/settings_table.h"
#include "apps/tables/beside.h"

namespace camhost {

namespace {

constexpr unsigned kSpiBuses = 16;
constexpr unsigned kChipSelects = 8;
constexpr unsigned kGpioChips = 32;

/// One entry of the list.
struct tsEntry {
    std::string text;
    tcFacts facts;
};

tsEntry pluginEntry(const std::string& path) {
    try {
        const int type = tcPlugin(path).sensorType();
        tsEntry entry{path + ", sensor type " + std::to_string(type),
                      {{"file", path}, {"sensor_type", type}, {"device", nullptr}}};
        if (const auto table = tables::beside(path, "settings")) {
            const std::string device = settings::tcSettingsTable(*table).device();
            entry.text += ", usual device " + device;
            entry.facts["device"] = device;
        }
        return entry;
    } catch (const std::exception& error) {
        return {path + ": " + error.what(), {{"file", path}, {"error", error.what()}}};
    }
}

std::vector<tsEntry> plugins() {
    std::vector<tsEntry> entries;
    for (const std::string& path : installedPlugins())
        entries.push_back(pluginEntry(path));
    return entries;
}

std::vector<tsEntry> spiDevices() {
    std::vector<tsEntry> entries;
    for (unsigned bus = 0; bus < kSpiBuses; ++bus) {
        for (unsigned select = 0; select < kChipSelects; ++select) {
            const std::string path =
                "/dev/spidev" + std::to_string(bus) + "." + std::to_string(select);
            struct stat status {};
            if (::stat(path.c_str(), &status) != 0)
                continue;
            const bool permitted = ::access(path.c_str(), R_OK | W_OK) == 0;
            entries.push_back({path + (permitted ? "" : ", not permitted for this user"),
                               {{"file", path}, {"permitted", permitted}}});
        }
    }
    return entries;
}

template<std::size_t N>
std::string textIn(const char (&field)[N]) {
    return std::string(field, ::strnlen(field, N));
}

std::optional<tsEntry> lineEntry(int chip, const std::string& path, unsigned offset) {
    gpio_v2_line_info info{};
    info.offset = offset;
    if (::ioctl(chip, GPIO_V2_GET_LINEINFO_IOCTL, &info) != 0 || info.name[0] == '\0')
        return std::nullopt;
    const bool used = (info.flags & GPIO_V2_LINE_FLAG_USED) != 0;
    const bool output = (info.flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0;
    const std::string consumer = textIn(info.consumer);
    const std::string name = textIn(info.name);
    return tsEntry{path + " line " + std::to_string(offset) + ": " + name + ", " +
                       (output ? "output" : "input") +
                       (used ? ", in use by \"" + consumer + "\"" : ""),
                   {{"chip", path},
                    {"line", offset},
                    {"name", name},
                    {"direction", output ? "output" : "input"},
                    {"in_use_by", used ? tcFacts(consumer) : tcFacts(nullptr)}}};
}

/// \return the chip's lines that have names; a line about the chip where it does not tell
std::vector<tsEntry> linesOf(const std::string& path) {
    const tcDescriptor chip(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    gpiochip_info info{};
    if (!chip.isOpen() || ::ioctl(chip.get(), GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
        const std::string why = std::strerror(errno);
        return {{path + ": " + why, {{"chip", path}, {"error", why}}}};
    }
    std::vector<tsEntry> entries;
    for (unsigned offset = 0; offset < info.lines; ++offset) {
        if (auto entry = lineEntry(chip.get(), path, offset))
            entries.push_back(std::move(*entry));
    }
    return entries;
}

std::vector<tsEntry> namedLines() {
    std::vector<tsEntry> entries;
    for (unsigned chip = 0; chip < kGpioChips; ++chip) {
        const std::string path = "/dev/gpiochip" + std::to_string(chip);
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0)
            continue;
        for (tsEntry& entry : linesOf(path))
            entries.push_back(std::move(entry));
    }
    return entries;
}

void add(tsListing& listing, const char* title, const char* member, const char* none,
         const std::vector<tsEntry>& entries) {
    listing.text += (listing.text.empty() ? "" : "\n") + std::string(title) + ":";
    tcFacts facts = tcFacts::list();
    for (const tsEntry& entry : entries) {
        listing.text += "\n  " + entry.text;
        facts.push_back(entry.facts);
    }
    if (entries.empty())
        listing.text += std::string("\n  ") + none;
    listing.facts[member] = facts;
}

} // namespace

tsListing listMachine() {
    tsListing listing;
    add(listing, "Plug-ins", "plugins",
        "none; install a sensor board's package, or name a file with --plugin", plugins());
    add(listing, "SPI devices", "spi_devices",
        "none; the device tree has no spidev, or its driver is not loaded", spiDevices());
    add(listing, "Named GPIO lines", "lines",
        "none; the device tree names no lines, or there is no GPIO chip", namedLines());
    return listing;
}

} // namespace camhost
