// The FPGA object: its blocks and cores, the clock, the system id, the dump.

#include "fpga/fpga.h"

#include <cerrno>
#include <new>
#include <type_traits>

#include "tests/fpga/failing_cores.h"
#include "tests/fpga/fpga_fixture.h"
#include "tests/fpga/page_size.h"
#include "tests/support/failing_allocation.h"

// Hosts may delete them through a base that they derive.
static_assert(std::has_virtual_destructor_v<tc3U5MGXSFpga>);
static_assert(std::has_virtual_destructor_v<tcCanon3U5MGXSFrameCtrl>);

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

const std::string kNoFile;

constexpr auto kAccesses = sim::teEventKind::read | sim::teEventKind::write;

class Fpga : public tcFpgaFixture {};

/// The lines "MAP address length" in their order.
std::vector<std::string> mappings(const std::vector<std::string>& lines) {
    std::vector<std::string> result;
    for (const std::string& line : lines) {
        if (line.starts_with("MAP ")) {
            result.push_back(line);
        }
    }
    return result;
}

TEST_F(Fpga, MapsItsBlocksThenTheCoresInOrder) {
    const auto lines = trace([] { const tc3U5MGXSFpga fpga("fpga_addresses.ini"); });
    const auto maps = mappings(lines);
    ASSERT_EQ(maps.size(), 8U);
    EXPECT_EQ(maps[0], "MAP 0xFF200000 16384");
    EXPECT_EQ(maps[1], "MAP 0xFF204000 16384");
    EXPECT_EQ(maps[2], "MAP 0xFF210000 16384");
    EXPECT_THAT(maps[3], StartsWith("MAP 0xFF211000 "));
    EXPECT_THAT(maps[4], StartsWith("MAP 0xFF217000 "));
    EXPECT_THAT(maps[5], StartsWith("MAP 0xFF215000 "));
    EXPECT_THAT(maps[6], StartsWith("MAP 0xFF213000 "));
    EXPECT_THAT(maps[7], StartsWith("MAP 0xFF212000 "));
}

TEST_F(Fpga, ReleasesInReverseOrderTheBlocksByTheirWordCount) {
    std::vector<std::string> unmapped;
    for (const std::string& line : trace([] { const tc3U5MGXSFpga fpga(""); })) {
        if (line.starts_with("UNMAP ")) {
            unmapped.push_back(line);
        }
    }
    ASSERT_EQ(unmapped.size(), 8U);
    EXPECT_THAT(unmapped[0], StartsWith("UNMAP 0xFF212000 "));
    EXPECT_THAT(unmapped[1], StartsWith("UNMAP 0xFF213000 "));
    EXPECT_THAT(unmapped[2], StartsWith("UNMAP 0xFF215000 "));
    EXPECT_THAT(unmapped[3], StartsWith("UNMAP 0xFF217000 "));
    EXPECT_THAT(unmapped[4], StartsWith("UNMAP 0xFF211000 "));
    EXPECT_EQ(unmapped[5], "UNMAP 0xFF210000 4096");
    EXPECT_EQ(unmapped[6], "UNMAP 0xFF204000 4096");
    EXPECT_EQ(unmapped[7], "UNMAP 0xFF200000 4096");
}

// Its own blocks follow the page size: 8192 words, of which as many bytes are unmapped. The host
// library's cores see to their pages themselves.
TEST_F(Fpga, MapsItsOwnBlocksByThePagesOfTheMachine) {
    const tcPageSize pages(8192);
    EXPECT_THAT(
        trace([] { const tc3U5MGXSFpga fpga(kNoFile); }, sim::teEventKind::device),
        ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 32768", "CLOSE /dev/mem", "OPEN /dev/mem",
                    "MAP 0xFF204000 32768", "CLOSE /dev/mem", "OPEN /dev/mem",
                    "MAP 0xFF210000 32768", "CLOSE /dev/mem", "OPEN /dev/mem",
                    "MAP 0xFF211000 4096", "CLOSE /dev/mem", "OPEN /dev/mem", "MAP 0xFF217000 4096",
                    "CLOSE /dev/mem", "OPEN /dev/mem", "MAP 0xFF215000 4096", "CLOSE /dev/mem",
                    "OPEN /dev/mem", "MAP 0xFF213000 4096", "CLOSE /dev/mem", "OPEN /dev/mem",
                    "MAP 0xFF212000 4096", "CLOSE /dev/mem", "UNMAP 0xFF212000 4096",
                    "UNMAP 0xFF213000 4096", "UNMAP 0xFF215000 4096", "UNMAP 0xFF217000 4096",
                    "UNMAP 0xFF211000 4096", "UNMAP 0xFF210000 8192", "UNMAP 0xFF204000 8192",
                    "UNMAP 0xFF200000 8192"));
}

TEST_F(Fpga, StartsAt36MHz) {
    const tc3U5MGXSFpga fpga("");
    EXPECT_EQ(fpga.getClockMhz(), 36.0F);
    EXPECT_EQ(fpga.getMClk(), tc3U5MGXSFpga::eMClk36MHz);
    EXPECT_EQ(fpga.pwm.clockMhz, 36.0);
}

TEST_F(Fpga, NeverReadsAnAddressFile) {
    const auto lines = trace([] { const tc3U5MGXSFpga fpga("/nonexistent/fpga_addresses.ini"); });
    EXPECT_EQ(mappings(lines).size(), 8U);
}

TEST_F(Fpga, InitializeIsZeroWithEveryCoreReady) {
    tc3U5MGXSFpga fpga("");
    EXPECT_EQ(fpga.initialize(), 0U);
}

TEST_F(Fpga, EachCoreThatIsNotReadyHasItsBit) {
    // The second mapping, the clock generator's, has none.
    const std::pair<std::uint32_t, unsigned> expected[] = {
        {0xFF200000, 0x01}, {0xFF210000, 0x02}, {0xFF211000, 0x04}, {0xFF217000, 0x08},
        {0xFF215000, 0x10}, {0xFF213000, 0x10}, {0xFF212000, 0x10}, {0xFF204000, 0x00}};
    for (const auto& [address, bit] : expected) {
        SCOPED_TRACE(address);
        useHead(sim::aVirtualHead().withMapFailing(address, ENOMEM));
        testing::internal::CaptureStderr();
        tc3U5MGXSFpga fpga("");
        testing::internal::GetCapturedStderr();
        EXPECT_EQ(fpga.initialize(), bit);
    }
}

TEST_F(Fpga, WithoutMemoryDeviceEveryBitIsSet) {
    useHead(sim::aVirtualHead().withMemOpenFailing(ENOENT));
    testing::internal::CaptureStderr();
    tc3U5MGXSFpga fpga("");
    const unsigned int failed = fpga.initialize();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("/dev/mem: No such file or directory\n"));
    EXPECT_EQ(failed, 0x1FU);
}

TEST_F(Fpga, ResetPipelineResetsPixelShiftThenBadPixels) {
    tc3U5MGXSFpga fpga("");
    ASSERT_EQ(fpga.initialize(), 0U);
    std::vector<std::string> stores =
        trace([&] { EXPECT_TRUE(fpga.resetPipeline(true)); }, sim::teEventKind::write);
    ASSERT_EQ(stores.size(), 2U);
    EXPECT_THAT(stores[0], StartsWith("WRITE 0xFF217000 0x8"));
    EXPECT_THAT(stores[1], StartsWith("WRITE 0xFF215000 0x8"));
    stores = trace([&] { EXPECT_TRUE(fpga.resetPipeline(false)); }, sim::teEventKind::write);
    ASSERT_EQ(stores.size(), 2U);
    EXPECT_THAT(stores[0], StartsWith("WRITE 0xFF217000 0x0"));
    EXPECT_THAT(stores[1], StartsWith("WRITE 0xFF215000 0x0"));
}

TEST_F(Fpga, SetMClkWritesTheCounterThenTakesItOver) {
    tc3U5MGXSFpga fpga("");
    EXPECT_THAT(trace([&] { EXPECT_EQ(fpga.setMClk(tc3U5MGXSFpga::eMClk24MHz), 0); }),
                ElementsAre("WRITE 0xFF204300 0x00001617", "WRITE 0xFF204000 0x00000001"));
    EXPECT_EQ(fpga.getClockMhz(), 24.0F);
    EXPECT_EQ(fpga.getMClk(), 0);
    EXPECT_EQ(fpga.pwm.clockMhz, 24.0);
    EXPECT_THAT(trace([&] { EXPECT_EQ(fpga.setMClk(tc3U5MGXSFpga::eMClk36MHz), 0); }),
                ElementsAre("WRITE 0xFF204300 0x00000F0F", "WRITE 0xFF204000 0x00000001"));
    EXPECT_EQ(fpga.getClockMhz(), 36.0F);
    EXPECT_EQ(fpga.getMClk(), 1);
    EXPECT_EQ(fpga.pwm.clockMhz, 36.0);
}

TEST_F(Fpga, ThePulsesCountInTheNewClock) {
    tc3U5MGXSFpga fpga("");
    ASSERT_EQ(fpga.setMClk(tc3U5MGXSFpga::eMClk24MHz), 0);
    fpga.pwm.setPeriodTime(1000);
    EXPECT_EQ(head().fpgaWord(0xFF211004), 24000U);
}

TEST_F(Fpga, SetMClkRefusesAnUnknownSpeedAndWritesNothing) {
    tc3U5MGXSFpga fpga("");
    for (const int speed : {2, -1, 256, 0x7FFFFFFF}) {
        EXPECT_THAT(trace([&] {
                        EXPECT_EQ(fpga.setMClk(static_cast<tc3U5MGXSFpga::teMClkSpeed>(speed)), 3);
                    }),
                    IsEmpty());
        EXPECT_EQ(fpga.getClockMhz(), 36.0F);
        EXPECT_EQ(fpga.getMClk(), 1);
    }
}

TEST_F(Fpga, ARefusalKeepsTheSlowClock) {
    tc3U5MGXSFpga fpga("");
    ASSERT_EQ(fpga.setMClk(tc3U5MGXSFpga::eMClk24MHz), 0);
    EXPECT_EQ(fpga.setMClk(static_cast<tc3U5MGXSFpga::teMClkSpeed>(2)), 3);
    EXPECT_EQ(fpga.getClockMhz(), 24.0F);
    EXPECT_EQ(fpga.getMClk(), 0);
    EXPECT_EQ(fpga.pwm.clockMhz, 24.0);
}

TEST_F(Fpga, AFailedConstructionUnmapsWhatWasMapped) {
    const auto lines = trace([] {
        allocationsUntilFailure = 1; // the record of the clock generator's block
        EXPECT_THROW(const tc3U5MGXSFpga fpga(kNoFile), std::bad_alloc);
    });
    EXPECT_THAT(lines, ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 16384", "CLOSE /dev/mem",
                                   "UNMAP 0xFF200000 4096"));
}

struct tsFailedCore {
    const char* name;
    teFpgaCore core;
    std::size_t partsBefore; // built before it
};

class FpgaWithoutCore : public Fpga, public testing::WithParamInterface<tsFailedCore> {};

TEST_P(FpgaWithoutCore, ReleasesWhatWasBuiltBeforeItInReverseOrder) {
    struct tsPart {
        std::vector<std::string> built;
        std::vector<std::string> released;
    };
    const std::vector<tsPart> parts = {
        {{"OPEN /dev/mem", "MAP 0xFF200000 16384", "CLOSE /dev/mem"}, {"UNMAP 0xFF200000 4096"}},
        {{"OPEN /dev/mem", "MAP 0xFF204000 16384", "CLOSE /dev/mem"},
         {"UNMAP 0xFF204000 4096", "NOTE the clock generator's record is released"}},
        {{"OPEN /dev/mem", "MAP 0xFF210000 16384", "CLOSE /dev/mem"}, {"UNMAP 0xFF210000 4096"}},
        {{"OPEN /dev/mem", "MAP 0xFF211000 4096", "CLOSE /dev/mem", "READ 0xFF211200 0x50574D31"},
         {"UNMAP 0xFF211000 4096"}},
        {{"OPEN /dev/mem", "MAP 0xFF217000 4096", "CLOSE /dev/mem", "READ 0xFF217200 0x50534831"},
         {"UNMAP 0xFF217000 4096"}},
    };
    std::vector<std::string> expected;
    for (std::size_t part = 0; part < GetParam().partsBefore; ++part) {
        expected.insert(expected.end(), parts[part].built.begin(), parts[part].built.end());
    }
    for (std::size_t part = GetParam().partsBefore; part-- > 0;) {
        expected.insert(expected.end(), parts[part].released.begin(), parts[part].released.end());
    }

    std::string thrown;
    const auto lines = trace([&] {
        const tcFailingCore failing(GetParam().core);
        watchNextAllocation([&] { head().note("the clock generator's record is released"); });
        try {
            const tc3U5MGXSFpga fpga(kNoFile);
        } catch (const std::runtime_error& error) {
            thrown = error.what();
        }
    });
    EXPECT_THAT(lines, ElementsAreArray(expected));
    EXPECT_EQ(thrown, "no core");
}

INSTANTIATE_TEST_SUITE_P(Each, FpgaWithoutCore,
                         testing::Values(tsFailedCore{"FrameControl", teFpgaCore::eFrameCtrl, 2},
                                         tsFailedCore{"Pulses", teFpgaCore::ePwm, 3},
                                         tsFailedCore{"PixelShift", teFpgaCore::ePixelShift, 4},
                                         tsFailedCore{"BadPixels", teFpgaCore::eBadPixelReplacement,
                                                      5}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(Fpga, ExposureModeAndExternalTriggerAreIgnored) {
    tc3U5MGXSFpga fpga("");
    EXPECT_THAT(trace([&] {
                    fpga.setExposureMode(true);
                    fpga.setExternalTrigger(true);
                }),
                IsEmpty());
}

TEST_F(Fpga, SystemIdIsBothWordsInHexadecimal) {
    useHead(sim::aVirtualHead().withSystemId(0x1234, 0x10));
    const tc3U5MGXSFpga fpga("");
    EXPECT_THAT(trace([&] { EXPECT_EQ(fpga.getSysId(), "1234.10"); }),
                ElementsAre("READ 0xFF200000 0x00001234", "READ 0xFF200004 0x00000010"));
}

TEST_F(Fpga, SystemIdHasNeitherPrefixNorPadding) {
    useHead(sim::aVirtualHead().withSystemId(0x1, 0x2A));
    EXPECT_EQ(tc3U5MGXSFpga("").getSysId(), "1.2a");
    useHead(sim::aVirtualHead().withSystemId(0, 0xFFFFFFFF));
    EXPECT_EQ(tc3U5MGXSFpga("").getSysId(), "0.ffffffff");
}

TEST_F(Fpga, DumpIsSystemIdClockFrameControlPulsesAndBadPixels) {
    useHead(sim::aVirtualHead().withSystemId(0x1234, 0x10));
    tc3U5MGXSFpga fpga("");
    ASSERT_EQ(fpga.initialize(), 0U);
    ASSERT_EQ(fpga.setMClk(tc3U5MGXSFpga::eMClk24MHz), 0);
    out().clear();
    const auto reads = trace([&] { fpga.dumpRegisters(); }, kAccesses);
    EXPECT_THAT(out().textWithFlushes(), StartsWith("Fpga sys id: 1234.10\n<flush>"
                                                    "Pll 0xC0 = 0x1617\n<flush>"
                                                    "FPGA register dump\n<flush>"
                                                    "Core enabled:\t0\n<flush>"));
    EXPECT_EQ(reads[0], "READ 0xFF200000 0x00001234");
    EXPECT_EQ(reads[1], "READ 0xFF200004 0x00000010");
    EXPECT_EQ(reads[2], "READ 0xFF204300 0x00001617");
    EXPECT_EQ(reads[3], "READ 0xFF210000 0x00000000");
    // Pulse generator before bad pixels; the pixel shifter has no part in it.
    std::size_t pulses = 0;
    std::size_t badPixels = 0;
    for (std::size_t i = 0; i < reads.size(); ++i) {
        EXPECT_THAT(reads[i], AllOf(StartsWith("READ "), testing::Not(HasSubstr("0xFF217"))));
        if (reads[i].starts_with("READ 0xFF211")) {
            pulses = i;
        } else if (reads[i].starts_with("READ 0xFF215") && badPixels == 0) {
            badPixels = i;
        }
    }
    EXPECT_GT(pulses, 3U);
    EXPECT_GT(badPixels, pulses);
    std::cout << 255;
    EXPECT_TRUE(out().text().ends_with("255")); // still decimal
}

TEST_F(Fpga, DumpLeavesStandardOutputInDecimalFromTheClockOn) {
    tc3U5MGXSFpga fpga("");
    ASSERT_EQ(fpga.initialize(), 0U);
    std::vector<std::string> bases;
    const tcTracedOutput watched(std::cout, [&](const std::string& piece) {
        if (piece.starts_with("Pll ") || piece == "FPGA register dump\n") {
            const auto base = std::cout.flags() & std::ios::basefield;
            bases.push_back(base == std::ios::dec   ? "dec"
                            : base == std::ios::oct ? "oct"
                                                    : "other");
        }
    });
    std::cout.flags(std::ios::oct | std::ios::uppercase | std::ios::showpos);
    fpga.dumpRegisters();
    EXPECT_EQ(std::cout.flags(), std::ios::dec | std::ios::uppercase | std::ios::showpos);
    EXPECT_THAT(bases, ElementsAre("oct", "dec"));
    std::cout.copyfmt(std::ios(nullptr));
}

} // namespace
