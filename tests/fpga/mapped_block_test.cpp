// Mapping a register block: pages, lengths, failures.

#include <cerrno>

#include <unistd.h>

#include "fpga/mapped_block.h"
#include "tests/fpga/fpga_fixture.h"
#include "tests/fpga/page_size.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class MappedBlock : public tcFpgaFixture {};

TEST_F(MappedBlock, OpensMapsAndClosesInThatOrder) {
    EXPECT_THAT(trace([] {
                    const tsMappedBlock block(0xFF200000, 32);
                    EXPECT_TRUE(block.ok());
                }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 16384", "CLOSE /dev/mem",
                            "UNMAP 0xFF200000 4096"));
}

TEST_F(MappedBlock, RoundsBothBlockLengthsUpTo4096Words) {
    // 4096 words are 16384 bytes; unmapping passes the words as bytes and leaves three pages.
    EXPECT_THAT(trace([] { const tsMappedBlock block(0xFF204000, 512); }, sim::teEventKind::device),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF204000 16384", "CLOSE /dev/mem",
                            "UNMAP 0xFF204000 4096"));
}

TEST_F(MappedBlock, KeepsALengthOfWholePages) {
    EXPECT_THAT(
        trace([] { const tsMappedBlock block(0xFF200000, 8192); }, sim::teEventKind::device),
        ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 32768", "CLOSE /dev/mem",
                    "UNMAP 0xFF200000 8192"));
}

TEST_F(MappedBlock, StartsOnePageEarlyForABaseInsideAPage) {
    // (0xFF211204 - 4096) & ~4095 = 0xFF210000, 0x1204 bytes before the first register. The length
    // becomes 32 + 4096 = 4128 words, rounded up to 8192.
    std::vector<std::string> lines = trace([] {
        const tsMappedBlock block(0xFF211204, 32);
        EXPECT_EQ(block.read(0), 0x00010000U); // word 129 of the pulse generator: its revision
    });
    EXPECT_THAT(lines, ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 32768", "CLOSE /dev/mem",
                                   "READ 0xFF211204 0x00010000", "UNMAP 0xFF210000 8192"));
}

// A host without standard input has it free.
TEST_F(MappedBlock, MapsThroughDescriptor0LikeThroughAnyOther) {
    const int input = dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    EXPECT_THAT(trace([] {
                    const tsMappedBlock block(0xFF200000, 32);
                    EXPECT_TRUE(block.ok());
                }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 16384", "CLOSE /dev/mem",
                            "UNMAP 0xFF200000 4096"));
    EXPECT_EQ(err().text(), "");
    if (input >= 0) {
        dup2(input, STDIN_FILENO);
        ::close(input);
    }
}

TEST_F(MappedBlock, RoundsItsLengthUpToThePagesOfTheMachine) {
    const auto mapped = [&](int page) {
        const tcPageSize pages(page);
        return trace([] { const tsMappedBlock block(0xFF204000, 512); });
    };
    EXPECT_THAT(mapped(8192), ElementsAre("OPEN /dev/mem", "MAP 0xFF204000 32768", "CLOSE /dev/mem",
                                          "UNMAP 0xFF204000 8192"));
    EXPECT_THAT(mapped(16384), ElementsAre("OPEN /dev/mem", "MAP 0xFF204000 65536",
                                           "CLOSE /dev/mem", "UNMAP 0xFF204000 16384"));
}

TEST_F(MappedBlock, StartsEarlyByThePagesOfTheMachine) {
    // (0xFF204300 - 8192) & ~8191 = 0xFF202000, 0x2300 bytes before the first register. The length
    // becomes 32 + 8192 = 8224 words, rounded up to 16384.
    const tcPageSize pages(8192);
    EXPECT_THAT(trace([] {
                    const tsMappedBlock block(0xFF204300, 32);
                    EXPECT_EQ(block.read(0), 0x0F0FU); // word 192 of the clock generator
                }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF202000 65536", "CLOSE /dev/mem",
                            "READ 0xFF204300 0x00000F0F", "UNMAP 0xFF202000 16384"));
    // (0xFF205000 - 8192) & ~8191 = 0xFF202000
    EXPECT_THAT(trace([] { const tsMappedBlock block(0xFF205000, 32); }),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF202000 65536", "CLOSE /dev/mem",
                            "UNMAP 0xFF202000 16384"));
}

TEST_F(MappedBlock, ReportsAnUnavailableDeviceAndStaysUnmapped) {
    useHead(sim::aVirtualHead().withMemOpenFailing(EACCES));
    testing::internal::CaptureStderr();
    const auto lines = trace([] {
        const tsMappedBlock block(0xFF200000, 32);
        EXPECT_FALSE(block.ok());
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "/dev/mem: Permission denied\n");
    EXPECT_THAT(lines, ElementsAre("OPEN /dev/mem failed EACCES"));
}

TEST_F(MappedBlock, ReportsAFailedMappingAfterClosingTheDevice) {
    useHead(sim::aVirtualHead().withMapFailing(0xFF200000, EPERM));
    testing::internal::CaptureStderr();
    const auto lines = trace([] {
        const tsMappedBlock block(0xFF200000, 32);
        EXPECT_FALSE(block.ok());
    });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "mmap: Operation not permitted\n");
    EXPECT_THAT(
        lines, ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 16384 failed EPERM", "CLOSE /dev/mem"));
}

TEST_F(MappedBlock, ReadsAFieldWithOneLoadAndChangesItWithOneLoadAndOneStore) {
    tsMappedBlock block(0xFF210000, 64);
    head().setFpgaWord(0xFF210028, 0x00ABC123);
    const tsRegisterField upper{10, 12, 0xFFF, "", ""};
    EXPECT_THAT(trace([&] {
                    EXPECT_EQ(block.read(upper), 0xABCU);
                    block.modify(upper, 0xFFFF5678);
                }),
                ElementsAre("READ 0xFF210028 0x00ABC123", "READ 0xFF210028 0x00ABC123",
                            "WRITE 0xFF210028 0x00678123"));
}

} // namespace
