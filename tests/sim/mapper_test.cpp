// Addresses above 2 GiB as file offsets of both widths.

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/support/mapper.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;

// The identification of the frame-control core: word 128 of its block.
constexpr std::uint32_t kFrameControl = 0xFF210000;

std::vector<std::string> linesOf(const sim::tcVirtualHead& head) {
    return head.lines(teEventKind::device | teEventKind::read | teEventKind::violation);
}

TEST(Mapper, ReachesAddressesAbove2GiBWithTheTargetsOwnFileOffsets) {
    const auto head = sim::aVirtualHead().build();
    const tsMapped mapped = as_the_target_defaults::readRegister(kFrameControl, 128);
    EXPECT_EQ(mapped.offsetBytes, sizeof(void*)); // 32 bits on ARM: the offset is -0xDF0000
    EXPECT_EQ(mapped.error, 0);
    EXPECT_EQ(mapped.value, 0x46435231U);
    EXPECT_THAT(linesOf(head),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 4096", "READ 0xFF210200 0x46435231",
                            "UNMAP 0xFF210000 4096", "CLOSE /dev/mem"));
}

TEST(Mapper, ReachesAddressesAbove2GiBWithFileOffsetsOf64Bits) {
    const auto head = sim::aVirtualHead().build();
    const tsMapped mapped = with_64_bits::readRegister(kFrameControl, 128);
    EXPECT_EQ(mapped.offsetBytes, 8U);
    EXPECT_EQ(mapped.error, 0);
    EXPECT_EQ(mapped.value, 0x46435231U);
    EXPECT_THAT(linesOf(head),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF210000 4096", "READ 0xFF210200 0x46435231",
                            "UNMAP 0xFF210000 4096", "CLOSE /dev/mem"));
}

TEST(Mapper, IsRefusedBelowTheRegistersWithEitherWidth) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    EXPECT_EQ(as_the_target_defaults::readRegister(0x7F210000, 128).error, EPERM);
    EXPECT_EQ(with_64_bits::readRegister(0x7F210000, 128).error, EPERM);
    EXPECT_EQ(head.lines(teEventKind::device)[1], "MAP 0x7F210000 4096 failed EPERM");
    EXPECT_EQ(head.lines(teEventKind::device)[4], "MAP 0x7F210000 4096 failed EPERM");
}

} // namespace
