// Several threads at once.

#include <atomic>
#include <map>
#include <thread>

#include "tests/sensor/sensor_fixture.h"
#include "tests/support/lock_spy.h"

using std::chrono::microseconds;
using testing::Each;
using testing::IsEmpty;

namespace {

class Threads : public tcSensorFixture {};

TEST_F(Threads, WritesOfSeveralThreadsAllArriveWhole) {
    makePoweredSensor();
    std::vector<std::thread> writers;
    for (unsigned int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([&, writer] {
            for (unsigned int round = 0; round < 250; ++round) {
                const unsigned int address = 0x240 + (writer * 16 + round % 16);
                sensor().writeRegister(static_cast<unsigned short>(address), round * 0x1111);
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    std::map<std::uint16_t, std::uint32_t> copy{{0x10, 0}};
    for (unsigned int address = 0x240; address < 0x280; ++address) {
        copy[static_cast<std::uint16_t>(address)] = *shadow(static_cast<unsigned short>(address));
    }
    EXPECT_EQ(head().lines(sim::teEventKind::spi).size(), 1000U);
    EXPECT_THAT(head().compareShadow(copy), IsEmpty());
    EXPECT_EQ(shadow(0x240), 240U * 0x1111);
    EXPECT_EQ(shadow(0x27F), 239U * 0x1111);
}

TEST_F(Threads, ShadowCopyAndSensorAgreeOnARegisterThatAllWrite) {
    makePoweredSensor();
    std::vector<std::thread> writers;
    for (unsigned int writer = 1; writer <= 4; ++writer) {
        writers.emplace_back([&, writer] {
            for (unsigned int round = 0; round < 250; ++round) {
                sensor().writeRegister(0x250, writer * 0x1000 + round);
            }
        });
    }
    for (auto& writer : writers) {
        writer.join();
    }
    EXPECT_EQ(shadow(0x250), head().sensorRegister(0x250));
}

TEST_F(Threads, NoWriteComesBetweenTheLinesOfASettingsFile) {
    makePoweredSensor();
    std::string text;
    for (int line = 0; line < 50; ++line) {
        text += "251 1\n400 1\n";
    }
    directory().write("settings.txt", text);
    std::atomic<bool> done{false};
    std::thread other([&] {
        while (!done) {
            sensor().writeRegister(0x252, 2);
        }
    });
    for (int file = 0; file < 10; ++file) {
        sensor().writeRegistersFromFile("settings.txt");
    }
    done = true;
    other.join();
    int inFile = 0;
    for (const std::string& line : head().lines(sim::teEventKind::spi | sim::teEventKind::sleep)) {
        if (line == "SPI 02 00 80 94") {
            EXPECT_EQ(inFile % 100, 0);
        } else {
            ++inFile;
        }
    }
    EXPECT_EQ(inFile, 1000);
}

TEST_F(Threads, ReadsRunBesideWritesThatInsert) {
    makePoweredSensor();
    sensor().setMClockMhz(36.0F);
    std::atomic<bool> done{false};
    std::atomic<unsigned int> wrong{0};
    std::vector<std::thread> readers;
    for (int reader = 0; reader < 2; ++reader) {
        readers.emplace_back([&] {
            while (!done) {
                for (unsigned int address = 0x240; address < 0x400; ++address) {
                    const auto place = static_cast<unsigned short>(address);
                    unsigned int value = 0;
                    wrong += sensor().readShadowRegister(place, value) == 0 && value != 0 &&
                             value != address;
                    const unsigned int field = sensor().getRegisterField(place, 0xFFFFFFFF, 0);
                    wrong += field != 0 && field != address;
                }
                sensor().getHorizontalPeriod();
                static_cast<void>(sensor().getExposure());
                sensor().getFrameControlMode();
            }
        });
    }
    for (unsigned int address = 0x240; address < 0x400; ++address) {
        sensor().writeRegister(static_cast<unsigned short>(address), address);
    }
    sensor().setExposure(microseconds(100));
    done = true;
    for (auto& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0U);
}

TEST_F(Threads, PixelDepthAndBinningMayBeSetWhileGainIs) {
    makePoweredSensor();
    std::thread other([&] {
        for (int round = 0; round < 100; ++round) {
            sensor().setPixelDepth(round % 2 == 0 ? 10 : 12);
            sensor().setBin(2);
        }
    });
    for (int round = 0; round < 100; ++round) {
        const unsigned int result = sensor().setAGainFine(1);
        EXPECT_TRUE(result == 0 || result == 4);
        sensor().setBin(2);
    }
    other.join();
    EXPECT_EQ(shadow(0x90), 0x40000U);
}

TEST_F(Threads, ExposureAndReadoutMayBeAskedForWhileTheyAreSet) {
    makePoweredSensor();
    sensor().setMClockMhz(36.0F);
    sensor().writeRegister(0xB0, 899);
    sensor().writeRegister(0x12, 1000);
    std::atomic<bool> done{false};
    std::atomic<unsigned int> wrong{0};
    std::thread reader([&] {
        while (!done) {
            const auto exposure = sensor().getExposure().count();
            wrong += exposure != 0 && exposure != 10000 && exposure != 5000;
            wrong += sensor().getExposureMode() > 1U;
        }
    });
    for (int round = 0; round < 50; ++round) {
        sensor().setExposureMode(tc3U5MGXS::eExposureSingle);
        sensor().setExposure(microseconds(10000));
        sensor().setExposureMode(tc3U5MGXS::eExposureDual);
        sensor().setExposure(microseconds(5000));
        sensor().setMClockMhz(36.0F);
    }
    done = true;
    reader.join();
    EXPECT_EQ(wrong, 0U);
}

} // namespace
