// Calls every operation of the board at random, on heads with and without faults, and prints all
// that came of it: results, status lines, published words, what was printed, and every event at the
// device boundary with its time. Two builds that print the same bytes behave the same.
//
// Arguments: seed, number of boards, operations a board. The working directory is written to.

#include <array>
#include <cinttypes>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <varnox/abstract_handler.h>
#include <varnox/pipeline.h>
#include <varnox/register_file.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"
#include "tests/support/publish_spy.h"
#include "tests/support/traced_output.h"

namespace {

using Varnox::tc3U5MGXSSensorBoard;

/// Choices that depend on the seed alone: no distribution of the standard library, whose results
/// are the library's own business.
class tcChance {
public:
    explicit tcChance(std::uint32_t seed) : m_random(seed) {}

    /// \return 0 to `most`
    int upTo(int most) {
        return static_cast<int>(m_random() % (static_cast<std::uint32_t>(most) + 1));
    }
    bool oneIn(int times) { return upTo(times - 1) == 0; }
    /// \return a number of 32 bits, every one as likely
    std::uint32_t bits() { return static_cast<std::uint32_t>(m_random()); }

    template<class Type, std::size_t Count>
    Type of(const std::array<Type, Count>& choices) {
        return choices[static_cast<std::size_t>(upTo(static_cast<int>(Count) - 1))];
    }

    /// \return mostly 0 to `most`, now and then what nobody should ask for
    int around(int most) {
        constexpr std::array odd{INT_MIN, INT_MIN + 1, -65536, -32769, -2,          -1,
                                 0,       1,           65535,  65536,  INT_MAX - 1, INT_MAX};
        return oneIn(8) ? of(odd) : upTo(most);
    }

private:
    std::mt19937 m_random;
};

std::string oneLine(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n') {
            result += "\\n";
        } else if (code < ' ' || code >= 0x7F) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(code));
            result += escape.data();
        } else {
            result += character;
        }
    }
    return result;
}

/// A pipeline that says which packing it was told.
class tcPipelineNote : public Varnox::tcPipeline {
public:
    explicit tcPipelineNote(sim::tcVirtualHead& head) : m_head(head) {}
    int setPixelPacking(int packing) override {
        m_head.note("PIPELINE " + std::to_string(packing));
        return tcPipeline::setPixelPacking(packing);
    }

private:
    sim::tcVirtualHead& m_head;
};

/// Writes a file for the board, and what is in it.
void writeFile(const char* name, const std::string& text, std::ostream& to) {
    std::ofstream(name, std::ios::binary) << text;
    to << "FILE " << name << " " << oneLine(text) << "\n";
}

std::string hexadecimal(std::uint32_t value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%" PRIX32, value);
    return text.data();
}

/// Registers as a settings file has them, with lines in it that are none.
std::string anySettings(tcChance& chance) {
    constexpr std::array<const char*, 6> odd{"# comment\n", "\n",       "12\n",
                                             "junk here\n", "0x5G 1\n", "FFFFF FFFFFFFFF\n"};
    const auto line = [&](const std::string& address, std::uint32_t value) {
        return address + " " + hexadecimal(value) + "\n";
    };
    // One choice a statement: the order within one is the compiler's affair.
    std::string text = "10 0\n";
    text += line("B0", static_cast<std::uint32_t>(chance.upTo(2000)));
    text += line("400", static_cast<std::uint32_t>(chance.upTo(5000)));
    text += line("D8", chance.oneIn(2) ? 0x2D90F : 0x1E60A);
    for (int lines = chance.upTo(30); lines > 0; --lines) {
        const std::uint32_t address = chance.bits() % 0x400;
        const std::uint32_t value = chance.bits();
        text += chance.oneIn(6) ? chance.of(odd) : line(hexadecimal(address), value);
    }
    return text;
}

std::string anyConfiguration(tcChance& chance) {
    std::string text = "[Settings]\n";
    const auto key = [&](const char* name, std::int64_t value) {
        // Now and then beyond 32 bits, where the targets' `long` differ.
        const std::int64_t beyond = chance.oneIn(16) ? (chance.upTo(6) - 3) * 0x1'0000'0000LL : 0;
        if (chance.oneIn(2)) {
            text += std::string(name) + " = " + std::to_string(value + beyond) + "\n";
        }
    };
    key("RoiX", chance.upTo(50) * 24);
    key("RoiY", chance.upTo(500) * 2);
    key("RoiWidth", std::int64_t{chance.around(108)} * 24 % 2600);
    key("RoiHeight", 2 + chance.upTo(1027) * 2);
    key("ExposureTime", chance.around(200'000));
    key("FrameInterval", chance.around(400'000));
    key("VerticalBin", chance.around(2));
    return text;
}

/// A head with nothing, one thing or two things wrong. Every block maps: access to one that does
/// not is the end of the program. Writes what is wrong.
sim::tcVirtualHeadBuilder anyHead(tcChance& chance, std::ostream& to) {
    constexpr std::array<std::string_view, 3> rails{"VDD1.2", "VDD3.3AVDDH", "VDD3.3SVDD"};
    constexpr std::array<std::string_view, 5> lines{"PS_1.2V_EN", "PS_3.3SVDD_EN", "PS_3.3AVDDH_EN",
                                                    "RESET_B", "EXT_TRIG_EN"};
    constexpr std::array<std::string_view, 3> devices{"/dev/spidev1.0", "/dev/i2c-1",
                                                      "/dev/gpiochip0"};
    constexpr std::array errors{5, 11, 16, 19, 22, 110}; // EIO EAGAIN EBUSY ENODEV EINVAL ETIMEDOUT
    auto builder = sim::aVirtualHead();
    builder.withQuietViolations().withLogCapacity(std::size_t{1} << 17);
    for (int faults = chance.oneIn(2) ? 0 : 1 + chance.upTo(1); faults > 0; --faults) {
        // Each choice is a statement of its own: the order of arguments is the compiler's affair.
        const int first = chance.upTo(900'000);
        const int second = chance.upTo(900'000);
        const std::uint32_t bits = chance.bits();
        switch (chance.upTo(9)) {
        case 0: {
            const std::string_view rail = rails[static_cast<std::size_t>(first % 3)];
            const int millivolts = second % 601 - 300;
            to << "WRONG " << rail << " by " << millivolts << " mV\n";
            builder.withRailOffset(rail, millivolts / 1000.0);
            break;
        }
        case 1:
            to << "WRONG no ADC\n";
            builder.withoutAdc();
            break;
        case 2: {
            const std::string_view line = chance.of(lines);
            to << "WRONG no line " << line << "\n";
            builder.withoutGpioLine(line);
            break;
        }
        case 3: {
            const std::string_view line = chance.of(lines);
            to << "WRONG busy line " << line << "\n";
            builder.withBusyGpioLine(line);
            break;
        }
        case 4:
            to << "WRONG SPI settings\n";
            builder.withSpiSettingsRefused();
            break;
        case 5: {
            const auto after =
                first % 2 == 0 ? sim::kNever : std::chrono::milliseconds(second % 201);
            to << "WRONG lane " << bits % 12 << " after " << after.count() << " ns\n";
            builder.withLaneAfter(bits % 12, after);
            break;
        }
        case 6:
            to << "WRONG lane polarity " << (bits & 0xFFF) << "\n";
            builder.withLanePolarity(bits & 0xFFF);
            break;
        case 7:
            to << "WRONG PLL flag " << bits % 3 << " after " << first << " us\n";
            builder.withPllFlagAfter(static_cast<sim::tePllFlag>(bits % 3),
                                     std::chrono::microseconds(first));
            break;
        case 8:
            to << "WRONG alignment after " << first << " us\n";
            builder.withAlignmentAfter(std::chrono::microseconds(first));
            break;
        default: {
            const std::string_view device = devices[bits % 3];
            const auto call = static_cast<std::uint64_t>(1 + first % 121);
            const int error = errors[static_cast<std::size_t>(second % 6)];
            to << "WRONG ioctl " << call << " of " << device << " fails with " << error << "\n";
            builder.withFailingCall(sim::teCall::ioctl, device, call, error);
            break;
        }
        }
    }
    return builder;
}

/// One board on a head, and its calls.
class tcSession {
public:
    tcSession(tcChance& chance, sim::tcVirtualHead& head)
        : m_chance(chance), m_head(head), m_pipeline(head), m_board("/dev/spidev1.0") {
        m_board.setStatusListener([&head](int level, const std::string& text) {
            head.note("STATUS " + std::to_string(level) + " " + oneLine(text));
        });
        m_board.setPipeline(&m_pipeline);
        m_owned.emplace_back(m_board.getCustomHandlers(nullptr, &m_handlers));
        for (const char* keyword : {"EXPM", "CLKS"}) {
            m_owned.emplace_back(m_handlers.at(keyword));
        }
        m_head.note("initialize " + std::to_string(m_board.initialize()));
    }

    void step() {
        const std::size_t chosen =
            static_cast<std::size_t>(m_chance.upTo(static_cast<int>(kOperations.size()) - 1));
        const tsOperation& operation = kOperations[chosen];
        m_arguments.clear();
        const std::string result = operation.call(*this);
        m_head.note(std::string(operation.name) + m_arguments + " -> " + result);
    }

    /// What every getter, the shadow map and the sensor say.
    void state() {
        std::string text;
        for (int address = 0; address < 0x400; ++address) {
            int value = 0;
            if (m_board.peek(address, &value) == 0) {
                text += " " + hexadecimal(static_cast<std::uint32_t>(address)) + "=" +
                        hexadecimal(static_cast<std::uint32_t>(value));
            }
        }
        m_head.note("shadow" + text);
        text.clear();
        for (const auto& [address, value] : m_head.sensorRegisters()) {
            text += " " + hexadecimal(address) + "=" + hexadecimal(value);
        }
        m_head.note("sensor" + text);
        text.clear();
        for (const auto& [address, value] : registerFile().words()) {
            text += " " + hexadecimal(address) + "=" + hexadecimal(value);
        }
        m_head.note("words" + text);
    }

private:
    struct tsOperation {
        std::string_view name;
        std::string (*call)(tcSession& session);
    };
    static const std::vector<tsOperation> kOperations;

    static Varnox::tcRegisterFile& registerFile() {
        return *Varnox::tcRegisterFile::getInstance(nullptr, true);
    }

    /// Keeps an argument for the log.
    int told(int value) {
        m_arguments += " " + std::to_string(value);
        return value;
    }
    int around(int most) { return told(m_chance.around(most)); }

    Varnox::ROI anyRegion() {
        const bool sound = !m_chance.oneIn(4);
        const int y = told(sound ? m_chance.upTo(500) * 2 : m_chance.around(2056));
        const int x = told(sound ? m_chance.upTo(50) * 24 : m_chance.around(2592));
        const int width = told(sound ? 24 + m_chance.upTo(57) * 24 : m_chance.around(2592));
        const int height = told(sound ? 2 + m_chance.upTo(527) * 2 : m_chance.around(2056));
        return {y, x, width, height};
    }

    std::string regions() {
        m_board.numberOfRegions = told(m_chance.around(8));
        for (int at = 0; at < 8; ++at) {
            m_board.regions[static_cast<std::size_t>(at)] = anyRegion();
        }
        const int result = m_board.programMultipleROI();
        m_board.numberOfRegions = 1;
        return std::to_string(result);
    }

    std::string word() {
        constexpr std::array<std::uint32_t, 8> addresses{0x3A000, 0x3A004, 0x3D000, 0x3D004,
                                                         0x3A070, 0x3A074, 0x3D008, 0x3A008};
        const std::uint32_t address = m_chance.of(addresses);
        const std::uint32_t value = address == 0x3A000 || address == 0x3A004
                                        ? static_cast<std::uint32_t>(m_chance.around(300'000))
                                        : static_cast<std::uint32_t>(m_chance.around(4));
        m_arguments += " " + hexadecimal(address) + " " + hexadecimal(value);
        const Varnox::tsWriteResult done = registerFile().write_word(address, value);
        return std::to_string(done.handled) + " " + std::to_string(done.status) + " " +
               hexadecimal(done.value);
    }

    std::string command() {
        constexpr std::array<const char*, 7> keywords{"EXPM",  "CLKS",  "SBPR",   "GBPR",
                                                      "SBPRM", "GBPRM", "UNKNOWN"};
        constexpr std::array<const char*, 12> texts{
            "", "0", "1", "2", "-1", " 1", "1 2", "x", "1.5", "0x1", "2147483647", "99999999999",
        };
        std::string keyword = m_chance.of(keywords);
        std::string text = m_chance.of(texts);
        m_arguments += " " + keyword + " '" + text + "'";
        Varnox::tcAbstractHandler* handler = m_owned.front().get();
        if (const auto found = m_handlers.find(keyword); found != m_handlers.end()) {
            handler = found->second;
        }
        return oneLine(handler->execute(keyword, text));
    }

    std::string fault() {
        const auto next = static_cast<std::uint64_t>(m_chance.upTo(20)) + 1;
        m_head.failCall(sim::teCall::ioctl, "/dev/spidev1.0",
                        m_head.calls(sim::teCall::ioctl, "/dev/spidev1.0") + next, 5);
        return std::to_string(next);
    }

    template<class Read>
    std::string pointed(Read read) {
        int value = -7;
        const int result = read(&value);
        return std::to_string(result) + " " + std::to_string(value);
    }

    tcChance& m_chance;
    sim::tcVirtualHead& m_head;
    tcPipelineNote m_pipeline;
    tc3U5MGXSSensorBoard m_board;
    std::map<std::string, Varnox::tcAbstractHandler*> m_handlers;
    std::vector<std::unique_ptr<Varnox::tcAbstractHandler>> m_owned;
    std::string m_arguments;
};

std::string text(int value) {
    return std::to_string(value);
}

const std::vector<tcSession::tsOperation> tcSession::kOperations = {
    {"setExposure", [](tcSession& s) { return text(s.m_board.setExposure(s.around(200'000))); }},
    {"setExposure", [](tcSession& s) { return text(s.m_board.setExposure(s.around(2'000))); }},
    {"getExposure", [](tcSession& s) { return text(s.m_board.getExposure()); }},
    {"getMinFrameIntervalMicroS",
     [](tcSession& s) { return text(s.m_board.getMinFrameIntervalMicroS()); }},
    {"setFrameInterval",
     [](tcSession& s) { return text(s.m_board.setFrameInterval(s.around(400'000))); }},
    {"setFrameInterval",
     [](tcSession& s) { return text(s.m_board.setFrameInterval(s.around(3'000'000))); }},
    {"getFrameInterval", [](tcSession& s) { return text(s.m_board.getFrameInterval()); }},
    {"setROI", [](tcSession& s) { return text(s.m_board.setROI(s.anyRegion())); }},
    {"setROI", [](tcSession& s) { return text(s.m_board.setROI(s.anyRegion())); }},
    {"getROI", [](tcSession& s) { return s.m_board.getROI().toString(); }},
    {"getImageROI", [](tcSession& s) { return s.m_board.getImageROI().toString(); }},
    {"programMultipleROI", [](tcSession& s) { return s.regions(); }},
    {"setVerticalBin", [](tcSession& s) { return text(s.m_board.setVerticalBin(s.around(2))); }},
    {"getVerticalBin", [](tcSession& s) { return text(s.m_board.getVerticalBin()); }},
    {"setHorizontalBin",
     [](tcSession& s) { return text(s.m_board.setHorizontalBin(s.around(2))); }},
    {"getHorizontalBin", [](tcSession& s) { return text(s.m_board.getHorizontalBin()); }},
    {"setShutterMode",
     [](tcSession& s) {
         return text(s.m_board.setShutterMode(
             static_cast<Varnox::teShutterMode>(s.told(s.m_chance.upTo(3)))));
     }},
    {"getShutterMode", [](tcSession& s) { return text(s.m_board.getShutterMode()); }},
    {"setBPP",
     [](tcSession& s) {
         return text(s.m_board.setBPP(static_cast<Varnox::teBPPMode>(s.told(s.m_chance.upTo(4)))));
     }},
    {"setColor",
     [](tcSession& s) { return text(s.m_board.setColor(s.told(s.m_chance.upTo(1)) != 0)); }},
    {"setTestPattern",
     [](tcSession& s) {
         return text(s.m_board.setTestPattern(
             static_cast<Varnox::teTestPattern>(s.told(s.m_chance.upTo(18)))));
     }},
    {"getTestPattern", [](tcSession& s) { return text(s.m_board.getTestPattern()); }},
    {"setTrigger",
     [](tcSession& s) {
         return text(
             s.m_board.setTrigger(static_cast<Varnox::teTriggerMode>(s.told(s.m_chance.upTo(3)))));
     }},
    {"getTrigger", [](tcSession& s) { return text(s.m_board.getTrigger()); }},
    {"peek",
     [](tcSession& s) {
         return s.pointed([&](int* value) { return s.m_board.peek(s.around(0x3FF), value); });
     }},
    {"poke",
     [](tcSession& s) {
         const int address = s.around(0x3FF);
         return text(s.m_board.poke(address, s.told(static_cast<int>(s.m_chance.bits()))));
     }},
    {"validate", [](tcSession& s) { return text(s.m_board.validate()); }},
    {"isCapturing", [](tcSession& s) { return text(s.m_board.isCapturing() ? 1 : 0); }},
    {"start", [](tcSession& s) { return text(s.m_board.start()); }},
    {"stop", [](tcSession& s) { return text(s.m_board.stop()); }},
    {"stop", [](tcSession& s) { return text(s.m_board.stop()); }},
    {"getTemperature", [](tcSession& s) { return s.m_board.getTemperature(s.around(1)); }},
    // Behind these characters, the time of the build.
    {"getVersion", [](tcSession& s) { return oneLine(s.m_board.getVersion().substr(0, 40)); }},
    {"save", [](tcSession& s) { return text(s.m_board.save(s.around(3))); }},
    {"recall", [](tcSession& s) { return text(s.m_board.recall(s.around(3))); }},
    {"power", [](tcSession& s) { return text(s.m_board.power(s.told(s.m_chance.upTo(1)) != 0)); }},
    {"setMirroring",
     [](tcSession& s) {
         const bool horizontal = s.told(s.m_chance.upTo(1)) != 0;
         return text(s.m_board.setMirroring(horizontal, s.told(s.m_chance.upTo(1)) != 0));
     }},
    {"getMirroring",
     [](tcSession& s) {
         bool horizontal = false;
         bool vertical = false;
         const int first = s.m_board.getMirroring(true, &horizontal);
         const int second = s.m_board.getMirroring(false, &vertical);
         return text(first) + text(second) + text(horizontal ? 1 : 0) + text(vertical ? 1 : 0);
     }},
    {"setAnalogGain", [](tcSession& s) { return text(s.m_board.setAnalogGain(s.around(3))); }},
    {"getAnalogGain",
     [](tcSession& s) {
         return s.pointed([&](int* value) { return s.m_board.getAnalogGain(value); });
     }},
    {"setBlackLevel", [](tcSession& s) { return text(s.m_board.setBlackLevel(s.around(3))); }},
    {"getBlackLevel",
     [](tcSession& s) {
         return s.pointed([&](int* value) { return s.m_board.getBlackLevel(value); });
     }},
    {"setWhiteBalance", [](tcSession& s) { return text(s.m_board.setWhiteBalance(1, 2, 3)); }},
    {"setGamma", [](tcSession& s) { return text(s.m_board.setGamma(s.around(100))); }},
    {"setStrobe", [](tcSession& s) { return text(s.m_board.setStrobe(s.around(100))); }},
    {"GetSkipFrames",
     [](tcSession& s) {
         bool skip = true;
         const int result = s.m_board.GetSkipFrames(skip);
         return text(result) + text(skip ? 1 : 0);
     }},
    {"setInternalExposureMode",
     [](tcSession& s) {
         return text(s.m_board.setInternalExposureMode(s.told(s.m_chance.upTo(1)) != 0));
     }},
    {"getInternalExposureMode",
     [](tcSession& s) { return text(s.m_board.getInternalExposureMode() ? 1 : 0); }},
    {"setClockSetting", [](tcSession& s) { return text(s.m_board.setClockSetting(s.around(2))); }},
    {"getClockSetting",
     [](tcSession& s) {
         return s.pointed([&](int* value) { return s.m_board.getClockSetting(*value); });
     }},
    {"resetFpga", [](tcSession& s) { return text(s.m_board.resetFpga()); }},
    {"configureTriggers", [](tcSession& s) { return text(s.m_board.configureTriggers()); }},
    {"setExposureMode",
     [](tcSession& s) {
         return text(s.m_board.setExposureMode(
             static_cast<tc3U5MGXS::teExposureMode>(s.told(s.m_chance.upTo(3)))));
     }},
    {"setDGain",
     [](tcSession& s) {
         return text(
             s.m_board.setDGain(static_cast<tc3U5MGXS::teDGainCoarse>(s.told(s.m_chance.upTo(7)))));
     }},
    {"getDGain", [](tcSession& s) { return text(static_cast<int>(s.m_board.getDGain())); }},
    {"initialize",
     [](tcSession& s) {
         return s.m_chance.oneIn(5) ? text(s.m_board.initialize()) : std::string("not now");
     }},
    {"word", [](tcSession& s) { return s.word(); }},
    {"word", [](tcSession& s) { return s.word(); }},
    {"command", [](tcSession& s) { return s.command(); }},
    {"command", [](tcSession& s) { return s.command(); }},
    {"fault", [](tcSession& s) { return s.fault(); }},
};

void print(sim::tcVirtualHead& head, std::ostream& to) {
    for (const std::string& line : head.timedLines()) {
        to << line << "\n";
    }
    head.clearLog();
}

/// Standard output and error go into the head's log, in order with what the hardware saw.
void liveOneBoard(tcChance& chance, int operations, std::ostream& to) {
    writeFile("3U5MGXS_12bit.txt", anySettings(chance), to);
    writeFile("3U5MGXS_10bit.txt", anySettings(chance), to);
    writeFile("3u5mgxs_config.ini", anyConfiguration(chance), to);
    sim::tcVirtualHead head = anyHead(chance, to).build();
    const tcTracedOutput out(std::cout,
                             [&](const std::string& piece) { head.note("OUT " + oneLine(piece)); });
    const tcTracedOutput err(std::cerr,
                             [&](const std::string& piece) { head.note("ERR " + oneLine(piece)); });
    setPublishSpy([&head](std::uint32_t address, std::uint32_t value) {
        head.note("WORD " + hexadecimal(address) + " = " + std::to_string(value));
    });
    {
        tcSession session(chance, head);
        print(head, to);
        for (int step = 0; step < operations; ++step) {
            session.step();
            print(head, to);
        }
        session.state();
    }
    setPublishSpy({});
    print(head, to);
    to << head.summary();
}

} // namespace

int main(int count, char** values) {
    if (count != 4) {
        std::cerr << "usage: random_operations SEED BOARDS OPERATIONS\n";
        return 2;
    }
    tcChance chance(static_cast<std::uint32_t>(std::strtoul(values[1], nullptr, 0)));
    const int boards = std::atoi(values[2]);
    const int operations = std::atoi(values[3]);
    std::ostream to(std::cout.rdbuf()); // the boards' own output goes elsewhere meanwhile
    for (int board = 0; board < boards; ++board) {
        to << "board " << board << "\n";
        liveOneBoard(chance, operations, to);
    }
    return to.flush() ? 0 : 1;
}
