// Addresses above 2 GiB as file offsets of both widths.

#include <cerrno>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <limits>
#include <sys/mman.h>
#include <unistd.h>

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

// What becomes of a mapping of registers with a file offset of 64 bits.
int errorOfMapping(off64_t offset, std::size_t length) {
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    void* const pages = mmap64(nullptr, length, PROT_READ, MAP_SHARED, memory, offset);
    const int error = pages == MAP_FAILED ? errno : 0;
    if (error == 0) {
        munmap(pages, length);
    }
    close(memory);
    return error;
}

// The lowest 32 bits of each are those of a register.
TEST(Mapper, IsRefusedAnOffsetThatIsNoAddress) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    EXPECT_EQ(errorOfMapping(-0xDF0000, 4096), EINVAL);
    EXPECT_EQ(errorOfMapping(0x1'FF21'0000, 4096), EINVAL);
    EXPECT_EQ(errorOfMapping(std::numeric_limits<off64_t>::min() + 0xFF21'0000, 4096), EINVAL);
    EXPECT_EQ(head.calls(sim::teCall::mmap, "/dev/mem"), 3U);
    EXPECT_THAT(linesOf(head),
                ElementsAre("OPEN /dev/mem",
                            "VIOLATION memory-range: a mapping of 4096 bytes at offset "
                            "0xFFFFFFFFFF210000, which is no address",
                            "CLOSE /dev/mem", "OPEN /dev/mem",
                            "VIOLATION memory-range: a mapping of 4096 bytes at offset "
                            "0x00000001FF210000, which is no address",
                            "CLOSE /dev/mem", "OPEN /dev/mem",
                            "VIOLATION memory-range: a mapping of 4096 bytes at offset "
                            "0x80000000FF210000, which is no address",
                            "CLOSE /dev/mem"));
}

TEST(Mapper, IsRefusedTheEndOfTheAddressesOnlyForWhatItIs) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    EXPECT_EQ(errorOfMapping(0xFFFF'F000, 4096), EPERM);  // somebody else's memory
    EXPECT_EQ(errorOfMapping(0xFFFF'F000, 4097), EINVAL); // there is nothing behind it
    EXPECT_EQ(errorOfMapping(0x1'0000'0000, 4096), EINVAL);
    EXPECT_EQ(head.lines(teEventKind::device)[1], "MAP 0xFFFFF000 4096 failed EPERM");
    EXPECT_EQ(head.lines(teEventKind::device)[4], "MAP 0xFFFFF000 4097 failed EINVAL");
    EXPECT_EQ(head.violationCount(), 3U);
}

// A file of 4 GiB with a word at the address and another one 2 GiB below, sparse.
class OrdinaryFile : public testing::Test {
protected:
    OrdinaryFile() : m_file(memfd_create("ordinary", 0)) {}
    ~OrdinaryFile() override { close(m_file); }
    void SetUp() override {
        const std::uint32_t there = 0x46435231;
        const std::uint32_t below = 0x0BAD0CAF;
        ASSERT_EQ(ftruncate64(m_file, 0x1'0000'0000), 0);
        ASSERT_EQ(pwrite64(m_file, &there, sizeof there, 0xFF21'0000), 4);
        ASSERT_EQ(pwrite64(m_file, &below, sizeof below, 0x7F21'0000), 4);
    }
    int m_file;
};

TEST_F(OrdinaryFile, IsMappedAsTheCLibraryDoesIt) {
    const auto head = sim::aVirtualHead().build();
    EXPECT_EQ(as_the_target_defaults::readWord(m_file, kFrameControl, 0).value, 0x46435231U);
    EXPECT_EQ(with_64_bits::readWord(m_file, kFrameControl, 0).value, 0x46435231U);
    EXPECT_EQ(as_the_target_defaults::readWord(m_file, 0x7F210000, 0).value, 0x0BAD0CAFU);
    EXPECT_EQ(mmap64(nullptr, 4096, PROT_READ, MAP_SHARED, m_file, -0xDF0000), MAP_FAILED);
    EXPECT_THAT(head.lines(), testing::IsEmpty());
}

TEST_F(OrdinaryFile, IsMappedAsTheCLibraryDoesItWithoutAHeadToo) {
    EXPECT_EQ(as_the_target_defaults::readWord(m_file, kFrameControl, 0).value, 0x46435231U);
    EXPECT_EQ(with_64_bits::readWord(m_file, kFrameControl, 0).value, 0x46435231U);
}

} // namespace
