// What becomes of a negative file offset on its way to the kernel: no virtual head is in this
// program.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "tests/support/mapper.h"

namespace {

constexpr std::uint32_t kAddress = 0xFF210000;

/// 4 GiB with a word at `kAddress` and another one 2 GiB below, sparse.
class KernelOffset : public testing::Test {
protected:
    KernelOffset() : m_memory(memfd_create("physical", 0)) {}
    ~KernelOffset() override { close(m_memory); }
    void SetUp() override {
        ASSERT_GE(m_memory, 0);
        ASSERT_EQ(ftruncate64(m_memory, 0x100000000), 0);
        ASSERT_EQ(pwrite64(m_memory, &kThere, sizeof kThere, kAddress), 4);
        ASSERT_EQ(pwrite64(m_memory, &kBelow, sizeof kBelow, kAddress - 0x80000000), 4);
    }
    static constexpr std::uint32_t kThere = 0x46435231;
    static constexpr std::uint32_t kBelow = 0x0BAD0CAF;
    int m_memory;
};

TEST_F(KernelOffset, ReachesThePageAbove2GiBWithTheTargetsOwnFileOffsets) {
    const tsMapped mapped = as_the_target_defaults::readWord(m_memory, kAddress, 0);
    EXPECT_EQ(mapped.offsetBytes, sizeof(void*));
    EXPECT_EQ(mapped.error, 0);
    EXPECT_EQ(mapped.value, 0x46435231U);
}

TEST_F(KernelOffset, ReachesThePageAbove2GiBWithFileOffsetsOf64Bits) {
    const tsMapped mapped = with_64_bits::readWord(m_memory, kAddress, 0);
    EXPECT_EQ(mapped.offsetBytes, 8U);
    EXPECT_EQ(mapped.error, 0);
    EXPECT_EQ(mapped.value, 0x46435231U);
}

// The mistake that file offsets of 64 bits allow: an address that became a signed number first.
TEST_F(KernelOffset, OfANegativeNumberOf64BitsIsRefused) {
    void* const page = mmap64(nullptr, 4096, PROT_READ, MAP_SHARED, m_memory,
                              off64_t{static_cast<std::int32_t>(kAddress)});
    EXPECT_EQ(page, MAP_FAILED);
}

} // namespace
