// Boards that come and go, and threads that use one at once.

#include <atomic>
#include <barrier>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>
#include <varnox/abstract_handler.h>
#include <varnox/register_file.h>

#include "plugin/board.h"
#include "sim/virtual_head.h"
#include "tests/reliability/job.h"
#include "tests/reliability/live_blocks.h"
#include "tests/support/publish_spy.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/traced_output.h"

namespace fs = std::filesystem;

namespace {

#if defined(HEAD_ADDRESS_SANITIZER) || defined(HEAD_THREAD_SANITIZER)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
// Where most machines emulate it.
#ifdef __arm__
constexpr bool kTarget = true;
#else
constexpr bool kTarget = false;
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

// Ten thousand where it takes seconds. Each cycle is compared with the one before.
TEST_F(Endurance, ThousandsOfBoardsHoldMemoryAndDescriptorsFlat) {
    constexpr int kCycles = kSanitized ? 300 : kTarget ? 2'000 : 10'000;
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

/// The board's handlers, which observe the register file with the board, as a host has them do.
class tcClients {
public:
    explicit tcClients(Varnox::tc3U5MGXSSensorBoard& board) {
        std::map<std::string, Varnox::tcAbstractHandler*> keywords;
        m_handlers.emplace_back(board.getCustomHandlers(nullptr, &keywords)); // bad pixels
        for (const char* keyword : {"EXPM", "CLKS"}) {
            m_handlers.emplace_back(keywords.at(keyword));
        }
        file().observable().registerObserver(board);
        for (const auto& handler : m_handlers) {
            file().observable().registerObserver(*handler);
        }
    }

    /// \return whether the word was taken and is now served
    static bool write(std::uint32_t address, std::uint32_t value) {
        const Varnox::tsWriteResult done = file().write_word(address, value);
        return done.handled && done.status == 0;
    }
    static std::optional<std::uint32_t> read(std::uint32_t address) {
        return file().read_word(address);
    }
    std::string execute(std::string keyword, std::string arguments) {
        return m_handlers.front()->execute(keyword, arguments);
    }

private:
    static Varnox::tcRegisterFile& file() {
        return *Varnox::tcRegisterFile::getInstance(nullptr, true);
    }

    std::vector<std::unique_ptr<Varnox::tcAbstractHandler>> m_handlers;
};

constexpr int kRounds = 10;

/// Calls that hosts make from threads of their own. Each counts what went wrong.
class tcTraffic {
public:
    explicit tcTraffic(Varnox::tc3U5MGXSSensorBoard& board) : m_board(board), m_clients(board) {}

    /// Everything at once. \return number of calls that went wrong
    int run() {
        return run({&tcTraffic::exposure, &tcTraffic::exposureWord, &tcTraffic::interval,
                    &tcTraffic::sensorWords, &tcTraffic::command, &tcTraffic::version,
                    &tcTraffic::pokeLow, &tcTraffic::pokeHigh});
    }
    /// Exposure and interval alone: commands and the exposure mode apply the exposure anew, and
    /// when they come last, they mend what went wrong before. \return number of calls that went
    /// wrong
    int runTiming() {
        return run({&tcTraffic::exposure, &tcTraffic::exposureWord, &tcTraffic::interval});
    }

private:
    using tcTurn = void (tcTraffic::*)(int round);

    int run(const std::vector<tcTurn>& turns) {
        std::barrier start(static_cast<std::ptrdiff_t>(turns.size()));
        std::vector<std::thread> threads;
        threads.reserve(turns.size());
        for (const tcTurn turn : turns) {
            threads.emplace_back([this, turn, &start] {
                start.arrive_and_wait();
                for (int round = 0; round < kRounds; ++round) {
                    (this->*turn)(round);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return m_wrong;
    }

    void expect(bool right) { m_wrong += right ? 0 : 1; }

    // Exposures that the longer intervals allow and the shorter ones do not.
    // More of them than of the words, which wait for each other: neither always comes last.
    void exposure(int round) {
        for (int step = 0; step < 4; ++step) {
            expect(m_board.setExposure(50'000 + round * 4'000 + step * 1'000) == 0);
        }
    }
    void exposureWord(int round) {
        expect(tcClients::write(0x3A004, 85'000 - static_cast<std::uint32_t>(round) * 3'000));
    }
    /// The last one through the register file: a call of the board leaves its word alone.
    void interval(int round) {
        const int wanted = (round % 2 == 0 ? 86'000 : 56'000) + round * 50;
        expect(round % 2 == 0 ? m_board.setFrameInterval(wanted) == 0
                              : tcClients::write(0x3A000, static_cast<std::uint32_t>(wanted)));
    }
    void sensorWords(int round) {
        expect(tcClients::write(0x3D004, static_cast<std::uint32_t>(round % 4)));
        expect(tcClients::write(0x3D000, static_cast<std::uint32_t>(round / 8 % 2)));
    }
    /// Commands come from one thread, and with them the words that do the same.
    void command(int round) {
        const std::string flag = std::to_string(round % 2);
        expect(m_clients.execute("EXPM", flag) == "<nack 0>");
        expect(m_clients.execute("EXPM", "") == "<ack>^" + flag);
        expect(tcClients::write(0x3A200, static_cast<std::uint32_t>(round / 2 % 2)));
        expect(m_clients.execute("SBPR", flag) == "<ack>");
        expect(m_clients.execute("SBPRM", flag) == "<ack>");
        expect(m_clients.execute("GBPRM", "") == "<ack ^" + flag + ">");
        expect(m_clients.execute("GBPR", "") == "<ack ^1>");
        expect(m_clients.execute("CLKS", "") == "<ack ^1>");
        expect(tcClients::write(0x3A074, static_cast<std::uint32_t>(round / 2 % 2)));
        expect(tcClients::write(0x3A070, static_cast<std::uint32_t>(round % 2)));
    }
    void version(int round) { expect(round % 20 != 0 || !m_board.getVersion().empty()); }
    void pokeLow(int round) { poke(0x250 + round, round); }
    void pokeHigh(int round) { poke(0x260 + round, round); }
    void poke(int address, int value) {
        int held = -1;
        expect(m_board.poke(address, value) == 0);
        expect(m_board.peek(address, &held) == 0 && held == value);
    }

    Varnox::tc3U5MGXSSensorBoard& m_board;
    tcClients m_clients;
    std::atomic<int> m_wrong{0};
};

/// Swallows what is printed, from any thread, and lets another thread have its turn between the
/// exposure that the driver works out and the one that it keeps: there it prints.
class tcYielding : public std::streambuf {
protected:
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        if (std::string_view(text, static_cast<std::size_t>(count)).find("acc_fpos") !=
            std::string_view::npos) {
            std::this_thread::yield();
        }
        return count;
    }
    int_type overflow(int_type character) override { return character; }
};

/// Every word that a thread published or wrote is what the board says, and the sensor does so.
void expectConsistent(Varnox::tc3U5MGXSSensorBoard& board, const sim::tcVirtualHead& head) {
    const auto word = [](int value) { return static_cast<std::uint32_t>(value); };
    EXPECT_EQ(tcClients::read(0x3A000), word(board.getFrameInterval()));
    EXPECT_EQ(tcClients::read(0x3A004), word(board.getExposure()));
    EXPECT_EQ(tcClients::read(0x3A200) != 0U, board.getInternalExposureMode());
    EXPECT_EQ(tcClients::read(0x3C020), word(board.getMinFrameIntervalMicroS()));
    EXPECT_EQ(tcClients::read(0x3D000), 1U); // of the last round
    EXPECT_EQ(tcClients::read(0x3D004), 1U);
    EXPECT_EQ(board.getDGain(), 1U);
    EXPECT_EQ(head.sensorState().digitalCoarse, 1U);
    EXPECT_EQ(head.fpgaWord(0xFF215000) & 2U, 0U); // the map is not applied
    EXPECT_LE(board.getExposure(), board.getFrameInterval());

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
}

TEST_F(Endurance, ThreadsThatUseOneBoardAtOnceLeaveItConsistent) {
    constexpr int kBursts = kSanitized ? 6 : 20;
    const tcTracedOutput still(std::cerr);
    sim::tcVirtualHead head = aQuietHead();
    Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    tcYielding yielding;
    std::streambuf* const before = std::cout.rdbuf(&yielding);
    ASSERT_EQ(board.initialize(), 0);
    for (int burst = 0; burst < kBursts && !HasFailure(); ++burst) {
        EXPECT_EQ(tcTraffic(board).run(), 0);
        expectConsistent(board, head);
        EXPECT_EQ(tcTraffic(board).runTiming(), 0);
        expectConsistent(board, head);
    }
    std::cout.rdbuf(before);
}

/// Makes the first call, and the second from another thread at the worst of times: when the first
/// is about to publish the exposure for the nth time. It may have to wait for the first.
template<class First, class Second>
void callBetween(int nth, const First& first, const Second& second) {
    std::thread other;
    std::atomic<bool> begun{false};
    std::atomic<bool> done{false};
    int published = 0;
    setPublishSpy([&](std::uint32_t address, std::uint32_t) {
        if (address != 0x3A004 || begun || ++published < nth) {
            return;
        }
        begun = true; // what the other one publishes starts no third
        other = std::thread([&] {
            second();
            done = true;
        });
        for (int turn = 0; turn < 10'000 && !done; ++turn) {
            std::this_thread::yield();
        }
    });
    first();
    ASSERT_TRUE(other.joinable());
    other.join();
    setPublishSpy({});
}

TEST_F(Endurance, AWordThatAClientWroteIsNotPublishedOverANewerOne) {
    const tcTracedOutput still(std::cerr);
    sim::tcVirtualHead head = aQuietHead();
    Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    std::streambuf* const before = std::cout.rdbuf(nullptr);
    ASSERT_EQ(board.initialize(), 0);
    const tcClients clients(board);
    // Once by the call, and once more by the register file's word.
    callBetween(
        2, [] { EXPECT_TRUE(tcClients::write(0x3A004, 5000)); }, [&] { board.setExposure(7000); });
    std::cout.rdbuf(before);
    const tcTracedOutput quiet(std::cout);
    EXPECT_EQ(board.getExposure(), 7000);
    EXPECT_EQ(tcClients::read(0x3A004), 7000U);
}

TEST_F(Endurance, AnExposureIsPublishedBeforeAnIntervalCutsIt) {
    const tcTracedOutput still(std::cerr);
    sim::tcVirtualHead head = aQuietHead();
    Varnox::tc3U5MGXSSensorBoard board("/dev/spidev1.0");
    std::streambuf* const before = std::cout.rdbuf(nullptr);
    ASSERT_EQ(board.initialize(), 0);
    callBetween(
        1, [&] { EXPECT_EQ(board.setExposure(80'000), 0); },
        [&] { board.setFrameInterval(56'000); });
    std::cout.rdbuf(before);
    const tcTracedOutput quiet(std::cout);
    EXPECT_EQ(board.getFrameInterval(), 55'800);
    EXPECT_LT(board.getExposure(), 55'800);
    EXPECT_EQ(tcClients::read(0x3A004), static_cast<std::uint32_t>(board.getExposure()));
}

} // namespace
