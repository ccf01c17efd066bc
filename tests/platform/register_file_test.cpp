#include <varnox/register_file.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Varnox::tcRegisterFile;
using Varnox::tsUpdate;
using Varnox::tsWriteResult;

namespace {

/// Does with an update what the test wants.
class tcAnswering : public Varnox::tcObserver {
public:
    explicit tcAnswering(std::function<void(tsUpdate&)> answer) : m_answer(std::move(answer)) {}
    void update(tsUpdate& update) override { m_answer(update); }

private:
    std::function<void(tsUpdate&)> m_answer;
};

void refuse(tsUpdate& update) {
    update.handled = true;
    update.status = 0x8FFF;
}

void expectResult(const tsWriteResult& result, bool handled, std::uint16_t status,
                  std::uint32_t value) {
    EXPECT_EQ(result.handled, handled);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.value, value);
}

} // namespace

TEST(RegisterFile, HoldsNothingAtFirst) {
    const tcRegisterFile file;
    EXPECT_EQ(file.read_word(0), std::nullopt);
    EXPECT_THAT(file.words(), IsEmpty());
}

TEST(RegisterFile, HoldsWhatTheDevicePublishes) {
    tcRegisterFile file;
    file.update_word(0x3A004, 30000);
    file.update_word(0x3A000, 100000);
    file.update_word(0x3A004, 20000);
    EXPECT_EQ(file.read_word(0x3A004), 20000U);
    EXPECT_THAT(file.words(), ElementsAre(Pair(0x3A000, 100000U), Pair(0x3A004, 20000U)));
}

TEST(RegisterFile, HoldsEveryAddressAndEveryValue) {
    tcRegisterFile file;
    file.update_word(0, 0xFFFFFFFF);
    file.update_word(0xFFFFFFFF, 0);
    EXPECT_EQ(file.read_word(0), 0xFFFFFFFFU);
    EXPECT_EQ(file.read_word(0xFFFFFFFF), 0U);
    EXPECT_EQ(file.read_word(1), std::nullopt);
}

TEST(RegisterFile, NotifiesNobodyOfWhatTheDevicePublishes) {
    tcRegisterFile file;
    int notified = 0;
    tcAnswering observer([&](tsUpdate&) { ++notified; });
    file.observable().registerObserver(observer);
    file.update_word(0x3A000, 1);
    EXPECT_EQ(notified, 0);
}

TEST(RegisterFile, NotifiesObserversOfAClientsWriteAfterStoringIt) {
    tcRegisterFile file;
    std::vector<std::string> trace;
    tcAnswering observer([&](tsUpdate& update) {
        trace.push_back(std::to_string(update.kind) + " " + std::to_string(update.address) + " " +
                        std::to_string(update.value) + " " + std::to_string(update.handled) + " " +
                        std::to_string(update.status) + " holds " +
                        std::to_string(file.read_word(update.address).value_or(0)));
    });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x3A074, 5), false, 0, 5);
    EXPECT_THAT(trace, ElementsAre("1 237684 5 0 0 holds 5"));
}

TEST(RegisterFile, KeepsAWriteThatNobodyTakes) {
    tcRegisterFile file;
    expectResult(file.write_word(0x10, 7), false, 0, 7);
    EXPECT_EQ(file.read_word(0x10), 7U);
}

TEST(RegisterFile, ReportsThatAWriteWasTaken) {
    tcRegisterFile file;
    tcAnswering observer([](tsUpdate& update) { update.handled = true; });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0, 7);
}

TEST(RegisterFile, ReportsWhatTheDevicePublishedInAnswer) {
    tcRegisterFile file;
    tcAnswering observer([&](tsUpdate& update) {
        file.update_word(update.address, 6);
        update.handled = true;
    });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0, 6);
    EXPECT_EQ(file.read_word(0x10), 6U);
}

TEST(RegisterFile, GoesBackAfterARefusedWrite) {
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer(refuse);
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0x8FFF, 3);
    EXPECT_EQ(file.read_word(0x10), 3U);
}

TEST(RegisterFile, ForgetsAWordWhoseFirstWriteWasRefused) {
    tcRegisterFile file;
    tcAnswering observer(refuse);
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0x8FFF, 0);
    EXPECT_EQ(file.read_word(0x10), std::nullopt);
    EXPECT_THAT(file.words(), IsEmpty());
}

TEST(RegisterFile, KeepsWhatTheDevicePublishedDuringARefusedWrite) {
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer([&](tsUpdate& update) {
        file.update_word(update.address, 4);
        refuse(update);
    });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0x8FFF, 4);
}

TEST(RegisterFile, KeepsAnEqualValueThatTheDevicePublishedDuringARefusedWrite) {
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer([&](tsUpdate& update) {
        file.update_word(update.address, 7); // the same number, but the device's own
        refuse(update);
    });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0x8FFF, 7);
}

TEST(RegisterFile, GoesBackToTheLastAcceptedValueAfterTwoRefusedWrites) {
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer(refuse);
    file.observable().registerObserver(observer);
    file.write_word(0x10, 7);
    file.write_word(0x10, 8);
    EXPECT_EQ(file.read_word(0x10), 3U);
}

TEST(RegisterFile, KeepsAnInnerWriteWhenTheOuterOneIsRefused) {
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer([&](tsUpdate& update) {
        if (update.value == 7) {
            file.write_word(0x10, 5);
            refuse(update);
        }
    });
    file.observable().registerObserver(observer);
    expectResult(file.write_word(0x10, 7), true, 0x8FFF, 5);
}

TEST(RegisterFile, LeavesOtherWordsAloneWhenAWriteIsRefused) {
    tcRegisterFile file;
    tcAnswering observer([&](tsUpdate& update) {
        file.update_word(0x20, 9);
        refuse(update);
    });
    file.observable().registerObserver(observer);
    file.write_word(0x10, 7);
    EXPECT_THAT(file.words(), ElementsAre(Pair(0x20, 9U)));
}

TEST(RegisterFile, RefusedClientsOfSeveralThreadsLeaveTheDevicesValue) {
    constexpr int kRounds = 500;
    tcRegisterFile file;
    file.update_word(0x10, 3);
    tcAnswering observer(refuse);
    file.observable().registerObserver(observer);
    const auto writing = [&](std::uint32_t value) {
        for (int i = 0; i < kRounds; ++i)
            file.write_word(0x10, value);
    };
    std::thread one(writing, 100);
    std::thread two(writing, 200);
    writing(300);
    one.join();
    two.join();
    EXPECT_EQ(file.read_word(0x10), 3U);
}

TEST(RegisterFile, ServesDeviceAndClientsOnSeveralThreads) {
    constexpr std::uint32_t kRounds = 1000;
    tcRegisterFile file;
    tcAnswering observer([&](tsUpdate& update) {
        file.update_word(update.address + 4, update.value);
        update.handled = true;
    });
    file.observable().registerObserver(observer);
    std::thread client([&] {
        for (std::uint32_t i = 1; i <= kRounds; ++i)
            EXPECT_TRUE(file.write_word(0x10, i).handled);
    });
    std::thread device([&] {
        for (std::uint32_t i = 1; i <= kRounds; ++i)
            file.update_word(0x20, i);
    });
    std::uint32_t last = 0;
    for (std::uint32_t i = 0; i < kRounds; ++i) {
        const std::uint32_t seen = file.read_word(0x20).value_or(0);
        EXPECT_GE(seen, last); // values come in the order they are published
        last = seen;
        EXPECT_LE(file.words().size(), 3U);
    }
    client.join();
    device.join();
    EXPECT_THAT(file.words(), ElementsAre(Pair(0x10, 1000U), Pair(0x14, 1000U), Pair(0x20, 1000U)));
}

TEST(RegisterFile, IsMadeOnDemandAndThenFound) {
    EXPECT_EQ(tcRegisterFile::getInstance("made on demand", false), nullptr);
    tcRegisterFile* const file = tcRegisterFile::getInstance("made on demand", true);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(tcRegisterFile::getInstance("made on demand", false), file);
    EXPECT_EQ(tcRegisterFile::getInstance("made on demand", true), file);
}

TEST(RegisterFile, OfTheProcessIsNoneOfTheNamedOnes) {
    tcRegisterFile* const own = tcRegisterFile::getInstance(nullptr, true);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(tcRegisterFile::getInstance(nullptr, false), own);
    EXPECT_NE(tcRegisterFile::getInstance("", true), own);
    EXPECT_NE(tcRegisterFile::getInstance("another", true), own);
}

TEST(RegisterFile, IsTheSameForThreadsThatAskAtOnce) {
    tcRegisterFile* one = nullptr;
    tcRegisterFile* two = nullptr;
    std::thread first([&] { one = tcRegisterFile::getInstance("asked at once", true); });
    std::thread second([&] { two = tcRegisterFile::getInstance("asked at once", true); });
    first.join();
    second.join();
    EXPECT_NE(one, nullptr);
    EXPECT_EQ(one, two);
}
