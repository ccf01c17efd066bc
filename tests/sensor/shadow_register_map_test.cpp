#include "sensor/shadow_register_map.h"

#include <atomic>
#include <map>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using tcEntries = std::vector<std::pair<std::uint16_t, std::uint32_t>>;

tcEntries entriesOf(const tcShadowRegisterMap& map) {
    tcEntries result;
    map.forEach(
        [&](std::uint16_t address, std::uint32_t value) { result.emplace_back(address, value); });
    return result;
}

TEST(ShadowRegisterMap, IsEmptyAtFirst) {
    const tcShadowRegisterMap map;
    EXPECT_THAT(entriesOf(map), IsEmpty());
    EXPECT_FALSE(map.contains(0));
    EXPECT_FALSE(map.contains(65535));
}

TEST(ShadowRegisterMap, FindsWhatWasStoredAndNothingElse) {
    tcShadowRegisterMap map;
    map.store(0x94, 0xFFFFFFFF);
    std::uint32_t value = 5;
    EXPECT_TRUE(map.find(0x94, value));
    EXPECT_EQ(value, 0xFFFFFFFFU);
    value = 5;
    for (const std::uint16_t other :
         std::initializer_list<std::uint16_t>{0x93, 0x95, 0x74, 0xB4, 0x0, 0x8094}) {
        EXPECT_FALSE(map.find(other, value));
        EXPECT_FALSE(map.contains(other));
    }
    EXPECT_EQ(value, 5U);
}

TEST(ShadowRegisterMap, FindingAddsNothing) {
    tcShadowRegisterMap map;
    std::uint32_t value = 0;
    EXPECT_FALSE(map.find(1, value));
    EXPECT_FALSE(map.contains(1));
    EXPECT_THAT(entriesOf(map), IsEmpty());
}

TEST(ShadowRegisterMap, FindOrInsertAddsAZeroOnceAndKeepsAValue) {
    tcShadowRegisterMap map;
    EXPECT_EQ(map.findOrInsert(0x31), 0U);
    EXPECT_TRUE(map.contains(0x31));
    map.store(0x31, 9);
    EXPECT_EQ(map.findOrInsert(0x31), 9U);
    EXPECT_THAT(entriesOf(map), ElementsAre(Pair(0x31, 9)));
}

TEST(ShadowRegisterMap, VisitsInAscendingOrderAcrossEveryBoundary) {
    tcShadowRegisterMap map;
    for (const std::uint16_t address :
         std::initializer_list<std::uint16_t>{65535, 32, 0, 31, 1024, 33, 63, 64, 1}) {
        map.store(address, address + 1U);
    }
    EXPECT_THAT(entriesOf(map),
                ElementsAre(Pair(0, 1), Pair(1, 2), Pair(31, 32), Pair(32, 33), Pair(33, 34),
                            Pair(63, 64), Pair(64, 65), Pair(1024, 1025), Pair(65535, 65536)));
}

TEST(ShadowRegisterMap, IsAnOrderedMap) {
    tcShadowRegisterMap map;
    std::map<std::uint16_t, std::uint32_t> model;
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        const auto address = static_cast<std::uint16_t>(random() >> (16 + random() % 12));
        const auto value = static_cast<std::uint32_t>(random());
        switch (random() % 3) {
        case 0:
            map.store(address, value);
            model[address] = value;
            break;
        case 1:
            ASSERT_EQ(map.findOrInsert(address), model[address]);
            break;
        default: {
            std::uint32_t found = 1;
            const auto at = model.find(address);
            ASSERT_EQ(map.find(address, found), at != model.end());
            ASSERT_EQ(found, at != model.end() ? at->second : 1U);
        }
        }
    }
    EXPECT_EQ(entriesOf(map), tcEntries(model.begin(), model.end()));
}

TEST(ShadowRegisterMap, ReadersBesideAnInsertingWriterSeeWholeValues) {
    tcShadowRegisterMap map;
    std::atomic<bool> done{false};
    std::atomic<unsigned> torn{0};
    const auto good = [](std::uint16_t address, std::uint32_t value) {
        // what the writer stores, or the zero of an entry that a reader made
        return value == 0 || value == address * 0x10001U;
    };
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 3; ++reader) {
        readers.emplace_back([&, reader] {
            while (!done) {
                std::uint32_t value = 0;
                int last = -1;
                map.forEach([&](std::uint16_t address, std::uint32_t entry) {
                    torn += !good(address, entry) || address <= last;
                    last = address;
                });
                for (unsigned int address = 0; address < 4096; address += 3) {
                    const auto place = static_cast<std::uint16_t>(address);
                    torn += map.find(place, value) && !good(place, value);
                    if (reader == 0) {
                        torn += !good(place, map.findOrInsert(place));
                    }
                }
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        for (unsigned int address = 0; address < 4096; ++address) {
            map.store(static_cast<std::uint16_t>(address), address * 0x10001U);
        }
    }
    done = true;
    for (auto& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(torn, 0U);
    for (unsigned int address = 0; address < 4096; ++address) {
        ASSERT_EQ(map.findOrInsert(static_cast<std::uint16_t>(address)), address * 0x10001U);
    }
}

TEST(ShadowRegisterMap, AnAccessThatInsertsNeverUndoesAStoreBesideIt) {
    for (int round = 0; round < 50; ++round) {
        tcShadowRegisterMap map;
        std::thread other([&] {
            for (unsigned int address = 0; address < 512; ++address) {
                map.findOrInsert(static_cast<std::uint16_t>(address));
            }
        });
        for (unsigned int address = 0; address < 512; ++address) {
            map.store(static_cast<std::uint16_t>(address), 7);
        }
        other.join();
        for (unsigned int address = 0; address < 512; ++address) {
            ASSERT_EQ(map.findOrInsert(static_cast<std::uint16_t>(address)), 7U);
        }
    }
}

} // namespace
