// Boards that come and go, and threads that use one at once.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <varnox/register_file.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"
#include "tests/reliability/job.h"
#include "tests/reliability/live_blocks.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/traced_output.h"

namespace fs = std::filesystem;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

sim::tcVirtualHead aQuietHead() {
    return sim::aVirtualHead()
        .withPllAfter(std::chrono::nanoseconds(0))
        .withLanesAfter(std::chrono::nanoseconds(0))
        .withAlignmentAfter(std::chrono::nanoseconds(0))
        .withQuietViolations()
        .withLogCapacity(kLogEvents)
        .build();
}

class Endurance : public testing::Test {
protected:
    Endurance() {
        fs::copy(HEAD_DATA_DIRECTORY, m_directory.path(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }

private:
    tcTemporaryDirectory m_directory;
};

void live() {
    Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    ASSERT_EQ(board.initialize(), 0);
    ASSERT_EQ(board.start(), 0);
    ASSERT_EQ(board.stop(), 0);
}

/// \return bytes that are mapped and not unmapped
std::uint64_t leftMapped(const sim::tcVirtualHead& head) {
    std::uint64_t mapped = 0;
    std::uint64_t unmapped = 0;
    for (const sim::tsEvent& event : head.log(sim::teEventKind::device)) {
        if (event.text.starts_with("MAP ")) {
            mapped += event.value;
        } else if (event.text.starts_with("UNMAP ")) {
            unmapped += (event.value + 4095) / 4096 * 4096; // the kernel unmaps whole pages
        }
    }
    return mapped - unmapped;
}

TEST_F(Endurance, EachBoardLeavesTheAddressSpaceThatItsUnmappingDoesNotCover) {
    const tcTracedOutput quiet(std::cout);
    sim::tcVirtualHead head = aQuietHead();
    live();
    // Base block, clock generator and frame-control core: each maps 4096 words, 16384 bytes, and
    // unmaps as many bytes as words. Three times 12288 bytes stay; the host library's cores leave
    // nothing.
    EXPECT_EQ(leftMapped(head), 36864U);
}

TEST_F(Endurance, TenThousandBoardsHoldMemoryAndDescriptorsFlat) {
    constexpr int kCycles = kSanitized ? 300 : 10'000;
    constexpr int kCyclesOfOneHead = 500; // a head keeps account of 4,096 stretches of registers
    const tcTracedOutput still(std::cerr);
    std::optional<sim::tcVirtualHead> head;
    int done = 0;
    for (; done < kCycles; ++done) {
        if (done % kCyclesOfOneHead == 0) {
            head.reset();
            head.emplace(aQuietHead());
            const tcTracedOutput quiet(std::cout);
            live(); // what is made once is made here
        }
        const int descriptors = openDescriptors();
        const std::int64_t blocks = liveBlocks();
        {
            const tcTracedOutput quiet(std::cout);
            live();
        }
        ASSERT_EQ(openDescriptors(), descriptors) << "cycle " << done;
        ASSERT_EQ(liveBlocks(), blocks) << "cycle " << done;
        head->clearLog();
    }
    std::cout << done << " cycles\n";
}

class tcOpenBoard : public Varnox::tc3U5MGXSSensorBoard {
public:
    tcOpenBoard() : tc3U5MGXSSensorBoard("/dev/spidev1.0") {}
    using tcSensorBoard::boardMutex;
};

TEST_F(Endurance, AThreadThatEndsInsideALockedSectionLeavesItUsable) {
    const tcTracedOutput quiet(std::cout);
    const tcTracedOutput still(std::cerr);
    sim::tcVirtualHead head = aQuietHead();
    tcOpenBoard board;
    ASSERT_EQ(board.initialize(), 0);
    // The host's listener is called with the lock held. A thread that ends there is unwound.
    board.setStatusListener([](int, const std::string&) { pthread_exit(nullptr); });
    for (int round = 0; round < 3; ++round) {
        std::thread([&] { board.setExposure(1000); }).join();
        std::thread([&] { board.setFrameInterval(50'000); }).join();
    }
    board.setStatusListener({});
    EXPECT_EQ(board.boardMutex().lock(), 0); // free, and nobody died with it
    EXPECT_EQ(board.boardMutex().unlock(), 0);
    EXPECT_EQ(board.setExposure(20'000), 0);
    EXPECT_EQ(board.setFrameInterval(45'000), 0);
    EXPECT_EQ(board.getFrameInterval(), 45'000);
    EXPECT_EQ(board.getExposure(), 20'000);

    // The version's section calls nobody: its owner dies with the lock.
    std::thread([&] { board.boardMutex().lock(); }).join();
    EXPECT_NE(board.getVersion().find("3U5MGXS-C"), std::string::npos);
    EXPECT_EQ(board.boardMutex().lock(), 0);
    EXPECT_EQ(board.boardMutex().unlock(), 0);
}

TEST_F(Endurance, ThreadsThatUseOneBoardAtOnceLeaveItConsistent) {
    constexpr int kRounds = kSanitized ? 60 : 400;
    const tcTracedOutput still(std::cerr);
    sim::tcVirtualHead head = aQuietHead();
    Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    auto& file = *Varnox::tcRegisterFile::getInstance(nullptr, true);
    std::streambuf* const before = std::cout.rdbuf(nullptr); // prints nothing, from any thread
    ASSERT_EQ(board.initialize(), 0);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
            wrong += board.setExposure(1000 + round * 10) != 0;
        }
    });
    threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
            wrong += board.setFrameInterval(60'000 + round * 50) != 0;
        }
    });
    threads.emplace_back([&] {
        for (int round = 0; round < kRounds / 20; ++round) {
            wrong += board.getVersion().empty();
        }
    });
    for (int poker = 0; poker < 2; ++poker) {
        threads.emplace_back([&, poker] {
            for (int round = 0; round < kRounds; ++round) {
                const int address = 0x250 + poker * 16 + round % 16;
                int value = -1;
                wrong += board.poke(address, round) != 0;
                wrong += board.peek(address, &value) != 0 || value != round;
            }
        });
    }
    threads.emplace_back([&] {
        for (int round = 0; round < kRounds; ++round) {
            wrong += file.write_word(0x3D004, static_cast<std::uint32_t>(round % 4)).status != 0;
            wrong +=
                file.write_word(0x3D000, static_cast<std::uint32_t>(round / 8 % 2)).status != 0;
        }
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout.rdbuf(before);
    EXPECT_EQ(wrong, 0);

    std::map<std::uint16_t, std::uint32_t> shadow;
    for (int address = 0; address < 0x400; ++address) {
        int value = 0;
        if (board.peek(address, &value) == 0) {
            shadow[static_cast<std::uint16_t>(address)] = static_cast<std::uint32_t>(value);
        }
    }
    for (const sim::tsShadowDifference& one : head.compareShadow(shadow)) {
        // A field that was read, not written, is 0 in the copy.
        EXPECT_TRUE(!one.sensor.has_value() && one.shadow == 0) << one.address << ": " << one.why;
    }
    const tcTracedOutput quiet(std::cout);
    EXPECT_EQ(file.read_word(0x3A004), static_cast<std::uint32_t>(board.getExposure()));
    EXPECT_LE(board.getExposure(), board.getFrameInterval());
    EXPECT_EQ(static_cast<std::uint32_t>(board.getDGain()), head.sensorState().digitalCoarse);
    EXPECT_EQ(static_cast<std::uint32_t>(board.getDGain()), (kRounds - 1) % 4U);
}

} // namespace
