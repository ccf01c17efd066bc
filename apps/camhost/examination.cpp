#include "apps/camhost/examination.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <grp.h>
#include <linux/gpio.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "apps/camhost/descriptor.h"
#include "apps/camhost/field_text.h"
#include "apps/camhost/file_checks.h"

namespace camhost {

namespace {

namespace fs = std::filesystem;
using failures::teDeviceKind;
using failures::tsDeviceFact;

constexpr const char* kSpiPlace = "{spi}";

std::string userName(uid_t id) {
    const passwd* const user = ::getpwuid(id);
    return user != nullptr ? user->pw_name : std::to_string(id);
}

std::string groupName(gid_t id) {
    const ::group* const group = ::getgrgid(id);
    return group != nullptr ? group->gr_name : std::to_string(id);
}

tsUser presentUser() {
    tsUser user;
    user.id = ::geteuid();
    user.name = userName(::geteuid());
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
    if (!groups.empty() && ::getgroups(static_cast<int>(groups.size()), groups.data()) < 0)
        groups.clear();
    if (std::find(groups.begin(), groups.end(), ::getegid()) == groups.end())
        groups.insert(groups.begin(), ::getegid());
    for (const gid_t group : groups) {
        user.groupIds.push_back(group);
        user.groups.push_back(groupName(group));
    }
    return user;
}

// ---- Who holds a device file

/// \return the process's number; 0 for a folder that is none's
int pidOf(const fs::path& folder) {
    const std::string name = folder.filename().string();
    int pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc() && end == name.data() + name.size() ? pid : 0;
}

std::string programOf(const fs::path& process) {
    std::ifstream file(process / "comm");
    std::string name;
    std::getline(file, name);
    return name.empty() ? "unknown" : name;
}

bool holds(const fs::path& process, const fs::path& path) {
    std::error_code error; // a process that goes meanwhile, or that others may not look into
    for (fs::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code gone;
        const fs::path file = fs::read_symlink(entry->path(), gone);
        if (!gone && file == path)
            return true;
    }
    return false;
}

/// \return other processes that have the file open, as far as this one may see
std::vector<tsHolder> holdersOf(const std::string& path) {
    std::vector<tsHolder> holders;
    std::error_code error;
    fs::path file = fs::canonical(path, error); // descriptors tell the file, no links to it
    if (error)
        file = path;
    for (fs::directory_iterator entry("/proc", error), end; !error && entry != end;
         entry.increment(error)) {
        const int pid = pidOf(entry->path());
        if (pid != 0 && pid != ::getpid() && holds(entry->path(), file))
            holders.push_back({pid, programOf(entry->path())});
    }
    std::sort(holders.begin(), holders.end(),
              [](const tsHolder& a, const tsHolder& b) { return a.pid < b.pid; });
    return holders;
}

// ---- Device files

const char* kindOf(mode_t mode) {
    if (S_ISREG(mode))
        return "a regular file";
    if (S_ISDIR(mode))
        return "a folder";
    if (S_ISFIFO(mode))
        return "a pipe";
    if (S_ISSOCK(mode))
        return "a socket";
    return S_ISBLK(mode) ? "a block device" : "another character device";
}

/// Asks the driver behind the device file something that only a driver of the right kind answers.
bool answersAs(teDeviceKind kind, int descriptor, dev_t number) {
    constexpr unsigned memoryMajor = 1;
    constexpr unsigned memoryMinor = 1;
    std::uint8_t mode = 0;
    gpiochip_info chip{};
    unsigned long functions = 0;
    switch (kind) {
    case teDeviceKind::eSpi:
        return ::ioctl(descriptor, SPI_IOC_RD_MODE, &mode) >= 0;
    case teDeviceKind::eGpio:
        return ::ioctl(descriptor, GPIO_GET_CHIPINFO_IOCTL, &chip) >= 0;
    case teDeviceKind::eI2c:
        return ::ioctl(descriptor, I2C_FUNCS, &functions) >= 0;
    case teDeviceKind::eMemory:
        break;
    }
    return major(number) == memoryMajor && minor(number) == memoryMinor;
}

tcDescriptor opened(const std::string& path) {
    return tcDescriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
}

tsDevice examineDevice(const tsDeviceFact& fact, const std::string& path) {
    tsDevice device;
    device.name = fact.name;
    device.what = fact.what;
    device.path = path;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        device.error = errno;
        return device;
    }
    device.there = true;
    device.mode = status.st_mode & ~static_cast<unsigned>(S_IFMT);
    device.owner = status.st_uid;
    device.group = status.st_gid;
    device.ownerName = userName(status.st_uid);
    device.groupName = groupName(status.st_gid);
    device.kind = kindOf(status.st_mode);
    if (!S_ISCHR(status.st_mode))
        return device; // not opened: a pipe or a tape would notice
    const tcDescriptor file = opened(path);
    device.error = file.isOpen() ? 0 : errno;
    device.rightKind = !file.isOpen() || answersAs(fact.kind, file.get(), status.st_rdev);
    device.holders = holdersOf(path);
    return device;
}

std::string pathOf(const tsDeviceFact& fact, const std::string& spi) {
    std::string path = fact.path;
    if (const auto place = path.find(kSpiPlace); place != path.npos)
        path.replace(place, std::strlen(kSpiPlace), spi);
    return path;
}

/// Of a device with numbers all that are there; the first number where none is.
std::vector<tsDevice> examineDevices(const tsDeviceFact& fact, const std::string& spi) {
    const std::string path = pathOf(fact, spi);
    if (fact.numbers == 0)
        return {examineDevice(fact, path)};
    std::vector<tsDevice> devices;
    for (unsigned number = 0; number < fact.numbers; ++number) {
        tsDevice device = examineDevice(fact, path + std::to_string(number));
        if (device.there)
            devices.push_back(std::move(device));
    }
    if (devices.empty())
        devices.push_back(examineDevice(fact, path + "0"));
    return devices;
}

// ---- GPIO lines

/// Looks on one chip for the lines that were not found yet.
void findLines(const std::string& chip, std::vector<tsControlLine>& lines) {
    const tcDescriptor file = opened(chip);
    gpiochip_info info{};
    if (!file.isOpen() || ::ioctl(file.get(), GPIO_GET_CHIPINFO_IOCTL, &info) < 0)
        return;
    for (std::uint32_t offset = 0; offset < info.lines; ++offset) {
        gpio_v2_line_info found{};
        found.offset = offset;
        if (::ioctl(file.get(), GPIO_V2_GET_LINEINFO_IOCTL, &found) < 0)
            return;
        const std::string name = fieldText(found.name);
        const auto line = std::find_if(lines.begin(), lines.end(), [&](const tsControlLine& one) {
            return one.chip.empty() && one.name == name;
        });
        if (line == lines.end())
            continue;
        line->chip = chip;
        line->offset = offset;
        line->output = (found.flags & GPIO_V2_LINE_FLAG_OUTPUT) != 0;
        line->used = (found.flags & GPIO_V2_LINE_FLAG_USED) != 0;
        line->consumer = fieldText(found.consumer);
    }
}

bool isChip(const failures::tsHeadFacts& facts, const tsDevice& device) {
    return std::any_of(facts.devices.begin(), facts.devices.end(), [&](const tsDeviceFact& fact) {
        return fact.name == device.name && fact.kind == teDeviceKind::eGpio;
    });
}

std::vector<tsControlLine> examineLines(const failures::tsHeadFacts& facts,
                                        const std::vector<tsDevice>& devices, bool hasBoard) {
    std::vector<tsControlLine> lines;
    for (const failures::tsLineFact& fact : facts.lines) {
        tsControlLine& line = lines.emplace_back();
        line.name = fact.name;
        line.onlyFor = fact.onlyFor;
    }
    for (const tsDevice& device : devices) {
        if (device.there && device.error == 0 && isChip(facts, device))
            findLines(device.path, lines);
    }
    for (tsControlLine& line : lines)
        line.ours = hasBoard && line.used && line.consumer == facts.consumer;
    return lines;
}

// ---- Supply monitor

/// Reads one byte without a command before: the chip has nothing to convert and nothing to change.
tsMonitor examineMonitor(const failures::tsMonitorFact& fact) {
    tsMonitor monitor;
    monitor.fact = fact;
    const tcDescriptor bus = opened(fact.bus);
    if (!bus.isOpen())
        return monitor;
    monitor.asked = true;
    std::uint8_t answer = 0;
    i2c_msg message{fact.address, I2C_M_RD, 1, &answer};
    i2c_rdwr_ioctl_data data{&message, 1};
    const int done = ::ioctl(bus.get(), I2C_RDWR, &data);
    monitor.error = done == 1 ? 0 : done < 0 ? errno : EIO;
    monitor.answer = answer;
    return monitor;
}

// ---- Settings file

/// Takes a line as the driver does, with its gaps: a number that is missing at the end of the line
/// keeps its value, one that is too large there becomes the largest.
/// \param whole both numbers are there
/// \return false where the driver refuses the line
bool readLine(const std::string& line, std::uint16_t& address, std::uint32_t& value, bool& whole) {
    std::istringstream parser(line);
    parser >> std::hex >> address >> value;
    whole = !parser.fail();
    return parser.good() || parser.eof();
}

void count(const std::string& line, const failures::tsSettingsFact& fact, std::uint16_t& address,
           std::uint32_t& value, tsSettingsFile& file) {
    if (line.starts_with('#'))
        return;
    bool whole = false;
    if (!readLine(line, address, value, whole)) {
        file.badLine = file.lines;
        file.badText = line;
        return;
    }
    if (!whole)
        file.repeats.push_back(file.lines);
    if (address == fact.pause) {
        ++file.pauses;
        file.paused += std::chrono::microseconds(value);
    } else {
        ++file.writes;
    }
}

tsSettingsFile examineSettings(const failures::tsSettingsFact& fact) {
    tsSettingsFile file;
    std::error_code ignored;
    file.path = fs::absolute(fact.file, ignored).string();
    if (const std::string why = notRegular(fact.file); !why.empty()) {
        file.error = EINVAL;
        return file;
    }
    errno = 0;
    std::ifstream stream(fact.file);
    if (!stream) {
        file.error = errno != 0 ? errno : ENOENT;
        return file;
    }
    std::uint16_t address = 0;
    std::uint32_t value = 0;
    for (std::string line; file.badLine == 0 && std::getline(stream, line);) {
        ++file.lines;
        count(line, fact, address, value, file);
    }
    return file;
}

} // namespace

tsDiagnosis examine(const tsSubject& subject) {
    tsDiagnosis diagnosis;
    diagnosis.plugin = subject.plugin;
    diagnosis.spi = subject.spi;
    std::error_code ignored;
    diagnosis.folder = fs::current_path(ignored).string();
    diagnosis.user = presentUser();
    diagnosis.noFacts = subject.noFacts;
    diagnosis.isUp = subject.isUp;
    diagnosis.complaints = subject.complaints;
    if (subject.table == nullptr || !subject.table->head())
        return diagnosis;
    const failures::tsHeadFacts& facts = *subject.table->head();
    diagnosis.lanesOfHead = subject.table->lanes();
    for (const tsDeviceFact& fact : facts.devices) {
        for (tsDevice& device : examineDevices(fact, subject.spi))
            diagnosis.devices.push_back(std::move(device));
    }
    diagnosis.lines = examineLines(facts, diagnosis.devices, subject.hasBoard);
    if (facts.monitor)
        diagnosis.monitor = examineMonitor(*facts.monitor);
    if (facts.settings)
        diagnosis.settings = examineSettings(*facts.settings);
    return diagnosis;
}

} // namespace camhost
