// Memory that a program shares with who looks at its run.

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/journal/live_ring.h"
#include "tests/support/temporary_directory.h"

namespace {

using sim::teLine;
using testing::ElementsAre;

std::span<const std::uint8_t> bytesOf(const std::string& text) {
    const void* start = text.data();
    return {static_cast<const std::uint8_t*>(start), text.size()};
}

// Another one for each number, of up to 99 letters.
std::string textOf(std::uint64_t number) {
    return std::string(static_cast<std::size_t>(number % 100),
                       static_cast<char>('a' + number % 26));
}

class LiveRing : public testing::Test {
protected:
    void note(std::uint64_t timeNs, const std::string& text) {
        m_ring.append({timeNs, teLine::note, 0, 0, 0, bytesOf(text)});
    }
    std::vector<std::string> read() {
        std::vector<std::string> result;
        sim::tsLiveEvent event;
        while (m_reader.next(event)) {
            result.push_back(std::to_string(event.number) + " " +
                             std::to_string(event.event.timeNs) + " " + event.text());
        }
        return result;
    }

    tcTemporaryDirectory m_folder;
    sim::tcLiveRing m_ring{"ring", false};
    sim::tcLiveReader m_reader{"ring"};
};

TEST_F(LiveRing, CarriesEventsAsTheyAre) {
    m_ring.append({5, teLine::write, 0xFF210000, 0x80000000, 0, {}});
    m_ring.append({6, teLine::adc, 4, 0, EIO, {}});
    const std::array<std::uint8_t, 4> word{0x0F, 0xB9, 0x04, 0x36};
    m_ring.append({7, teLine::spi, 0, 4, 0, word});
    note(4'294'967'296'000, "beyond 32 bits");
    EXPECT_THAT(read(), ElementsAre("0 5 WRITE 0xFF210000 0x80000000", "1 6 ADC 4 failed EIO",
                                    "2 7 SPI 0F B9 04 36", "3 4294967296000 NOTE beyond 32 bits"));
    EXPECT_THAT(read(), testing::IsEmpty());
    EXPECT_EQ(m_reader.takeLost(), 0U);
}

// A record has room for 28 bytes: one less, as many, one more, and up to the next record's end.
TEST_F(LiveRing, CarriesTextsOfAnyLength) {
    std::vector<std::string> expected;
    for (const std::size_t length : {0U, 1U, 27U, 28U, 29U, 91U, 92U, 93U, 4096U}) {
        const std::string text(length, static_cast<char>('a' + length % 26));
        note(length, text);
        expected.push_back(std::to_string(expected.size()) + " " + std::to_string(length) +
                           " NOTE " + text);
    }
    EXPECT_EQ(read(), expected);
}

// 65,536 records: the reader is one behind, then one more is written.
TEST_F(LiveRing, CountsWhatItCouldNotRead) {
    for (int at = 0; at < 65536; ++at) {
        note(1, "x");
    }
    sim::tsLiveEvent event;
    ASSERT_TRUE(m_reader.next(event));
    EXPECT_EQ(event.number, 0U);
    note(2, "in the place that was read");
    ASSERT_TRUE(m_reader.next(event));
    EXPECT_EQ(event.number, 1U);
    EXPECT_EQ(m_reader.takeLost(), 0U);
    note(3, "overwrites number 2");
    note(4, "overwrites number 3");
    EXPECT_FALSE(m_reader.next(event)); // where the rest begins is not known
    note(5, "comes after");
    EXPECT_THAT(read(), ElementsAre("65539 5 NOTE comes after"));
    EXPECT_EQ(m_reader.takeLost(), 65537U); // 2 to 65538
    EXPECT_EQ(m_reader.takeLost(), 0U);
}

// What is read is whole, and what is not read is counted.
TEST_F(LiveRing, IsReadWhileItIsWritten) {
    constexpr std::uint64_t total = 300'000;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (std::uint64_t at = 0; at < total; ++at) {
            note(at, textOf(at));
        }
        done = true;
    });
    std::uint64_t seen = 0;
    std::uint64_t lost = 0;
    std::uint64_t wrong = 0;
    sim::tsLiveEvent event;
    while (event.number != total) {
        if (m_reader.next(event)) {
            lost += m_reader.takeLost();
            wrong += event.number == seen + lost && event.event.timeNs == event.number &&
                             event.text() == "NOTE " + textOf(event.number)
                         ? 0U
                         : 1U;
            ++seen;
        } else if (done) {
            writer.join();
            done = false;
            note(total, textOf(total));
        }
    }
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(seen + lost, total + 1);
    EXPECT_GT(seen, 1U);
}

TEST_F(LiveRing, StopsAndStepsAndGoes) {
    EXPECT_FALSE(m_ring.stopped());
    EXPECT_FALSE(m_reader.stopping());
    m_reader.stop();
    EXPECT_TRUE(m_ring.stopped());
    m_reader.step();
    EXPECT_FALSE(m_ring.stopped());
    note(1, "the one");
    EXPECT_TRUE(m_ring.stopped());
    EXPECT_TRUE(m_reader.stopping());
    m_reader.go();
    EXPECT_FALSE(m_ring.stopped());
    note(2, "and on");
    EXPECT_FALSE(m_ring.stopped());
}

TEST_F(LiveRing, WakesWhoWaits) {
    m_reader.stop();
    std::thread program([this] {
        while (m_ring.stopped()) {
            m_ring.wait();
        }
    });
    m_reader.go();
    program.join(); // or hangs
    m_reader.stop();
    m_ring.letGo();
    EXPECT_FALSE(m_ring.stopped());
}

TEST_F(LiveRing, KeepsTheLatestPicturesSettings) {
    EXPECT_EQ(m_reader.frame(), "");
    EXPECT_EQ(m_reader.frames(), 0U);
    const std::string first = "five.";
    const std::string second(8192, 'z');
    m_ring.keepFrame(std::as_bytes(std::span(first)));
    EXPECT_EQ(m_reader.frame(), "five.");
    m_ring.keepFrame(std::as_bytes(std::span(second)));
    EXPECT_EQ(m_reader.frame(), second);
    EXPECT_EQ(m_reader.frames(), 2U);
}

TEST(LiveRingFile, CanBeginStopped) {
    const tcTemporaryDirectory folder;
    const sim::tcLiveRing ring("ring", true);
    EXPECT_TRUE(ring.stopped());
}

TEST(LiveRingFile, IsNobodyElses) {
    const tcTemporaryDirectory folder;
    folder.write("taken", "x");
    EXPECT_THROW(sim::tcLiveRing("taken", false), std::runtime_error);
    EXPECT_THROW(sim::tcLiveRing("no/such/folder", false), std::runtime_error);
    EXPECT_THROW(sim::tcLiveReader("taken"), std::runtime_error);
    EXPECT_THROW(sim::tcLiveReader("none"), std::runtime_error);
    folder.write("zeroes", std::string(sizeof(sim::tsLiveMemory), '\0'));
    EXPECT_THROW(sim::tcLiveReader("zeroes"), std::runtime_error);
}

} // namespace
