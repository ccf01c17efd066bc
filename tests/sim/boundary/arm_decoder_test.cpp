// Loads and stores of ARM code, on any host. The bytes are what an assembler makes of the text.

#include <array>
#include <cctype>
#include <gmock/gmock.h>
#include <map>

#include "sim/boundary/arm_decoder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kThumb = 0x20;

// Every load gives 0xF0E1D2C3, cut to its width.
class tcRecordingBus : public sim::tcArmBus {
public:
    std::uint32_t load(std::uint32_t address, unsigned width) override {
        m_accesses.push_back("load " + std::to_string(width) + " at " + std::to_string(address));
        return 0xF0E1D2C3;
    }
    void store(std::uint32_t address, unsigned width, std::uint32_t value) override {
        m_accesses.push_back("store " + std::to_string(width) + " at " + std::to_string(address) +
                             ": " + std::to_string(value));
    }
    std::vector<std::string> m_accesses;
};

struct tsCase {
    const char* text;
    std::uint32_t status;
    std::array<std::uint8_t, 4> code;
    std::vector<std::string> accesses;
    std::map<std::size_t, std::uint32_t> changed; // registers
    unsigned length;                              // bytes
};

void PrintTo(const tsCase& tested, std::ostream* stream) {
    *stream << tested.text;
}

// R0 is 0, R1 is 1000, R2 is 2000, and so on.
sim::tsArmState initialState(std::uint32_t status, std::uint32_t* singles) {
    sim::tsArmState state;
    for (std::uint32_t at = 0; at < 16; ++at) {
        state.registers[at] = 1000 * at;
    }
    state.status = status;
    state.singles = singles;
    return state;
}

class ArmInstruction : public testing::TestWithParam<tsCase> {};

TEST_P(ArmInstruction, IsCarriedOut) {
    const tsCase& tested = GetParam();
    std::array<std::uint32_t, 32> singles{};
    sim::tsArmState state = initialState(tested.status, singles.data());
    const sim::tsArmState before = state;
    tcRecordingBus bus;
    ASSERT_TRUE(sim::emulateArm(state, tested.code, bus));
    EXPECT_EQ(bus.m_accesses, tested.accesses);
    EXPECT_EQ(state.registers[15], before.registers[15] + tested.length);
    std::map<std::size_t, std::uint32_t> changed;
    for (std::size_t at = 0; at < 15; ++at) {
        if (state.registers[at] != before.registers[at]) {
            changed[at] = state.registers[at];
        }
    }
    EXPECT_EQ(changed, tested.changed);
}

constexpr std::uint32_t kWord = 0xF0E1D2C3;

const std::vector<tsCase> kA32{
    {"ldr r0, [r1]", 0, {0x00, 0x00, 0x91, 0xe5}, {"load 4 at 1000"}, {{0, kWord}}, 4},
    {"ldr r0, [r1, #8]", 0, {0x08, 0x00, 0x91, 0xe5}, {"load 4 at 1008"}, {{0, kWord}}, 4},
    {"ldrne r0, [r1]", 0, {0x00, 0x00, 0x91, 0x15}, {"load 4 at 1000"}, {{0, kWord}}, 4},
    {"str r2, [r3, #-4]", 0, {0x04, 0x20, 0x03, 0xe5}, {"store 4 at 2996: 2000"}, {}, 4},
    {"ldr r0, [r1], #4",
     0,
     {0x04, 0x00, 0x91, 0xe4},
     {"load 4 at 1000"},
     {{0, kWord}, {1, 1004}},
     4},
    {"str r0, [r1, #4]!", 0, {0x04, 0x00, 0xa1, 0xe5}, {"store 4 at 1004: 0"}, {{1, 1004}}, 4},
    {"ldr r4, [r5, r6, lsl #2]", 0, {0x06, 0x41, 0x95, 0xe7}, {"load 4 at 29000"}, {{4, kWord}}, 4},
    {"ldr r0, [r1, r2, lsr #4]", 0, {0x22, 0x02, 0x91, 0xe7}, {"load 4 at 1125"}, {{0, kWord}}, 4},
    {"ldr r0, [r1, r2, asr #4]", 0, {0x42, 0x02, 0x91, 0xe7}, {"load 4 at 1125"}, {{0, kWord}}, 4},
    {"ldr r0, [r1, r2, ror #8]",
     0,
     {0x62, 0x04, 0x91, 0xe7},
     {"load 4 at 3489661935"},
     {{0, kWord}},
     4},
    {"str r4, [r5, -r6]", 0, {0x06, 0x40, 0x05, 0xe7}, {"store 4 at 4294966296: 4000"}, {}, 4},
    {"ldrb r0, [r1, #1]", 0, {0x01, 0x00, 0xd1, 0xe5}, {"load 1 at 1001"}, {{0, 0xC3}}, 4},
    {"strb r0, [r1]", 0, {0x00, 0x00, 0xc1, 0xe5}, {"store 1 at 1000: 0"}, {}, 4},
    {"ldrh r0, [r1, #2]", 0, {0xb2, 0x00, 0xd1, 0xe1}, {"load 2 at 1002"}, {{0, 0xD2C3}}, 4},
    {"ldrsh r0, [r1]", 0, {0xf0, 0x00, 0xd1, 0xe1}, {"load 2 at 1000"}, {{0, 0xFFFFD2C3}}, 4},
    {"ldrsb r0, [r1, #-1]", 0, {0xd1, 0x00, 0x51, 0xe1}, {"load 1 at 999"}, {{0, 0xFFFFFFC3}}, 4},
    {"strh r7, [r8, r9]", 0, {0xb9, 0x70, 0x88, 0xe1}, {"store 2 at 17000: 7000"}, {}, 4},
    {"ldrd r2, r3, [r4, #8]",
     0,
     {0xd8, 0x20, 0xc4, 0xe1},
     {"load 4 at 4008", "load 4 at 4012"},
     {{2, kWord}, {3, kWord}},
     4},
    {"strd r2, r3, [r4], #8",
     0,
     {0xf8, 0x20, 0xc4, 0xe0},
     {"store 4 at 4000: 2000", "store 4 at 4004: 3000"},
     {{4, 4008}},
     4},
    {"ldmia r0!, {r1, r2, r3}",
     0,
     {0x0e, 0x00, 0xb0, 0xe8},
     {"load 4 at 0", "load 4 at 4", "load 4 at 8"},
     {{0, 12}, {1, kWord}, {2, kWord}, {3, kWord}},
     4},
    {"stmdb r0!, {r1, r2}",
     0,
     {0x06, 0x00, 0x20, 0xe9},
     {"store 4 at 4294967288: 1000", "store 4 at 4294967292: 2000"},
     {{0, 4294967288}},
     4},
    {"ldmib r0, {r4, r5}",
     0,
     {0x30, 0x00, 0x90, 0xe9},
     {"load 4 at 4", "load 4 at 8"},
     {{4, kWord}, {5, kWord}},
     4},
    {"stmda r0, {r4, r5}",
     0,
     {0x30, 0x00, 0x00, 0xe8},
     {"store 4 at 4294967292: 4000", "store 4 at 0: 5000"},
     {},
     4},
    {"vldr s15, [r3, #4]", 0, {0x01, 0x7a, 0xd3, 0xed}, {"load 4 at 3004"}, {}, 4},
    {"vstr s2, [r3, #-8]", 0, {0x02, 0x1a, 0x03, 0xed}, {"store 4 at 2992: 0"}, {}, 4},
};

const std::vector<tsCase> kThumb2{
    {"ldr r0, [r1]", kThumb, {0x08, 0x68}, {"load 4 at 1000"}, {{0, kWord}}, 2},
    {"str r2, [r3, #124]", kThumb, {0xda, 0x67}, {"store 4 at 3124: 2000"}, {}, 2},
    {"ldrb r0, [r1, #3]", kThumb, {0xc8, 0x78}, {"load 1 at 1003"}, {{0, 0xC3}}, 2},
    {"strb r0, [r1, #31]", kThumb, {0xc8, 0x77}, {"store 1 at 1031: 0"}, {}, 2},
    {"ldrh r0, [r1, #6]", kThumb, {0xc8, 0x88}, {"load 2 at 1006"}, {{0, 0xD2C3}}, 2},
    {"strh r0, [r1]", kThumb, {0x08, 0x80}, {"store 2 at 1000: 0"}, {}, 2},
    {"ldr r4, [r5, r6]", kThumb, {0xac, 0x59}, {"load 4 at 11000"}, {{4, kWord}}, 2},
    {"str r4, [r5, r6]", kThumb, {0xac, 0x51}, {"store 4 at 11000: 4000"}, {}, 2},
    {"ldrsh r0, [r1, r2]", kThumb, {0x88, 0x5e}, {"load 2 at 3000"}, {{0, 0xFFFFD2C3}}, 2},
    {"ldrsb r0, [r1, r2]", kThumb, {0x88, 0x56}, {"load 1 at 3000"}, {{0, 0xFFFFFFC3}}, 2},
    {"ldr r3, [sp, #8]", kThumb, {0x02, 0x9b}, {"load 4 at 13008"}, {{3, kWord}}, 2},
    {"stmia r0!, {r1, r2}",
     kThumb,
     {0x06, 0xc0},
     {"store 4 at 0: 1000", "store 4 at 4: 2000"},
     {{0, 8}},
     2},
    {"ldmia r0!, {r1, r2}",
     kThumb,
     {0x06, 0xc8},
     {"load 4 at 0", "load 4 at 4"},
     {{0, 8}, {1, kWord}, {2, kWord}},
     2},
    {"ldmia r0, {r0, r1}",
     kThumb,
     {0x03, 0xc8},
     {"load 4 at 0", "load 4 at 4"},
     {{0, kWord}, {1, kWord}},
     2},
    {"ldr.w r8, [r9, #512]", kThumb, {0xd9, 0xf8, 0x00, 0x82}, {"load 4 at 9512"}, {{8, kWord}}, 4},
    {"ldr.w r8, [r9], #4",
     kThumb,
     {0x59, 0xf8, 0x04, 0x8b},
     {"load 4 at 9000"},
     {{8, kWord}, {9, 9004}},
     4},
    {"str.w r8, [r9, #-8]!",
     kThumb,
     {0x49, 0xf8, 0x08, 0x8d},
     {"store 4 at 8992: 8000"},
     {{9, 8992}},
     4},
    {"ldr.w r8, [r9, r10, lsl #2]",
     kThumb,
     {0x59, 0xf8, 0x2a, 0x80},
     {"load 4 at 49000"},
     {{8, kWord}},
     4},
    {"ldrb.w r8, [r9]", kThumb, {0x99, 0xf8, 0x00, 0x80}, {"load 1 at 9000"}, {{8, 0xC3}}, 4},
    {"ldrsb.w r8, [r9, #1]",
     kThumb,
     {0x99, 0xf9, 0x01, 0x80},
     {"load 1 at 9001"},
     {{8, 0xFFFFFFC3}},
     4},
    {"ldrh.w r8, [r9, #2]", kThumb, {0xb9, 0xf8, 0x02, 0x80}, {"load 2 at 9002"}, {{8, 0xD2C3}}, 4},
    {"ldrsh.w r8, [r9, #2]",
     kThumb,
     {0xb9, 0xf9, 0x02, 0x80},
     {"load 2 at 9002"},
     {{8, 0xFFFFD2C3}},
     4},
    {"ldrd r8, r9, [r10, #16]",
     kThumb,
     {0xda, 0xe9, 0x04, 0x89},
     {"load 4 at 10016", "load 4 at 10020"},
     {{8, kWord}, {9, kWord}},
     4},
    {"strd r8, r9, [r10, #-16]!",
     kThumb,
     {0x6a, 0xe9, 0x04, 0x89},
     {"store 4 at 9984: 8000", "store 4 at 9988: 9000"},
     {{10, 9984}},
     4},
    {"ldmia.w r8!, {r1, r2}",
     kThumb,
     {0xb8, 0xe8, 0x06, 0x00},
     {"load 4 at 8000", "load 4 at 8004"},
     {{1, kWord}, {2, kWord}, {8, 8008}},
     4},
    {"stmdb r8!, {r1, r2}",
     kThumb,
     {0x28, 0xe9, 0x06, 0x00},
     {"store 4 at 7992: 1000", "store 4 at 7996: 2000"},
     {{8, 7992}},
     4},
    {"vldr s15, [r3, #4]", kThumb, {0xd3, 0xed, 0x01, 0x7a}, {"load 4 at 3004"}, {}, 4},
    {"vstr s1, [r3]", kThumb, {0xc3, 0xed, 0x00, 0x0a}, {"store 4 at 3000: 0"}, {}, 4},
};

std::string nameOf(const testing::TestParamInfo<tsCase>& tested) {
    std::string name;
    for (const char* at = tested.param.text; *at != '\0'; ++at) {
        if (std::isalnum(static_cast<unsigned char>(*at)) != 0) {
            name += *at;
        }
    }
    return name + "_" + std::to_string(tested.index);
}

INSTANTIATE_TEST_SUITE_P(A32, ArmInstruction, testing::ValuesIn(kA32), nameOf);
INSTANTIATE_TEST_SUITE_P(Thumb2, ArmInstruction, testing::ValuesIn(kThumb2), nameOf);

TEST(ArmDecoder, MovesVectorRegisters) {
    std::array<std::uint32_t, 32> singles{};
    singles[2] = 77;
    sim::tsArmState state = initialState(0, singles.data());
    tcRecordingBus bus;
    ASSERT_TRUE(sim::emulateArm(state, {0x01, 0x7a, 0xd3, 0xed}, bus)); // vldr s15, [r3, #4]
    ASSERT_TRUE(sim::emulateArm(state, {0x02, 0x1a, 0x03, 0xed}, bus)); // vstr s2, [r3, #-8]
    EXPECT_EQ(singles[15], 0xF0E1D2C3U);
    EXPECT_THAT(bus.m_accesses, ElementsAre("load 4 at 3004", "store 4 at 2992: 77"));
    state.singles = nullptr;
    EXPECT_FALSE(sim::emulateArm(state, {0x01, 0x7a, 0xd3, 0xed}, bus));
}

TEST(ArmDecoder, LeavesEverythingElseAlone) {
    const std::vector<std::pair<std::uint32_t, std::array<std::uint8_t, 4>>> others{
        {0, {0x9f, 0x0f, 0x91, 0xe1}},      // ldrex r0, [r1]
        {0, {0x91, 0x00, 0x02, 0xe1}},      // swp r0, r1, [r2]
        {0, {0x04, 0x00, 0x9f, 0xe5}},      // ldr r0, [pc, #4]
        {0, {0x00, 0xf0, 0x91, 0xe5}},      // ldr pc, [r1]
        {0, {0x00, 0xf0, 0xd1, 0xf5}},      // pld [r1]
        {0, {0x02, 0x00, 0x81, 0xe0}},      // add r0, r1, r2
        {0, {0x00, 0x1b, 0x93, 0xed}},      // vldr d1, [r3]
        {kThumb, {0x51, 0xe8, 0x00, 0x0f}}, // ldrex r0, [r1]
        {kThumb, {0xdf, 0xf8, 0x08, 0x00}}, // ldr.w r0, [pc, #8]
        {kThumb, {0x88, 0x18, 0x00, 0x00}}, // adds r0, r1, r2
        {kThumb, {0x00, 0xf0, 0x32, 0xb8}}, // b.w #100
    };
    std::array<std::uint32_t, 32> singles{};
    for (const auto& [status, code] : others) {
        sim::tsArmState state = initialState(status, singles.data());
        tcRecordingBus bus;
        EXPECT_FALSE(sim::emulateArm(state, code, bus)) << int(code[0]) << " " << int(code[3]);
        EXPECT_EQ(state.registers, initialState(status, nullptr).registers);
        EXPECT_THAT(bus.m_accesses, IsEmpty());
    }
}

// The state of an IT block: the condition in 7..5, then a mask whose last set bit is its end.
std::uint32_t withIfThen(std::uint32_t state) {
    return kThumb | (state >> 2 & 0x3F) << 10 | (state & 3) << 25;
}

TEST(ArmDecoder, AThumbInstructionIsOneOfItsIfThenBlock) {
    std::array<std::uint32_t, 32> singles{};
    sim::tsArmState state =
        initialState(withIfThen(0x06) | 0x80000000, singles.data()); // three left
    tcRecordingBus bus;
    ASSERT_TRUE(sim::emulateArm(state, {0x08, 0x68, 0, 0}, bus));
    EXPECT_EQ(state.status, withIfThen(0x0C) | 0x80000000);
    ASSERT_TRUE(sim::emulateArm(state, {0x08, 0x68, 0, 0}, bus));
    EXPECT_EQ(state.status, withIfThen(0x18) | 0x80000000);
    ASSERT_TRUE(sim::emulateArm(state, {0x08, 0x68, 0, 0}, bus));
    EXPECT_EQ(state.status, kThumb | 0x80000000); // the block is over
}

// --- Where the kernel saves the vector registers ---

constexpr std::uint32_t kVector = 0x56465001;
constexpr std::uint32_t kNoCoprocessor = 0xB0D9ED01; // a record of a coprocessor that is not there

TEST(VectorRegisters, StandBehindTheirMarkAndSize) {
    std::array<std::uint32_t, 128> saved{kVector, 288, 7};
    EXPECT_EQ(sim::vectorRegistersIn(saved), saved.data() + 2);
}

TEST(VectorRegisters, StandBehindTheRecordsOfOtherCoprocessors) {
    std::array<std::uint32_t, 128> saved{kNoCoprocessor, 0xA0};
    saved[40] = kVector;
    saved[41] = 288;
    EXPECT_EQ(sim::vectorRegistersIn(saved), saved.data() + 42);
    saved[40] = kNoCoprocessor;
    saved[41] = 8;
    saved[42] = kVector;
    EXPECT_EQ(sim::vectorRegistersIn(saved), saved.data() + 44);
}

TEST(VectorRegisters, AreNotThereWithoutARecordOfTheirOwn) {
    std::array<std::uint32_t, 128> saved{};
    EXPECT_EQ(sim::vectorRegistersIn(saved), nullptr);
    saved = {kNoCoprocessor, 0xA0}; // and then the end
    saved[42] = kVector;            // which is nobody's
    EXPECT_EQ(sim::vectorRegistersIn(saved), nullptr);
    for (const std::uint32_t size : {0U, 4U, 513U * 4U, 0xFFFFFFFFU}) { // no size of a record
        saved = {kNoCoprocessor, size, kVector, 288};
        EXPECT_EQ(sim::vectorRegistersIn(saved), nullptr) << size;
    }
    EXPECT_EQ(sim::vectorRegistersIn(std::span(saved).first(2)), nullptr);
}

} // namespace
