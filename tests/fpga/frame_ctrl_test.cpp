// Frame-control core: every register, every accessor, to the bit.

#include <bit>
#include <cerrno>

#include "fpga/canon_3u5mgxs_frame_ctrl.h"
#include "tests/fpga/fpga_fixture.h"
#include "tests/fpga/page_size.h"

using testing::ElementsAre;

namespace {

constexpr unsigned int kBase = 0xFF210000;

class FrameCtrl : public tcFpgaFixture {
protected:
    template<class Operation>
    std::vector<std::string> accesses(Operation operation) {
        return trace(operation, sim::teEventKind::read | sim::teEventKind::write);
    }

    tcCanon3U5MGXSFrameCtrl core{kBase};
};

TEST_F(FrameCtrl, IsInitializedOnceItsBlockIsMapped) {
    EXPECT_TRUE(core.initialized());
    EXPECT_THAT(head().lines(),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 16384", "CLOSE /dev/mem"));
}

TEST_F(FrameCtrl, UnmapsAsManyBytesAsItHasWords) {
    EXPECT_THAT(trace([] { const tcCanon3U5MGXSFrameCtrl other(kBase); }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 16384", "CLOSE /dev/mem",
                            "UNMAP 0xFF210000 4096"));
}

TEST_F(FrameCtrl, MapsItsBlockByThePagesOfTheMachine) {
    const tcPageSize pages(8192);
    EXPECT_THAT(trace([] { const tcCanon3U5MGXSFrameCtrl other(kBase); }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 32768", "CLOSE /dev/mem",
                            "UNMAP 0xFF210000 8192"));
}

TEST_F(FrameCtrl, IsNotInitializedWhenTheDeviceIsMissing) {
    head().failCall(sim::teCall::open, "/dev/mem", head().calls(sim::teCall::open, "/dev/mem") + 1,
                    ENOENT);
    testing::internal::CaptureStderr();
    const tcCanon3U5MGXSFrameCtrl unmapped(kBase);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "/dev/mem: No such file or directory\n");
    EXPECT_FALSE(unmapped.initialized());
}

TEST_F(FrameCtrl, ReadsTheEnableBit) {
    head().setFpgaWord(0xFF210000, 0x80000000);
    EXPECT_THAT(accesses([&] { EXPECT_TRUE(core.readCoreEnabled()); }),
                ElementsAre("READ 0xFF210000 0x80000000"));
    head().setFpgaWord(0xFF210000, 0x00000002);
    EXPECT_THAT(accesses([&] { EXPECT_FALSE(core.readCoreEnabled()); }),
                ElementsAre("READ 0xFF210000 0x00000002"));
}

TEST_F(FrameCtrl, PairsFlipChangesBit1Alone) {
    head().setFpgaWord(0xFF210000, 0x80000002);
    EXPECT_THAT(accesses([&] {
                    EXPECT_TRUE(core.readPairsFlip());
                    core.enablePairsFlip(false);
                    EXPECT_FALSE(core.readPairsFlip());
                    core.enablePairsFlip(true);
                }),
                ElementsAre("READ 0xFF210000 0x80000002", "READ 0xFF210000 0x80000002",
                            "WRITE 0xFF210000 0x80000000", "READ 0xFF210000 0x80000000",
                            "READ 0xFF210000 0x80000000", "WRITE 0xFF210000 0x80000002"));
}

TEST_F(FrameCtrl, HdrUpdateOrsBit0In) {
    head().setFpgaWord(0xFF210000, 0x80000002);
    EXPECT_THAT(accesses([&] { core.triggerHdrUpdate(); }),
                ElementsAre("READ 0xFF210000 0x80000002", "WRITE 0xFF210000 0x80000003"));
}

TEST_F(FrameCtrl, EachStatusFlagIsALoadOfItsOwn) {
    const auto lines = accesses([&] {
        const auto status = core.readStatus();
        EXPECT_FALSE(status.aligned);
        EXPECT_FALSE(status.locked);
        EXPECT_FALSE(status.rgLocked);
        EXPECT_FALSE(status.gbLocked);
    });
    EXPECT_THAT(lines, ElementsAre("READ 0xFF210004 0x00000000", "READ 0xFF210004 0x00000000",
                                   "READ 0xFF210004 0x00000000", "READ 0xFF210004 0x00000000"));
}

TEST_F(FrameCtrl, LaneInversionWritesTwelveBitsAndReadsTheWholeWord) {
    EXPECT_THAT(accesses([&] {
                    core.setLaneInversion(0xFFFFFFFF);
                    core.setLaneInversion(0xABCDE5D9);
                }),
                ElementsAre("WRITE 0xFF210008 0x00000FFF", "WRITE 0xFF210008 0x000005D9"));
    head().setFpgaWord(0xFF210008, 0xFFFF05D9);
    EXPECT_THAT(accesses([&] { EXPECT_EQ(core.readLaneInversion(), 0xFFFF05D9U); }),
                ElementsAre("READ 0xFF210008 0xFFFF05D9"));
}

TEST_F(FrameCtrl, InterruptRegistersPassThrough) {
    head().setFpgaWord(0xFF210010, 0xDEAD0001);
    EXPECT_THAT(accesses([&] {
                    EXPECT_EQ(core.readIrqFlags(), 0xDEAD0001U);
                    core.clearIrqFlags(0x80000001);
                    core.setIrqMask(0xFFFFFFFE);
                    EXPECT_EQ(core.readIrqMask(), 0xFFFFFFFEU);
                }),
                ElementsAre("READ 0xFF210010 0xDEAD0001", "WRITE 0xFF210010 0x80000001",
                            "WRITE 0xFF210014 0xFFFFFFFE", "READ 0xFF210014 0xFFFFFFFE"));
}

TEST_F(FrameCtrl, FullFrameRoiResCntIs040401B0) {
    EXPECT_THAT(accesses([&] {
                    core.setRoiResCntConfig({2056, 2592});
                    const auto config = core.readRoiResCntConfig();
                    EXPECT_EQ(config.H, 2056);
                    EXPECT_EQ(config.W, 2592);
                }),
                ElementsAre("WRITE 0xFF210018 0x040401B0", "READ 0xFF210018 0x040401B0"));
}

TEST_F(FrameCtrl, RoiResCntLosesRemainders) {
    EXPECT_THAT(accesses([&] {
                    core.setRoiResCntConfig({3, 100}); // 1 and 16
                    const auto config = core.readRoiResCntConfig();
                    EXPECT_EQ(config.H, 2);
                    EXPECT_EQ(config.W, 96);
                }),
                ElementsAre("WRITE 0xFF210018 0x00010010", "READ 0xFF210018 0x00010010"));
}

TEST_F(FrameCtrl, RoiResCntKeepsBit31Clear) {
    // 65535 / 2 = 0x7FFF, 65535 / 6 = 10922 = 0x2AAA
    EXPECT_THAT(accesses([&] {
                    core.setRoiResCntConfig({65535, 65535});
                }),
                ElementsAre("WRITE 0xFF210018 0x7FFF2AAA"));
    head().setFpgaWord(0xFF210018, 0xFFFFFFFF);
    const auto config = core.readRoiResCntConfig();
    EXPECT_EQ(config.H, 0xFFFE);
    EXPECT_EQ(config.W, 0xFFFA); // 0xFFFF x 6 = 0x5FFFA
}

TEST_F(FrameCtrl, ResolutionIsHeightAboveWidth) {
    EXPECT_THAT(accesses([&] {
                    core.setResolutionConfig({2056, 2592});
                    const auto config = core.readResolutionConfig();
                    EXPECT_EQ(config.H, 2056);
                    EXPECT_EQ(config.W, 2592);
                    core.setResolutionConfig({0xFFFF, 0x0001});
                }),
                ElementsAre("WRITE 0xFF210020 0x08080A20", "READ 0xFF210020 0x08080A20",
                            "WRITE 0xFF210020 0xFFFF0001"));
}

TEST_F(FrameCtrl, RoiIsYAboveX) {
    EXPECT_THAT(accesses([&] {
                    core.setRoiConfig({100, 24});
                    const auto config = core.readRoiConfig();
                    EXPECT_EQ(config.y, 100);
                    EXPECT_EQ(config.x, 24);
                    core.setRoiConfig({0x8001, 0xFFFF});
                }),
                ElementsAre("WRITE 0xFF210024 0x00640018", "READ 0xFF210024 0x00640018",
                            "WRITE 0xFF210024 0x8001FFFF"));
}

TEST_F(FrameCtrl, DpaResetAndFifoResetOverwriteEachOther) {
    EXPECT_THAT(accesses([&] {
                    core.setDPAReset(0xFFFFFFFF);
                    core.setDPAFifoReset(0xFFF);
                    EXPECT_EQ(core.readDPAReset(), 0U);
                    EXPECT_EQ(core.readDPAFifoReset(), 0xFFFU);
                    core.setDPAFifoReset(0xFFFFF123);
                    core.setDPAReset(0x123);
                    EXPECT_EQ(core.readDPAReset(), 0x123U);
                    EXPECT_EQ(core.readDPAFifoReset(), 0U);
                }),
                ElementsAre("WRITE 0xFF210028 0x00000FFF", "WRITE 0xFF210028 0x00FFF000",
                            "READ 0xFF210028 0x00FFF000", "READ 0xFF210028 0x00FFF000",
                            "WRITE 0xFF210028 0x00123000", "WRITE 0xFF210028 0x00000123",
                            "READ 0xFF210028 0x00000123", "READ 0xFF210028 0x00000123"));
}

TEST_F(FrameCtrl, DpaFieldsIgnoreTheUpperBits) {
    head().setFpgaWord(0xFF210028, 0xFFABC321);
    EXPECT_EQ(core.readDPAReset(), 0x321U);
    EXPECT_EQ(core.readDPAFifoReset(), 0xABCU);
}

TEST_F(FrameCtrl, DpaHoldWritesTwelveBitsAndReadsTheWholeWord) {
    EXPECT_THAT(accesses([&] { core.setDPAHold(0xFFFFF00F); }),
                ElementsAre("WRITE 0xFF21002C 0x0000000F"));
    head().setFpgaWord(0xFF21002C, 0x12345678);
    EXPECT_THAT(accesses([&] { EXPECT_EQ(core.readDPAHold(), 0x12345678U); }),
                ElementsAre("READ 0xFF21002C 0x12345678"));
}

TEST_F(FrameCtrl, DpaLockIsOneLoad) {
    EXPECT_THAT(accesses([&] { EXPECT_EQ(core.readDPALock(), 0U); }),
                ElementsAre("READ 0xFF210030 0x00000000"));
}

TEST_F(FrameCtrl, MarksPassThrough) {
    EXPECT_THAT(accesses([&] {
                    core.setIndexSync(0xFFFFFFFF);
                    core.setFrameTimestamp(0x89ABCDEF);
                }),
                ElementsAre("WRITE 0xFF210034 0xFFFFFFFF", "WRITE 0xFF210038 0x89ABCDEF"));
}

TEST_F(FrameCtrl, BackPorchIsInUnitsOfTwoAndSix) {
    EXPECT_THAT(accesses([&] {
                    core.setBackPorchConfig({9, 65}); // y 9 / 2 = 4, x 65 / 6 = 10
                    const auto config = core.readBackPorchConfig();
                    EXPECT_EQ(config.y, 8);
                    EXPECT_EQ(config.x, 60);
                    core.setBackPorchConfig({65535, 65535});
                }),
                ElementsAre("WRITE 0xFF21003C 0x0004000A", "READ 0xFF21003C 0x0004000A",
                            "WRITE 0xFF21003C 0x7FFF2AAA"));
}

TEST_F(FrameCtrl, ReadsKeepTheUpperBitsOfEachHalf) {
    head().setFpgaWord(0xFF210020, 0x9ABCDEF0);
    EXPECT_EQ(core.readResolutionConfig().H, 0x9ABC);
    EXPECT_EQ(core.readResolutionConfig().W, 0xDEF0);
    head().setFpgaWord(0xFF210024, 0x9ABCDEF0);
    EXPECT_EQ(core.readRoiConfig().y, 0x9ABC);
    EXPECT_EQ(core.readRoiConfig().x, 0xDEF0);
    head().setFpgaWord(0xFF21003C, 0xFFFFFFFF);
    EXPECT_EQ(core.readBackPorchConfig().y, 0xFFFE);
    EXPECT_EQ(core.readBackPorchConfig().x, 0xFFFA); // 0xFFFF x 6 = 0x5FFFA
}

TEST_F(FrameCtrl, IdentificationLiesBeyondTheSixtyFourWords) {
    head().setFpgaWord(0xFF210200, 0x11111111);
    head().setFpgaWord(0xFF210204, 0x22222222);
    head().setFpgaWord(0xFF210208, 0x33333333);
    EXPECT_THAT(accesses([&] {
                    EXPECT_EQ(core.readCoreId(), 0x11111111U);
                    EXPECT_EQ(core.readCoreRev(), 0x22222222U);
                    EXPECT_EQ(core.readCoreCaps(), 0x33333333U);
                }),
                ElementsAre("READ 0xFF210200 0x11111111", "READ 0xFF210204 0x22222222",
                            "READ 0xFF210208 0x33333333"));
}

TEST_F(FrameCtrl, DumpPrintsEveryRegisterLineByLine) {
    head().setFpgaWord(0xFF210000, 0x80000000);
    head().setFpgaWord(0xFF210008, 0x000005D9);
    head().setFpgaWord(0xFF210010, 0x0000ABCD);
    head().setFpgaWord(0xFF210014, 0x0000000F);
    head().setFpgaWord(0xFF210018, 0x040401B0);
    head().setFpgaWord(0xFF210020, 0x08080A20);
    head().setFpgaWord(0xFF210024, 0x00640018);
    head().setFpgaWord(0xFF210028, 0x00ABC123);
    head().setFpgaWord(0xFF21002C, 0x00000FFF);
    head().setFpgaWord(0xFF21003C, 0x0004000A);
    head().setFpgaWord(0xFF210200, 0x0000C0DE);
    head().setFpgaWord(0xFF210204, 0x00000010);
    head().setFpgaWord(0xFF210208, 0x0000000A);
    out().clear();
    std::cout << std::hex << std::showbase << std::uppercase;
    const auto before = std::cout.flags();
    const auto lines = accesses([&] { core.dumpRegisters(); });
    EXPECT_EQ(std::cout.flags(), (before & ~std::ios::hex) | std::ios::dec);
    std::cout.copyfmt(std::ios(nullptr));
    EXPECT_EQ(out().textWithFlushes(), "FPGA register dump\n<flush>"
                                       "Core enabled:\t1\n<flush>"
                                       "Core ID:\t0xc0de\n<flush>"
                                       "Core Rev:\t0x10\n<flush>"
                                       "Core Caps:\t0xa\n<flush>"
                                       "Status: Aligned 0 Locked 0 rgLocked 0 gbLocked 0\n<flush>"
                                       "Lane Inversion:\t0x5d9\n<flush>"
                                       "Irq Flags:\t0xabcd\n<flush>"
                                       "Irq Mask:\t0xf\n<flush>"
                                       "Roi Res Cnt Cfg:\tH: 2056 W: 2592\n<flush>"
                                       "Resol Cfg:\tH: 2056 W: 2592\n<flush>"
                                       "ROI Cfg:\tx: 24 y: 100\n<flush>"
                                       "BP Cfg:\tx: 60 y: 8\n<flush>"
                                       "DPA Reset:\t0x123\n<flush>"
                                       "DPA Fifo Reset:\t0xabc\n<flush>"
                                       "DPA Hold:\t0xfff\n<flush>"
                                       "DPA Lock:\t0x0\n<flush>");
    // One load a line; each flag of the status has a load of its own, and both parts of the DPA
    // resets are loaded from the one register that holds them.
    EXPECT_THAT(lines, ElementsAre("READ 0xFF210000 0x80000000", "READ 0xFF210200 0x0000C0DE",
                                   "READ 0xFF210204 0x00000010", "READ 0xFF210208 0x0000000A",
                                   "READ 0xFF210004 0x00000000", "READ 0xFF210004 0x00000000",
                                   "READ 0xFF210004 0x00000000", "READ 0xFF210004 0x00000000",
                                   "READ 0xFF210008 0x000005D9", "READ 0xFF210010 0x0000ABCD",
                                   "READ 0xFF210014 0x0000000F", "READ 0xFF210018 0x040401B0",
                                   "READ 0xFF210020 0x08080A20", "READ 0xFF210024 0x00640018",
                                   "READ 0xFF21003C 0x0004000A", "READ 0xFF210028 0x00ABC123",
                                   "READ 0xFF210028 0x00ABC123", "READ 0xFF21002C 0x00000FFF",
                                   "READ 0xFF210030 0x00000000"));
}

TEST_F(FrameCtrl, RecordsArePackedIntoOneWordFirstFieldLow) {
    static_assert(sizeof(tcCanon3U5MGXSFrameCtrl::tsResolutionConfig) == 4);
    static_assert(sizeof(tcCanon3U5MGXSFrameCtrl::tsRoiConfig) == 4);
    static_assert(sizeof(tcCanon3U5MGXSFrameCtrl::tsBackPorchConfig) == 4);
    static_assert(sizeof(tcCanon3U5MGXSFrameCtrl::tsCoreStatus) == 4);
    const tcCanon3U5MGXSFrameCtrl::tsResolutionConfig resolution{0x1234, 0x5678};
    EXPECT_EQ(std::bit_cast<std::uint32_t>(resolution), 0x56781234U);
    const tcCanon3U5MGXSFrameCtrl::tsRoiConfig roi{0x1234, 0x5678};
    EXPECT_EQ(std::bit_cast<std::uint32_t>(roi), 0x56781234U);
    const tcCanon3U5MGXSFrameCtrl::tsBackPorchConfig porch{0x1234, 0x5678};
    EXPECT_EQ(std::bit_cast<std::uint32_t>(porch), 0x56781234U);
    const tcCanon3U5MGXSFrameCtrl::tsCoreStatus status{
        .aligned = true, .locked = false, .rgLocked = true, .gbLocked = false};
    EXPECT_EQ(std::bit_cast<std::uint32_t>(status), 0x00010001U);
}

} // namespace
