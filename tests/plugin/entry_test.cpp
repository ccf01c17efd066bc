// The plug-in as a host meets it: a shared library with two functions. And what building and
// deleting a board does.

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <varnox/abstract_handler.h>
#include <varnox/plugin_entry.h> // what other plug-ins use: the compiler sees that it agrees with ours

#include "plugin/entry.h"
#include "tests/plugin/base_spy.h"
#include "tests/plugin/plugin_test.h"
#include "tests/support/file_watch.h"
#include "tests/support/gpio_spy.h"

using testing::ElementsAre;
using Varnox::tcSensorBoard;

namespace {

/// The library, opened as a host does it.
class tcPlugin {
public:
    tcPlugin() : m_library(dlopen(HEAD_PLUGIN, RTLD_NOW | RTLD_LOCAL)) {
        if (m_library == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    tcPlugin(const tcPlugin&) = delete;
    tcPlugin& operator=(const tcPlugin&) = delete;
    ~tcPlugin() { dlclose(m_library); }

    [[nodiscard]] int sensorType() const { return function<int()>("sensorType")(); }
    [[nodiscard]] tcSensorBoard* makeSensor(const char* spiDevice) const {
        return function<tcSensorBoard*(const char*)>("makeSensor")(spiDevice);
    }

private:
    template<class Function>
    [[nodiscard]] Function* function(const char* name) const {
        void* const symbol = dlsym(m_library, name);
        if (symbol == nullptr) {
            throw std::runtime_error(dlerror());
        }
        return reinterpret_cast<Function*>(symbol);
    }

    void* m_library;
};

template<class Record>
Record recordAt(const std::string& bytes, std::size_t at) {
    Record record;
    if (at + sizeof record > bytes.size()) {
        throw std::out_of_range("not an ELF file");
    }
    std::memcpy(&record, bytes.data() + at, sizeof record);
    return record;
}

/// \return names of the symbols that the library gives to others
std::set<std::string> exportedSymbols(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const auto header = recordAt<ElfW(Ehdr)>(bytes, 0);
    const auto section = [&](std::size_t number) {
        return recordAt<ElfW(Shdr)>(bytes, header.e_shoff + number * header.e_shentsize);
    };
    std::set<std::string> names;
    for (std::size_t number = 0; number < header.e_shnum; ++number) {
        const auto table = section(number);
        if (table.sh_type != SHT_DYNSYM) {
            continue;
        }
        const auto strings = section(table.sh_link);
        for (std::size_t at = 0; at < table.sh_size; at += sizeof(ElfW(Sym))) {
            const auto symbol = recordAt<ElfW(Sym)>(bytes, table.sh_offset + at);
            if (symbol.st_shndx != SHN_UNDEF && ELF32_ST_BIND(symbol.st_info) != STB_LOCAL) {
                names.insert(bytes.data() + strings.sh_offset + symbol.st_name);
            }
        }
    }
    return names;
}

class Entry : public tcPluginTest {
protected:
    ~Entry() override { gpioSpy() = {}; }
};

/// \return each file that was opened, once, in the order of the first opening
std::vector<std::string> openedFiles(tcFileWatch& files) {
    const std::string opened = "OPENED ";
    std::vector<std::string> result;
    for (const std::string& event : files.take()) {
        if (event.starts_with(opened) &&
            std::find(result.begin(), result.end(), event.substr(opened.size())) == result.end()) {
            result.push_back(event.substr(opened.size()));
        }
    }
    return result;
}

/// Standard output that takes nothing from some text on, and says so by an exception.
class tcOutputThatFails {
public:
    explicit tcOutputThatFails(const std::string& from)
        : m_buffer(from), m_before(std::cout.rdbuf(&m_buffer)) {
        std::cout.exceptions(std::ios::badbit);
    }
    tcOutputThatFails(const tcOutputThatFails&) = delete;
    tcOutputThatFails& operator=(const tcOutputThatFails&) = delete;
    ~tcOutputThatFails() {
        std::cout.exceptions(std::ios::goodbit);
        std::cout.clear();
        std::cout.rdbuf(m_before);
    }

private:
    class tcBuffer : public std::streambuf {
    public:
        explicit tcBuffer(std::string from) : m_from(std::move(from)) {}

    protected:
        std::streamsize xsputn(const char* text, std::streamsize count) override {
            const std::string piece(text, static_cast<std::size_t>(count));
            return piece.find(m_from) == std::string::npos ? count : 0;
        }

    private:
        std::string m_from;
    };
    tcBuffer m_buffer;
    std::streambuf* m_before;
};

} // namespace

// ---- The library

TEST_F(Entry, ExactlyTwoFunctionsLeaveTheLibrary) {
    EXPECT_THAT(exportedSymbols(HEAD_PLUGIN), ElementsAre("makeSensor", "sensorType"));
}

TEST_F(Entry, SensorTypeIsSevenBeforeAnyBoard) {
    const tcPlugin plugin;
    EXPECT_EQ(seen([&] { EXPECT_EQ(plugin.sensorType(), 7); }), "");
    EXPECT_EQ(sensorType(), 7);
}

TEST_F(Entry, MakeSensorWithoutADeviceThrowsTheKnownText) {
    const tcPlugin plugin;
    EXPECT_EQ(seen([&] {
                  try {
                      static_cast<void>(plugin.makeSensor(nullptr));
                      ADD_FAILURE() << "no exception";
                  } catch (const std::logic_error& error) {
                      EXPECT_STREQ(error.what(), "basic_string::_M_construct null not valid");
                      EXPECT_EQ(typeid(error), typeid(std::logic_error));
                  }
              }),
              "");
}

TEST_F(Entry, ABoardOfTheLoadedPlugInWorksAndIsDeleted) {
    useHead(aQuickHead());
    useShippedFiles();
    const tcPlugin plugin;
    std::unique_ptr<tcSensorBoard> loaded(plugin.makeSensor("/dev/spidev1.0"));
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->initialize(), 0);

    std::map<std::string, Varnox::tcAbstractHandler*> handlers;
    std::vector<std::unique_ptr<Varnox::tcAbstractHandler>> owned;
    Varnox::tcAbstractHandler* const first = loaded->getCustomHandlers(nullptr, &handlers);
    owned.emplace_back(handlers.at("CLKS"));
    owned.emplace_back(handlers.at("EXPM"));
    owned.emplace_back(first);
    const auto ask = [&](std::string command, std::string arguments) {
        return handlers.at(command)->execute(command, arguments);
    };
    EXPECT_EQ(ask("EXPM", ""), "<ack>^0");
    EXPECT_EQ(ask("EXPM", "1"), "<nack 0>");
    EXPECT_EQ(ask("EXPM", ""), "<ack>^1");
    EXPECT_EQ(ask("GBPR", ""), "<ack ^1>");
    EXPECT_EQ(loaded->setTrigger(Varnox::eTriggerExternal), 0);
    EXPECT_EQ(head().sensorState().frameControlMode, 1U);
    owned.clear();

    EXPECT_TRUE(registerFile().write_word(0x3D004, 1).handled);
    loaded.reset();
    EXPECT_FALSE(registerFile().write_word(0x3D004, 1).handled);
    EXPECT_TRUE(head().violations().empty());
}

TEST_F(Entry, MakeSensorTakesTheDeviceItIsGiven) {
    useHead(aQuickHead().withSpiDevice("/dev/spidev2.1"));
    useShippedFiles();
    const std::unique_ptr<tcSensorBoard> board(makeSensor("/dev/spidev2.1"));
    EXPECT_EQ(board->initialize(), 0);
    const std::unique_ptr<tcSensorBoard> other(makeSensor("/dev/spidev1.0"));
    EXPECT_EQ(other->initialize(), 6); // no such device
}

// ---- Construction

TEST_F(Entry, ConstructionBuildsTheFpgaThenTheSensorThenTheTriggerLine) {
    useHead(aQuickHead());
    const auto construction = trace([&] { makeBoard(); }, kWithoutViolations);
    tsTrace withoutPins; // which pin a line has is the head's
    for (const std::string& line : construction) {
        const auto tabs = line.find("\t\t");
        withoutPins.push_back(tabs == std::string::npos ? line : line.substr(0, tabs + 2));
    }
    EXPECT_EQ(shown(withoutPins),
              text({
                  load(0xFF211200, 0x50574D31),
                  load(0xFF217200, 0x50534831),
                  printed("tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\n"),
                  printed("tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\n"),
                  printed("GPIO PS_1.2V_EN\t\t"),
                  "GPIO PS_1.2V_EN out 0",
                  printed("GPIO PS_3.3SVDD_EN\t\t"),
                  "GPIO PS_3.3SVDD_EN out 0",
                  printed("GPIO PS_3.3AVDDH_EN\t\t"),
                  "GPIO PS_3.3AVDDH_EN out 0",
                  printed("GPIO RESET_B\t\t"),
                  "GPIO RESET_B out 0",
                  printed("tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\n"),
                  "ADC-COMMAND 0x8C",
                  printed("tc3U5MGXS::tc3U5MGXS: Done!\n"),
                  printed("Constructing tc3U5MGXSSensorBoard\n"),
                  printed("GPIO EXT_TRIG_EN\t\t"),
                  "GPIO EXT_TRIG_EN out 0",
              }));
    EXPECT_THAT(out().textWithFlushes(),
                testing::HasSubstr("Constructing tc3U5MGXSSensorBoard\n<flush>"));
    EXPECT_EQ(err().text(), "");
    EXPECT_EQ(head().line("EXT_TRIG_EN"), 0);
}

TEST_F(Entry, ConstructionPrintsThePinOfTheTriggerLine) {
    useHead(aQuickHead());
    makeBoard();
    const int pin = Pellum::tcGpio::GetPinFromDTName("EXT_TRIG_EN");
    ASSERT_GE(pin, 0);
    EXPECT_THAT(out().text(),
                testing::EndsWith("GPIO EXT_TRIG_EN\t\t" + std::to_string(pin) + "\n"));
}

TEST_F(Entry, ConstructionOpensTheSensorsLimitsAndNoOtherFile) {
    useHead(aQuickHead());
    useShippedFiles();
    directory().write("fpga_addresses.ini", "[Addresses]\nBase = 0\n");
    tcFileWatch files;
    makeBoard();
    EXPECT_THAT(openedFiles(files), ElementsAre("3u5mgxs_sensor.ini"));
}

TEST_F(Entry, InitializationReadsItsFilesInOrderAndNeverTheFpgaAddresses) {
    useHead(aQuickHead());
    useShippedFiles();
    directory().write("fpga_addresses.ini", "[Addresses]\nBase = 0\n");
    makeBoard();
    tcFileWatch files;
    EXPECT_EQ(board().initialize(), 0);
    EXPECT_THAT(openedFiles(files), ElementsAre("3u5mgxs_config.ini", "3u5mgxs_sensor.ini",
                                                "3U5MGXS_12bit.txt", "bad_pixel_map.txt"));
}

TEST_F(Entry, ConstructionWithoutTheTriggerLineSaysSoAndGoesOn) {
    useHead(aQuickHead().withoutGpioLine("EXT_TRIG_EN"));
    makeBoard();
    EXPECT_THAT(err().text(), testing::StartsWith("ERROR: GPIO EXT_TRIG_EN not found in DT\n"));
    EXPECT_THAT(out().text(), testing::EndsWith("Constructing tc3U5MGXSSensorBoard\n"));
    EXPECT_EQ(board().setTrigger(Varnox::eTriggerExternal), 0);
}

TEST_F(Entry, AMissingTriggerLineIsUsedWithItsNegativeNumberAndReported) {
    useHead(aQuickHead());
    gpioSpy().seen = [&](const std::string& what) { head().note(what); };
    gpioSpy().pins = {{"EXT_TRIG_EN", -7}};
    const auto supplyLine = [](const std::string& name, int pin) {
        return tsTrace{printed("GPIO " + name + "\t\t" + std::to_string(pin) + "\n"),
                       "NOTE LINE " + std::to_string(pin), "NOTE DIRECTION 1 0",
                       "GPIO " + name + " out 0"};
    };
    EXPECT_EQ(seen([&] { makeBoard(); }, sim::teEventKind::gpio | sim::teEventKind::note),
              text({
                  "NOTE LINE 0",
                  "NOTE LINE 0",
                  "NOTE LINE 0",
                  "NOTE LINE 0",
                  printed("tc3U5MGXS::tc3U5MGXS: Constructing tc3U5MGXS\n"),
                  printed("tc3U5MGXS::tc3U5MGXS: Exporting/configuring 3U5MGXS control GPIOs\n"),
                  supplyLine("PS_1.2V_EN", 5),
                  supplyLine("PS_3.3SVDD_EN", 6),
                  supplyLine("PS_3.3AVDDH_EN", 7),
                  supplyLine("RESET_B", 11),
                  printed("tc3U5MGXS::tc3U5MGXS: Configuring voltage check ADC...\n"),
                  printed("tc3U5MGXS::tc3U5MGXS: Done!\n"),
                  "NOTE LINE 0",
                  printed("Constructing tc3U5MGXSSensorBoard\n"),
                  complained("ERROR: GPIO EXT_TRIG_EN not found in DT\n"),
                  "NOTE LINE 4294967289",
                  "NOTE DIRECTION 1 0",
                  complained("tcGpioSingle: pin -7: SetDirection: No such device (errno 19)\n"),
              }));
}

TEST_F(Entry, ConstructionOnAHeadWithoutAnyDeviceGoesOn) {
    useHead(aQuickHead()
                .withoutGpioChip()
                .withoutSpiDevice()
                .withoutI2cBus()
                .withMemOpenFailing(EACCES)
                .withQuietViolations());
    makeBoard();
    EXPECT_EQ(board().initialize(), 6); // "Failed to open spidev"
}

TEST_F(Entry, WhatIsSetAfterConstruction) {
    makeBoard();
    EXPECT_EQ(board().getROI(), (Varnox::ROI{0, 0, 2592, 2056}));
    EXPECT_TRUE(board().getInternalExposureMode());
    EXPECT_FALSE(board().isCapturing());
    EXPECT_EQ(board().getVerticalBin(), 1);
    // The rest is zero.
    EXPECT_EQ(board().getExposure(), 0);
    EXPECT_EQ(board().getFrameInterval(), 0);
    EXPECT_EQ(board().getTrigger(), 0);
    EXPECT_EQ(board().getTestPattern(), 0);
    EXPECT_EQ(board().numberOfRegions, 0);
    ASSERT_EQ(board().regions.size(), 8U);
    for (const Varnox::ROI& region : board().regions) {
        EXPECT_EQ(region, (Varnox::ROI{0, 0, 0, 0}));
    }
}

TEST_F(Entry, VerticalBinIsOneAfterConstruction) {
    makeBoard();
    board().numberOfRegions = 1;
    EXPECT_THAT(
        trace([&] { board().programMultipleROI(); }, sim::teEventKind::note),
        testing::Contains(printed("setROIArea Num: 0 RowS: 0 RowE: 2055 ColS: 0 ColE: 2591\n")));
}

TEST_F(Entry, TheHostsBaseHearsOfTheRegionAndOfACountInThePlugIn) {
    useHead(aQuickHead());
    const tcPlugin plugin;
    const std::unique_ptr<tcSensorBoard> one(plugin.makeSensor("/dev/spidev1.0"));
    const tsBaseArguments heard = lastBaseArguments();
    EXPECT_EQ(heard.boardType, 4);
    EXPECT_EQ(heard.regionBase, 0xFF200000U);
    EXPECT_EQ(heard.regionLength, 0x18000U);
    EXPECT_EQ(heard.eventLines, 4);
    ASSERT_NE(heard.eventCount, nullptr);
    EXPECT_EQ(*heard.eventCount, 0);
    Dl_info place{};
    ASSERT_NE(dladdr(heard.eventCount, &place), 0);
    EXPECT_STREQ(place.dli_fname, HEAD_PLUGIN);

    // Every board of the plug-in counts there: the events of four lines.
    const std::unique_ptr<tcSensorBoard> other(plugin.makeSensor("/dev/spidev1.0"));
    EXPECT_EQ(lastBaseArguments().eventCount, heard.eventCount);
    for (const unsigned int source : {0U, 1U, 2U, 3U, 4U, 0xFFFFFFFFU}) {
        one->Handler(source, 0);
        other->Handler(source, 0);
    }
    EXPECT_EQ(*heard.eventCount, 8);
    *heard.eventCount = 0; // the library may stay loaded
}

TEST_F(Entry, EventsOfTheFpgaAreTheHostsToCount) {
    makeBoard();
    Varnox::tcEventHandler& events = board();
    EXPECT_EQ(seen([&] { events.Handler(0, 1); }), "");
}

TEST_F(Entry, AConstructionThatFailsReleasesEverythingAndThrowsOn) {
    useHead(aQuickHead());
    const auto before = head().calls(sim::teCall::mmap, "/dev/mem");
    const auto devices = trace(
        [&] {
            const tcOutputThatFails output("Constructing tc3U5MGXSSensorBoard");
            EXPECT_THROW(makeSensor("/dev/spidev1.0"), std::ios_base::failure);
        },
        sim::teEventKind::device | sim::teEventKind::gpio);
    const auto counted = [&](const std::string& what) {
        return std::count_if(devices.begin(), devices.end(),
                             [&](const std::string& line) { return line.rfind(what, 0) == 0; });
    };
    EXPECT_EQ(head().calls(sim::teCall::mmap, "/dev/mem") - before, 8U);
    EXPECT_EQ(counted("MAP "), 8);
    EXPECT_EQ(counted("UNMAP "), 8);
    EXPECT_EQ(counted("OPEN "), counted("CLOSE "));
    EXPECT_THAT(devices, testing::Contains("GPIO RESET_B released"));
}

// ---- Deletion

TEST_F(Entry, DeletionReleasesTheTriggerLineThenTheSensorThenTheFpga) {
    useHead(aQuickHead());
    makeInitializedBoard();
    const auto devices =
        trace([&] { destroyBoard(); }, kWithoutViolations | sim::teEventKind::device);
    EXPECT_EQ(shown(devices), text({
                                  "GPIO EXT_TRIG_EN released",
                                  "GPIO RESET_B released",
                                  "GPIO PS_3.3AVDDH_EN released",
                                  "GPIO PS_3.3SVDD_EN released",
                                  "GPIO PS_1.2V_EN released",
                                  "CLOSE /dev/spidev1.0",
                                  "CLOSE /dev/i2c-1",
                                  "UNMAP 0xFF212000 4096",
                                  "UNMAP 0xFF213000 4096",
                                  "UNMAP 0xFF215000 4096",
                                  "UNMAP 0xFF217000 4096",
                                  "UNMAP 0xFF211000 4096",
                                  "UNMAP 0xFF210000 4096",
                                  "UNMAP 0xFF204000 4096",
                                  "UNMAP 0xFF200000 4096",
                              }));
}

TEST_F(Entry, DeletionNeitherStopsNorPowersDown) {
    makeReadyBoard();
    ASSERT_EQ(board().start(), 0);
    EXPECT_EQ(seen([&] { destroyBoard(); }, sim::teEventKind::spi | sim::teEventKind::write |
                                                sim::teEventKind::sleep | sim::teEventKind::note),
              "");
    EXPECT_EQ(head().line("PS_1.2V_EN"), 1);
}
