// Every form of access that a compiler makes is seen as what it is.

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <vector>

#include "sim/virtual_head.h"
#include "tests/sim/boundary/access_forms.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kAccesses = teEventKind::read | teEventKind::write;

struct tsForms {
    const char* name;
    decltype(&plain::load) load;
    decltype(&plain::store) store;
    decltype(&plain::storeConstant) storeConstant;
    decltype(&plain::loadIndexed) loadIndexed;
    decltype(&plain::storeIndexed) storeIndexed;
    decltype(&plain::setBits) setBits;
    decltype(&plain::clearBits) clearBits;
    decltype(&plain::increment) increment;
    decltype(&plain::testBit) testBit;
    decltype(&plain::isEqual) isEqual;
    decltype(&plain::highHalf) highHalf;
    decltype(&plain::asSigned64) asSigned64;
    decltype(&plain::asDouble) asDouble;
    decltype(&plain::asFloat) asFloat;
    decltype(&plain::sumOf) sumOf;
    decltype(&plain::product) product;
    decltype(&plain::larger) larger;
    decltype(&plain::copyWords) copyWords;
    decltype(&plain::loadByte) loadByte;
    decltype(&plain::loadHalf) loadHalf;
    decltype(&plain::loadDouble) loadDouble;
    decltype(&plain::storeByte) storeByte;
};

#define FORMS_OF(level)                                                                            \
    tsForms {                                                                                      \
#level, level::load, level::store, level::storeConstant, level::loadIndexed,               \
            level::storeIndexed, level::setBits, level::clearBits, level::increment,               \
            level::testBit, level::isEqual, level::highHalf, level::asSigned64, level::asDouble,   \
            level::asFloat, level::sumOf, level::product, level::larger, level::copyWords,         \
            level::loadByte, level::loadHalf, level::loadDouble, level::storeByte                  \
    }

void PrintTo(const tsForms& forms, std::ostream* stream) {
    *stream << forms.name;
}

// The table of defective pixels: 1,024 words that keep what is written.
class AccessForms : public testing::TestWithParam<tsForms> {
protected:
    sim::tcVirtualHead m_head = sim::aVirtualHead().withQuietViolations().build();
    tcRegisters m_table{0xFF213000, 4096};

    volatile std::uint32_t* words() { return m_table.words(); }
    std::vector<std::string> accesses() { return m_head.lines(kAccesses); }
    void setWord(std::uint32_t word, std::uint32_t value) {
        m_head.setFpgaWord(0xFF213000 + 4 * word, value);
    }
};

TEST_P(AccessForms, LoadAndStore) {
    setWord(0, 0xCAFEBABE);
    EXPECT_EQ(GetParam().load(words()), 0xCAFEBABE);
    GetParam().store(words() + 1, 0x12345678);
    GetParam().storeConstant(words() + 2);
    EXPECT_THAT(accesses(), ElementsAre("READ 0xFF213000 0xCAFEBABE", "WRITE 0xFF213004 0x12345678",
                                        "WRITE 0xFF213008 0x89ABCDEF"));
    EXPECT_EQ(m_head.fpgaWord(0xFF213008), 0x89ABCDEF);
}

TEST_P(AccessForms, Indexed) {
    setWord(1000, 7);
    EXPECT_EQ(GetParam().loadIndexed(words(), 1000), 7U);
    GetParam().storeIndexed(words(), 1001, 8);
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213FA0 0x00000007", "WRITE 0xFF213FA4 0x00000008"));
}

TEST_P(AccessForms, ReadModifyWriteIsOneLoadAndOneStore) {
    setWord(0, 0xF0);
    GetParam().setBits(words(), 0x0F);
    GetParam().clearBits(words(), 0xF0);
    GetParam().increment(words());
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x000000F0", "WRITE 0xFF213000 0x000000FF",
                            "READ 0xFF213000 0x000000FF", "WRITE 0xFF213000 0x0000000F",
                            "READ 0xFF213000 0x0000000F", "WRITE 0xFF213000 0x00000010"));
}

TEST_P(AccessForms, Comparisons) {
    setWord(0, 0x80000001);
    EXPECT_TRUE(GetParam().testBit(words(), 31));
    EXPECT_FALSE(GetParam().testBit(words(), 30));
    EXPECT_TRUE(GetParam().isEqual(words(), 0x80000001));
    EXPECT_FALSE(GetParam().isEqual(words(), 0x80000000));
    EXPECT_EQ(accesses(), std::vector<std::string>(4, "READ 0xFF213000 0x80000001"));
}

TEST_P(AccessForms, Conversions) {
    setWord(0, 0xFFFFFFFE);
    const volatile void* start = words();
    const auto* asInt = static_cast<const volatile std::int32_t*>(start);
    EXPECT_EQ(GetParam().highHalf(words()), 0xFFFFU);
    EXPECT_EQ(GetParam().asSigned64(asInt), -2);
    EXPECT_EQ(GetParam().asDouble(words()), 4294967294.0);
    EXPECT_EQ(GetParam().asFloat(asInt), -2.0F);
    EXPECT_EQ(accesses(), std::vector<std::string>(4, "READ 0xFF213000 0xFFFFFFFE"));
}

TEST_P(AccessForms, Arithmetic) {
    setWord(0, 3);
    setWord(1, 5);
    setWord(2, 4000000000);
    EXPECT_EQ(GetParam().sumOf(words(), 3), 4000000008U);
    EXPECT_EQ(GetParam().product(words() + 1, 7), 35U);
    EXPECT_EQ(GetParam().larger(words(), words() + 1), 5U);
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000003", "READ 0xFF213004 0x00000005",
                            "READ 0xFF213008 0xEE6B2800", "READ 0xFF213004 0x00000005",
                            "READ 0xFF213000 0x00000003", "READ 0xFF213004 0x00000005"));
}

TEST_P(AccessForms, CopyingAlternatesLoadsAndStores) {
    setWord(0, 1);
    setWord(1, 2);
    GetParam().copyWords(words() + 8, words(), 2);
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000001", "WRITE 0xFF213020 0x00000001",
                            "READ 0xFF213004 0x00000002", "WRITE 0xFF213024 0x00000002"));
}

TEST_P(AccessForms, OtherWidthsAreViolations) {
    volatile void* start = words();
    EXPECT_EQ(GetParam().loadByte(static_cast<volatile std::uint8_t*>(start)), 0xEF);
    EXPECT_EQ(GetParam().loadHalf(static_cast<volatile std::uint16_t*>(start)), 0xBEEF);
    if (sizeof(void*) == 8) { // 32-bit targets load two words, and may
        GetParam().loadDouble(static_cast<volatile std::uint64_t*>(start));
    }
    GetParam().storeByte(static_cast<volatile std::uint8_t*>(start), 0x55);
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), 0U);
    ASSERT_GE(m_head.violations().size(), 3U);
    EXPECT_EQ(m_head.violations()[0].rule, "fpga-width");
    EXPECT_EQ(m_head.violations()[0].text, "a load of 1 bytes at 0xFF213000");
    EXPECT_EQ(m_head.violations()[1].text, "a load of 2 bytes at 0xFF213000");
    EXPECT_EQ(m_head.violations().back().text, "a store of 1 bytes at 0xFF213000");
}

INSTANTIATE_TEST_SUITE_P(BothLevels, AccessForms,
                         testing::Values(FORMS_OF(plain), FORMS_OF(optimized)),
                         [](const auto& tested) { return std::string(tested.param.name); });

#if defined(__x86_64__)

// Instructions with a memory operand that GCC does not use for volatile objects, but others do.
class MemoryOperand : public testing::Test {
protected:
    sim::tcVirtualHead m_head = sim::aVirtualHead().withQuietViolations().build();
    tcRegisters m_table{0xFF213000, 4096};
    volatile std::uint32_t* m_word = m_table.words();

    void holds(std::uint32_t value) {
        m_head.setFpgaWord(0xFF213000, value);
        m_head.clearLog();
    }
    std::vector<std::string> accesses() { return m_head.lines(kAccesses); }
};

TEST_F(MemoryOperand, OrWithAConstantReadsAndWrites) {
    holds(0x100);
    asm volatile("orl $0x80000000, %0" : "+m"(*m_word) : : "cc");
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000100", "WRITE 0xFF213000 0x80000100"));
}

TEST_F(MemoryOperand, OrWithAByteConstantReadsAndWrites) {
    holds(0x100);
    asm volatile("orl $1, %0" : "+m"(*m_word) : : "cc");
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000100", "WRITE 0xFF213000 0x00000101"));
}

TEST_F(MemoryOperand, AddFromARegisterReadsAndWrites) {
    holds(40);
    asm volatile("addl %1, %0" : "+m"(*m_word) : "r"(2U) : "cc");
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000028", "WRITE 0xFF213000 0x0000002A"));
}

TEST_F(MemoryOperand, LockedAddReadsAndWrites) {
    holds(40);
    asm volatile("lock addl $2, %0" : "+m"(*m_word) : : "cc");
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000028", "WRITE 0xFF213000 0x0000002A"));
}

TEST_F(MemoryOperand, AddToARegisterReads) {
    holds(40);
    std::uint32_t sum = 2;
    asm volatile("addl %1, %0" : "+r"(sum) : "m"(*m_word) : "cc");
    EXPECT_EQ(sum, 42U);
    EXPECT_THAT(accesses(), ElementsAre("READ 0xFF213000 0x00000028"));
}

TEST_F(MemoryOperand, CompareAndTestReadAndSetTheFlags) {
    holds(0x10);
    bool equal = false;
    bool set = false;
    asm volatile("cmpl $0x10, %1" : "=@cce"(equal) : "m"(*m_word));
    asm volatile("testl $0x10, %1" : "=@ccne"(set) : "m"(*m_word));
    EXPECT_TRUE(equal);
    EXPECT_TRUE(set);
    asm volatile("testb $0x0F, %1" : "=@ccne"(set) : "m"(*m_word));
    EXPECT_TRUE(set); // of the byte 0xEF that stands for a wrong width
    EXPECT_EQ(m_head.violations().size(), 1U);
    EXPECT_THAT(accesses(), ElementsAre("READ 0xFF213000 0x00000010", "READ 0xFF213000 0x00000010",
                                        "READ 0xFF213000 0xDEADBEEF"));
}

TEST_F(MemoryOperand, IncrementNegateAndShiftReadAndWrite) {
    holds(5);
    asm volatile("incl %0" : "+m"(*m_word) : : "cc");
    asm volatile("negl %0" : "+m"(*m_word) : : "cc");
    asm volatile("shll $4, %0" : "+m"(*m_word) : : "cc");
    asm volatile("shrl %%cl, %0" : "+m"(*m_word) : "c"(8) : "cc");
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), 0x00FFFFFFU);
    EXPECT_EQ(accesses().size(), 8U);
}

TEST_F(MemoryOperand, ExchangeReadsAndWrites) {
    holds(7);
    std::uint32_t value = 9;
    asm volatile("xchgl %0, %1" : "+r"(value), "+m"(*m_word));
    EXPECT_EQ(value, 7U);
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x00000007", "WRITE 0xFF213000 0x00000009"));
}

TEST_F(MemoryOperand, CompareAndExchangeUsesTheAccumulator) {
    holds(7);
    std::uint32_t expected = 7;
    bool done = false;
    asm volatile("lock cmpxchgl %3, %1" : "+a"(expected), "+m"(*m_word), "=@cce"(done) : "r"(11U));
    EXPECT_TRUE(done);
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), 11U);
}

TEST_F(MemoryOperand, ConditionalMoveMultiplyAndCountRead) {
    holds(6);
    std::uint32_t moved = 1;
    std::uint32_t product = 0;
    std::uint32_t bit = 0;
    asm volatile("cmpl %%eax, %%eax\n\tcmovel %1, %0" : "+r"(moved) : "m"(*m_word) : "cc");
    asm volatile("imull $1000, %1, %0" : "=r"(product) : "m"(*m_word) : "cc");
    asm volatile("bsfl %1, %0" : "=r"(bit) : "m"(*m_word) : "cc");
    EXPECT_EQ(moved, 6U);
    EXPECT_EQ(product, 6000U);
    EXPECT_EQ(bit, 1U);
}

TEST_F(MemoryOperand, DivideUsesItsFixedRegisters) {
    holds(10);
    std::uint32_t quotient = 105;
    std::uint32_t rest = 0;
    asm volatile("divl %2" : "+a"(quotient), "+d"(rest) : "m"(*m_word) : "cc");
    EXPECT_EQ(quotient, 10U);
    EXPECT_EQ(rest, 5U);
}

TEST_F(MemoryOperand, MovesThroughVectorRegisters) {
    holds(0x3F800000);
    float loaded = 0;
    double converted = 0;
    asm volatile("movss %1, %0" : "=x"(loaded) : "m"(*m_word));
    asm volatile("cvtsi2sdl %1, %0" : "=x"(converted) : "m"(*m_word));
    EXPECT_EQ(loaded, 1.0F);
    EXPECT_EQ(converted, 1065353216.0);
    asm volatile("movss %1, %0" : "=m"(*m_word) : "x"(2.0F));
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), 0x40000000U);
    EXPECT_THAT(m_head.violations(), IsEmpty());
}

TEST_F(MemoryOperand, MovesOfVectorRegistersBits) {
    holds(0x3F800000);
    std::uint64_t low = 0;
    asm volatile("movd %1, %%xmm7\n\tmovq %%xmm7, %0" : "=r"(low) : "m"(*m_word) : "xmm7");
    EXPECT_EQ(low, 0x3F800000U);
    asm volatile("movd %1, %%xmm7\n\tmovd %%xmm7, %0" : "=m"(*m_word) : "r"(0x89U) : "xmm7");
    EXPECT_THAT(accesses(),
                ElementsAre("READ 0xFF213000 0x3F800000", "WRITE 0xFF213000 0x00000089"));
}

// A REX.W prefix outweighs the one for 16 bits, which assemblers leave there as padding.
TEST_F(MemoryOperand, AWideConstantKeepsItsLengthBehindTwoSizePrefixes) {
    std::uint64_t expected = 0;
    std::uint64_t product = 0;
    bool equal = false;
    asm volatile("imulq $0x01234567, %1, %0" : "=r"(expected) : "m"(*m_word) : "cc");
    asm volatile(".byte 0x66\n\timulq $0x01234567, (%1), %0"
                 : "=r"(product)
                 : "r"(m_word)
                 : "memory", "cc");
    asm volatile(".byte 0x66\n\tcmpq $0x01234567, (%1)" : "=@cce"(equal) : "r"(m_word) : "memory");
    EXPECT_EQ(product, expected);
    EXPECT_FALSE(equal);
    EXPECT_EQ(m_head.violations().size(), 3U); // loads of 8 bytes
}

TEST_F(MemoryOperand, TheStoredRegisterMayBeTheBase) {
    const auto low = static_cast<std::uint32_t>(std::uintptr_t(m_word) & 0xFFFFFFFF);
    asm volatile("mov %0, %%rax\n\tmovl %%eax, (%%rax)" : : "r"(m_word) : "rax", "memory");
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), low);
    holds(1);
    asm volatile("mov %0, %%rbx\n\taddl %%ebx, (%%rbx)" : : "r"(m_word) : "rbx", "memory", "cc");
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), low + 1);
    holds(1);
    asm volatile("mov %0, %%rsi\n\txorl %%esi, (%%rsi)" : : "r"(m_word) : "rsi", "memory", "cc");
    EXPECT_EQ(m_head.fpgaWord(0xFF213000), low ^ 1);
}

TEST_F(MemoryOperand, AnyBaseAndIndexRegister) {
    m_head.setFpgaWord(0xFF213040, 0x77);
    std::uint32_t viaIndex = 0;
    std::uint32_t viaHigh = 0;
    std::uint32_t viaStack = 0;
    asm volatile("movl -64(%1,%2,4), %0" : "=r"(viaIndex) : "r"(m_word), "r"(std::size_t{32}));
    asm volatile("mov %1, %%r13\n\tmovl 64(%%r13), %%r12d\n\tmovl %%r12d, %0"
                 : "=r"(viaHigh)
                 : "r"(m_word)
                 : "r12", "r13");
    asm volatile("mov %1, %%r12\n\torl 64(%%r12), %%r15d\n\txorl %%r15d, %%r15d\n\t"
                 "addl 64(%%r12), %%r15d\n\tmovl %%r15d, %0"
                 : "=r"(viaStack)
                 : "r"(m_word)
                 : "r12", "r15", "cc");
    EXPECT_EQ(viaIndex, 0x77U);
    EXPECT_EQ(viaHigh, 0x77U);
    EXPECT_EQ(viaStack, 0x77U);
}

TEST_F(MemoryOperand, NarrowLoadsKeepTheRestOfTheRegister) {
    std::uint64_t value = 0x1111111111111111;
    asm volatile("movb %1, %%ah" : "+a"(value) : "m"(*m_word));
    EXPECT_EQ(value, 0x111111111111EF11U);
    asm volatile("movw %1, %%ax" : "+a"(value) : "m"(*m_word));
    EXPECT_EQ(value, 0x111111111111BEEFU);
    asm volatile("movl %1, %%eax" : "+a"(value) : "m"(*m_word));
    EXPECT_EQ(value, 0U); // 32 bits clear the upper half
}

TEST_F(MemoryOperand, AnInstructionThatCannotBeDecodedStopsTheProgram) {
    EXPECT_DEATH(asm volatile("rep stosl"
                              :
                              : "D"(m_word), "c"(1), "a"(0)
                              : "memory"),
                 "virtual head: cannot decode the access to register 0xFF213000 .* bytes F3 AB");
}

// A function up to the last byte of a page, with an inaccessible page behind it.
class tcLastCode {
public:
    explicit tcLastCode(const std::vector<std::uint8_t>& code)
        : m_pages(mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE | PROT_EXEC,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        auto* end = static_cast<std::uint8_t*>(m_pages) + kPage;
        mprotect(end, kPage, PROT_NONE);
        const void* start = std::copy_backward(code.begin(), code.end(), end);
        std::memcpy(&m_function, &start, sizeof start);
    }
    tcLastCode(const tcLastCode&) = delete;
    tcLastCode& operator=(const tcLastCode&) = delete;
    ~tcLastCode() { munmap(m_pages, 2 * kPage); }
    // RDI holds the address, EAX the result. Clang would look for the function's type before its
    // code.
#ifdef __clang__
    __attribute__((no_sanitize("function")))
#endif
    std::uint32_t
    operator()(volatile std::uint32_t* word) const {
        return m_function(word);
    }

private:
    static constexpr std::size_t kPage = 4096;
    void* m_pages;
    std::uint32_t (*m_function)(volatile std::uint32_t*) = nullptr;
};

TEST_F(MemoryOperand, NothingNeedLieBehindTheInstruction) {
    holds(0x77);
    EXPECT_EQ(tcLastCode({0x8B, 0x07, 0xC3})(m_word), 0x77U);                 // MOV, RET
    EXPECT_EQ(tcLastCode({0x31, 0xC0, 0x0B, 0x07, 0xC3})(m_word), 0x77U);     // XOR, OR, RET
    EXPECT_EQ(tcLastCode({0x69, 0x07, 2, 0, 0, 0, 0xC3})(m_word), 2U * 0x77); // IMUL, RET
}

TEST_F(MemoryOperand, TheBytesOfARefusedInstructionEndWithItsPage) {
    const tcLastCode code({0xFF, 0x37}); // PUSH
    EXPECT_DEATH(code(m_word), "cannot decode the access .* bytes FF 37\n");
}

TEST_F(MemoryOperand, ALoadOfTwoWordsIsNotTakenForAStore) {
    EXPECT_DEATH(asm volatile(".byte 0x66, 0xF3, 0x0F, 0x7E, 0x00" // MOVQ XMM0, [RAX]
                              :
                              : "a"(m_word)
                              : "xmm0", "memory"),
                 "cannot decode the access to register 0xFF213000 .* bytes 66 F3 0F 7E 00");
}

#endif

} // namespace
