#include "tests/target/random_board.h"

#include <array>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <varnox/register_file.h>

#include "tests/support/publish_spy.h"

namespace {

Varnox::tcRegisterFile& registerFile() {
    return *Varnox::tcRegisterFile::getInstance(nullptr, true);
}

std::string text(int value) {
    return std::to_string(value);
}

/// \return registers or words, " ADDRESS=VALUE" each, in hexadecimal
template<class Values>
std::string listed(const Values& values) {
    std::string all;
    for (const auto& [address, value] : values) {
        all += " " + hexadecimal(address) + "=" + hexadecimal(value);
    }
    return all;
}

/// \return the version text without the time of the build, which is each build's own
std::string timeless(std::string version) {
    constexpr std::string_view kSoftware = "\"SW:";
    constexpr std::size_t kTime = std::string_view("May 19 2020 12:34:56").size();
    const std::size_t at = version.find(kSoftware);
    return at == std::string::npos ? version : version.replace(at + kSoftware.size(), kTime, "...");
}

} // namespace

int tcPipelineNote::setPixelPacking(int packing) {
    m_head.note("PIPELINE " + std::to_string(packing));
    return tcPipeline::setPixelPacking(packing);
}

tcRandomBoard::tcRandomBoard(tcChance& chance, sim::tcVirtualHead& head)
    : tcRandomLife(chance, head), m_pipeline(head), m_board("/dev/spidev1.0") {
    setPublishSpy([&head](std::uint32_t address, std::uint32_t value) {
        head.note("WORD " + hexadecimal(address) + " = " + std::to_string(value));
    });
    m_board.setStatusListener([&head](int level, const std::string& text) {
        head.note("STATUS " + std::to_string(level) + " " + oneLine(text));
    });
    m_board.setPipeline(&m_pipeline);
    m_owned.emplace_back(m_board.getCustomHandlers(nullptr, &m_handlers));
    own(m_handlers);
    head.note("initialize " + std::to_string(m_board.initialize()));
}

tcRandomBoard::~tcRandomBoard() {
    setPublishSpy({});
}

/// Every handler is the host's.
void tcRandomBoard::own(const tcHandlers& handlers) {
    for (const char* keyword : {"EXPM", "CLKS"}) {
        m_owned.emplace_back(handlers.at(keyword));
    }
}

void tcRandomBoard::finish() {
    std::map<std::uint32_t, std::uint32_t> shadow;
    for (int address = 0; address < 0x400; ++address) {
        int value = 0;
        if (m_board.peek(address, &value) == 0) {
            shadow[static_cast<std::uint32_t>(address)] = static_cast<std::uint32_t>(value);
        }
    }
    head().note("shadow" + listed(shadow));
    head().note("sensor" + listed(head().sensorRegisters()));
    head().note("words" + listed(registerFile().words()));
}

Varnox::ROI tcRandomBoard::anyRegion() {
    if (chance().oneIn(16)) {
        constexpr std::array<int, 11> edges{
            0, 2, 24, 2032, 2056, 2568, 2592, 2'147'483'640, INT_MAX - 1, INT_MAX, INT_MIN};
        const int y = told(chance().of(edges));
        const int x = told(chance().of(edges));
        const int width = told(chance().of(edges));
        const int height = told(chance().of(edges));
        return {y, x, width, height};
    }
    const bool sound = !chance().oneIn(4);
    const int y = told(sound ? chance().upTo(500) * 2 : chance().around(2056));
    const int x = told(sound ? chance().upTo(50) * 24 : chance().around(2592));
    const int width = told(sound ? 24 + chance().upTo(57) * 24 : chance().around(2592));
    const int height = told(sound ? 2 + chance().upTo(527) * 2 : chance().around(2056));
    return {y, x, width, height};
}

std::string tcRandomBoard::regions() {
    m_board.numberOfRegions = around(8);
    for (Varnox::ROI& region : m_board.regions) {
        region = anyRegion();
    }
    const int result = m_board.programMultipleROI();
    if (!flag()) {
        m_board.numberOfRegions = 1;
    }
    return std::to_string(result);
}

std::string tcRandomBoard::word() {
    constexpr std::array<std::uint32_t, 8> addresses{0x3A000, 0x3A004, 0x3D000, 0x3D004,
                                                     0x3A070, 0x3A074, 0x3D008, 0x3A008};
    const std::uint32_t address = chance().of(addresses);
    const std::uint32_t value = address == 0x3A000 || address == 0x3A004
                                    ? static_cast<std::uint32_t>(chance().around(300'000))
                                    : static_cast<std::uint32_t>(chance().around(4));
    tell(hexadecimal(address));
    tell(hexadecimal(value));
    const Varnox::tsWriteResult done = registerFile().write_word(address, value);
    return std::to_string(done.handled) + " " + std::to_string(done.status) + " " +
           hexadecimal(done.value);
}

std::string tcRandomBoard::command() {
    constexpr std::array keywords{"EXPM",    "CLKS", "SBPR",  "GBPR", "SBPRM",  "GBPRM",
                                  "UNKNOWN", "expm", "EXPMX", "EXP",  "SBPRMM", "sbpr"};
    constexpr std::array texts{
        "",    "0",  "1",  "2",  "-1", " 1",  "1 2", "x",           "1.5",        "0x1",
        "2 5", "  ", "-0", "+5", "00", "1 x", "x 1", "-2147483649", "2147483647", "99999999999",
    };
    std::string keyword = chance().of(keywords);
    std::string arguments = chance().of(texts);
    tell(keyword + " '" + arguments + "'");
    Varnox::tcAbstractHandler* handler = m_owned.front().get();
    if (const auto found = m_handlers.find(keyword); found != m_handlers.end()) {
        handler = found->second;
    }
    return oneLine(handler->execute(keyword, arguments));
}

/// One more chain, before that of the beginning; nobody executes it.
std::string tcRandomBoard::moreHandlers() {
    tcHandlers handlers;
    m_owned.emplace_back(m_board.getCustomHandlers(m_owned.front().get(), &handlers));
    own(handlers);
    std::string keywords;
    for (const auto& [keyword, handler] : handlers) {
        keywords += (keywords.empty() ? "" : " ") + keyword;
    }
    return keywords;
}

/// A handler sees the write of a word.
std::string tcRandomBoard::update() {
    constexpr std::array keywords{"EXPM", "SBPR", "GBPRM"};
    constexpr std::array<std::uint32_t, 6> addresses{0x3A200, 0x3A200, 0x3A070,
                                                     0x3A074, 0x3A000, 0x3D000};
    Varnox::tsUpdate update{};
    const std::string keyword = chance().of(keywords);
    tell(keyword);
    update.kind = told(chance().oneIn(4) ? chance().upTo(3) : 1);
    update.address = chance().of(addresses);
    tell(hexadecimal(update.address));
    update.value = static_cast<std::uint32_t>(chance().around(2));
    tell(hexadecimal(update.value));
    m_handlers.at(keyword)->update(update);
    return std::to_string(update.handled) + " " + std::to_string(update.status);
}

/// Every byte of the record, also those between its members.
std::string tcRandomBoard::cameraInfo() {
    Varnox::tsCameraInfo info;
    std::array<unsigned char, sizeof info> bytes{};
    bytes.fill(0xAA);
    std::memcpy(static_cast<void*>(&info), bytes.data(), bytes.size());
    std::string result = text(m_board.GetCameraInfo(info)) + " ";
    std::memcpy(bytes.data(), &info, bytes.size());
    for (const unsigned char byte : bytes) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02X", static_cast<unsigned>(byte));
        result += digits.data();
    }
    return result;
}

std::string tcRandomBoard::fault() {
    const auto next = static_cast<std::uint64_t>(chance().upTo(20)) + 1;
    head().failCall(sim::teCall::ioctl, "/dev/spidev1.0",
                    head().calls(sim::teCall::ioctl, "/dev/spidev1.0") + next, 5);
    return std::to_string(next);
}

template<class Read>
std::string tcRandomBoard::pointed(Read read) {
    int value = -7;
    const int result = read(&value);
    return std::to_string(result) + " " + std::to_string(value);
}

const tcRandomBoard::tcOperations tcRandomBoard::kOperations = {
    {"setExposure",
     [](tcRandomBoard& s) { return text(s.m_board.setExposure(s.around(200'000))); }},
    {"setExposure", [](tcRandomBoard& s) { return text(s.m_board.setExposure(s.around(2'000))); }},
    {"getExposure", [](tcRandomBoard& s) { return text(s.m_board.getExposure()); }},
    {"getMinFrameIntervalMicroS",
     [](tcRandomBoard& s) { return text(s.m_board.getMinFrameIntervalMicroS()); }},
    {"setFrameInterval",
     [](tcRandomBoard& s) { return text(s.m_board.setFrameInterval(s.around(400'000))); }},
    {"setFrameInterval",
     [](tcRandomBoard& s) { return text(s.m_board.setFrameInterval(s.around(3'000'000))); }},
    {"getFrameInterval", [](tcRandomBoard& s) { return text(s.m_board.getFrameInterval()); }},
    {"setROI", [](tcRandomBoard& s) { return text(s.m_board.setROI(s.anyRegion())); }},
    {"setROI", [](tcRandomBoard& s) { return text(s.m_board.setROI(s.anyRegion())); }},
    {"getROI", [](tcRandomBoard& s) { return s.m_board.getROI().toString(); }},
    {"getImageROI", [](tcRandomBoard& s) { return s.m_board.getImageROI().toString(); }},
    {"programMultipleROI", [](tcRandomBoard& s) { return s.regions(); }},
    {"setVerticalBin",
     [](tcRandomBoard& s) { return text(s.m_board.setVerticalBin(s.around(2))); }},
    {"getVerticalBin", [](tcRandomBoard& s) { return text(s.m_board.getVerticalBin()); }},
    {"setHorizontalBin",
     [](tcRandomBoard& s) { return text(s.m_board.setHorizontalBin(s.around(2))); }},
    {"getHorizontalBin", [](tcRandomBoard& s) { return text(s.m_board.getHorizontalBin()); }},
    {"setShutterMode",
     [](tcRandomBoard& s) {
         return text(s.m_board.setShutterMode(static_cast<Varnox::teShutterMode>(s.around(3))));
     }},
    {"getShutterMode", [](tcRandomBoard& s) { return text(s.m_board.getShutterMode()); }},
    {"setBPP",
     [](tcRandomBoard& s) {
         return text(s.m_board.setBPP(static_cast<Varnox::teBPPMode>(s.around(4))));
     }},
    {"setColor", [](tcRandomBoard& s) { return text(s.m_board.setColor(s.flag())); }},
    {"setTestPattern",
     [](tcRandomBoard& s) {
         return text(s.m_board.setTestPattern(static_cast<Varnox::teTestPattern>(s.around(18))));
     }},
    {"getTestPattern", [](tcRandomBoard& s) { return text(s.m_board.getTestPattern()); }},
    {"setTrigger",
     [](tcRandomBoard& s) {
         return text(s.m_board.setTrigger(static_cast<Varnox::teTriggerMode>(s.around(3))));
     }},
    {"getTrigger", [](tcRandomBoard& s) { return text(s.m_board.getTrigger()); }},
    {"peek",
     [](tcRandomBoard& s) {
         return s.pointed([&](int* value) { return s.m_board.peek(s.around(0x3FF), value); });
     }},
    {"poke",
     [](tcRandomBoard& s) {
         const int address = s.around(0x3FF);
         return text(s.m_board.poke(address, s.told(static_cast<int>(s.chance().bits()))));
     }},
    {"validate", [](tcRandomBoard& s) { return text(s.m_board.validate()); }},
    {"isCapturing", [](tcRandomBoard& s) { return text(s.m_board.isCapturing() ? 1 : 0); }},
    {"start", [](tcRandomBoard& s) { return text(s.m_board.start()); }},
    {"stop", [](tcRandomBoard& s) { return text(s.m_board.stop()); }},
    {"stop", [](tcRandomBoard& s) { return text(s.m_board.stop()); }},
    {"getTemperature", [](tcRandomBoard& s) { return s.m_board.getTemperature(s.around(1)); }},
    {"getVersion", [](tcRandomBoard& s) { return oneLine(timeless(s.m_board.getVersion())); }},
    {"save", [](tcRandomBoard& s) { return text(s.m_board.save(s.around(3))); }},
    {"recall", [](tcRandomBoard& s) { return text(s.m_board.recall(s.around(3))); }},
    {"power", [](tcRandomBoard& s) { return text(s.m_board.power(s.flag())); }},
    {"setMirroring",
     [](tcRandomBoard& s) {
         const bool horizontal = s.flag();
         return text(s.m_board.setMirroring(horizontal, s.flag()));
     }},
    {"getMirroring",
     [](tcRandomBoard& s) {
         bool horizontal = false;
         bool vertical = false;
         const int first = s.m_board.getMirroring(true, &horizontal);
         const int second = s.m_board.getMirroring(false, &vertical);
         return text(first) + text(second) + text(horizontal ? 1 : 0) + text(vertical ? 1 : 0);
     }},
    {"setAnalogGain", [](tcRandomBoard& s) { return text(s.m_board.setAnalogGain(s.around(3))); }},
    {"getAnalogGain",
     [](tcRandomBoard& s) {
         return s.pointed([&](int* value) { return s.m_board.getAnalogGain(value); });
     }},
    {"setBlackLevel", [](tcRandomBoard& s) { return text(s.m_board.setBlackLevel(s.around(3))); }},
    {"getBlackLevel",
     [](tcRandomBoard& s) {
         return s.pointed([&](int* value) { return s.m_board.getBlackLevel(value); });
     }},
    {"setWhiteBalance", [](tcRandomBoard& s) { return text(s.m_board.setWhiteBalance(1, 2, 3)); }},
    {"setGamma", [](tcRandomBoard& s) { return text(s.m_board.setGamma(s.around(100))); }},
    {"setStrobe", [](tcRandomBoard& s) { return text(s.m_board.setStrobe(s.around(100))); }},
    {"GetSkipFrames",
     [](tcRandomBoard& s) {
         bool skip = true;
         const int result = s.m_board.GetSkipFrames(skip);
         return text(result) + text(skip ? 1 : 0);
     }},
    {"setInternalExposureMode",
     [](tcRandomBoard& s) { return text(s.m_board.setInternalExposureMode(s.flag())); }},
    {"getInternalExposureMode",
     [](tcRandomBoard& s) { return text(s.m_board.getInternalExposureMode() ? 1 : 0); }},
    {"setClockSetting",
     [](tcRandomBoard& s) { return text(s.m_board.setClockSetting(s.around(2))); }},
    {"getClockSetting",
     [](tcRandomBoard& s) {
         return s.pointed([&](int* value) { return s.m_board.getClockSetting(*value); });
     }},
    {"resetFpga", [](tcRandomBoard& s) { return text(s.m_board.resetFpga()); }},
    {"configureTriggers", [](tcRandomBoard& s) { return text(s.m_board.configureTriggers()); }},
    {"setExposureMode",
     [](tcRandomBoard& s) {
         return text(
             s.m_board.setExposureMode(static_cast<tc3U5MGXS::teExposureMode>(s.around(3))));
     }},
    {"setDGain",
     [](tcRandomBoard& s) {
         return text(s.m_board.setDGain(static_cast<tc3U5MGXS::teDGainCoarse>(s.around(7))));
     }},
    {"getDGain", [](tcRandomBoard& s) { return text(static_cast<int>(s.m_board.getDGain())); }},
    {"initialize",
     [](tcRandomBoard& s) {
         return s.chance().oneIn(5) ? text(s.m_board.initialize()) : std::string("not now");
     }},
    {"word", [](tcRandomBoard& s) { return s.word(); }},
    {"word", [](tcRandomBoard& s) { return s.word(); }},
    {"command", [](tcRandomBoard& s) { return s.command(); }},
    {"command", [](tcRandomBoard& s) { return s.command(); }},
    {"update", [](tcRandomBoard& s) { return s.update(); }},
    {"update", [](tcRandomBoard& s) { return s.update(); }},
    {"getCustomHandlers", [](tcRandomBoard& s) { return s.moreHandlers(); }},
    {"GetCameraInfo", [](tcRandomBoard& s) { return s.cameraInfo(); }},
    {"fault", [](tcRandomBoard& s) { return s.fault(); }},
};
