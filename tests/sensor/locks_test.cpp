// The register lock: when it is held, and what happens when its owner dies.

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <thread>

#include "common/mutex_guard.h"
#include "tests/sensor/sensor_fixture.h"
#include "tests/support/consistency_spy.h"
#include "tests/support/lock_spy.h"

using std::chrono::microseconds;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// "NOTE LOCK" and "NOTE UNLOCK" in the trace; the lock is recursive.
class Locks : public tcSensorFixture {
protected:
    Locks() {
        makeSensor();
        lockSpy().afterLock = [this](const tcMutex&) { head().note("LOCK"); };
        lockSpy().beforeUnlock = [this](const tcMutex&) { head().note("UNLOCK"); };
        consistencySpy().before = [this] { head().note("CONSISTENT"); };
    }
    ~Locks() override {
        lockSpy() = {};
        consistencySpy() = {};
    }

    /// A thread writes a register and dies holding the lock.
    void killOwner() {
        std::thread([&] {
            keepsItsLocks() = true;
            sensor().writeRegister(0x30, 1);
        }).join();
    }

    /// perror prints here, past the streams.
    template<class Operation>
    static std::string errorsOf(Operation operation) {
        testing::internal::CaptureStderr();
        operation();
        return testing::internal::GetCapturedStderr();
    }
};

// ---- Held

TEST_F(Locks, AWriteHoldsTheLockOnceAroundItsFrame) {
    EXPECT_THAT(trace([&] { sensor().writeRegister(0x20, 1); }),
                ElementsAre("NOTE LOCK", "SPI 01 00 00 08", "NOTE UNLOCK"));
}

TEST_F(Locks, TheShadowCopyIsUpdatedUnderTheLockAfterTheFrame) {
    std::optional<unsigned int> duringWrite;
    std::optional<unsigned int> beforeUnlock;
    sensor().writeRegister(0x20, 1);
    lockSpy().beforeWrite = [&] { duringWrite = shadow(0x20); };
    lockSpy().beforeUnlock = [&](const tcMutex&) { beforeUnlock = shadow(0x20); };
    sensor().writeRegister(0x20, 2);
    EXPECT_EQ(duringWrite, 1U);
    EXPECT_EQ(beforeUnlock, 2U);
}

TEST_F(Locks, AnUnlockedWriteTakesNone) {
    EXPECT_THAT(trace([&] { sensor().writeRegisterUnlocked(0x20, 1); }),
                ElementsAre("SPI 01 00 00 08"));
}

TEST_F(Locks, ReadsTakeNone) {
    sensor().writeRegister(0x20, 1);
    unsigned int value = 0;
    EXPECT_THAT(trace([&] {
                    sensor().readShadowRegister(0x20, value);
                    sensor().readShadowRegister(0x21, value);
                    sensor().getRegisterField(0x20, 1, 0);
                    sensor().getRegisterField(0x22, 1, 0);
                    sensor().getHorizontalPeriod();
                    static_cast<void>(sensor().getExposure());
                    sensor().getFrameControlMode();
                    sensor().getAGainCourse();
                }),
                IsEmpty());
    EXPECT_THAT(trace([&] { sensor().dumpRegisterMap(); }),
                Each(testing::StartsWith("NOTE OUT SPI: ")));
}

TEST_F(Locks, AFieldIsReadBeforeTheLockIsTaken) {
    sensor().writeRegister(0x20, 1);
    std::optional<unsigned int> atLock;
    lockSpy().afterLock = [&](const tcMutex&) {
        atLock = shadow(0x21);
        sensor().writeRegisterUnlocked(0x20, 0xFF00); // too late to be seen
    };
    EXPECT_THAT(trace([&] { sensor().setRegisterField(0x20, 1, 1, 1); }, sim::teEventKind::spi),
                ElementsAre("SPI 00 FF 00 08", "SPI 03 00 00 08"));
    lockSpy().afterLock = [&](const tcMutex&) { atLock = shadow(0x21); };
    sensor().setRegisterField(0x21, 1, 1, 1);
    EXPECT_EQ(atLock, 0U); // the entry is there before the write
}

TEST_F(Locks, ASettingsFileHoldsTheLockFromBeginningToEnd) {
    directory().write("settings.txt", "20 1\n400 5\n21 1\n");
    EXPECT_THAT(trace([&] { sensor().writeRegistersFromFile("settings.txt"); }),
                ElementsAre("NOTE LOCK", "SPI 01 00 00 08", "SLEEP 5000 ns", "SPI 01 00 40 08",
                            "NOTE UNLOCK"));
}

TEST_F(Locks, AMissingSettingsFileTakesTheLockAllTheSame) {
    EXPECT_THAT(trace([&] { sensor().writeRegistersFromFile("missing.txt"); }),
                ElementsAre("NOTE LOCK", "NOTE UNLOCK"));
}

TEST_F(Locks, TheSettingsFileIsOpenedUnderTheLock) {
    lockSpy().afterLock = [&](const tcMutex&) { directory().write("settings.txt", "20 2\n"); };
    EXPECT_THAT(
        trace([&] { sensor().writeRegistersFromFile("settings.txt"); }, sim::teEventKind::spi),
        ElementsAre("SPI 02 00 00 08"));
}

TEST_F(Locks, ASettingsFileIsOpenedAfterTheLockIsTakenAndClosedBeforeItIsReleased) {
    directory().write("settings.txt", "20 1\n21 1\n");
    directory().write("malformed.txt", "20 1\noops\n");
    tcFileWatch files;
    const auto noteFiles = [&] { noteEvents(files); };
    lockSpy().afterLock = [&](const tcMutex&) {
        noteFiles();
        head().note("LOCK");
    };
    lockSpy().beforeWrite = noteFiles;
    lockSpy().beforeUnlock = [&](const tcMutex&) {
        noteFiles();
        head().note("UNLOCK");
    };
    EXPECT_THAT(trace([&] {
                    sensor().writeRegistersFromFile("settings.txt");
                    noteFiles();
                }),
                ElementsAre("NOTE LOCK", "NOTE OPENED settings.txt", "SPI 01 00 00 08",
                            "SPI 01 00 40 08", "NOTE CLOSED settings.txt", "NOTE UNLOCK"));
    EXPECT_THAT(trace([&] {
                    EXPECT_THROW(sensor().writeRegistersFromFile("malformed.txt"), std::exception);
                    noteFiles();
                }),
                ElementsAre("NOTE LOCK", "NOTE OPENED malformed.txt", "SPI 01 00 00 08",
                            "NOTE ERR \\nError writing registers: malformed.txt 2: oops\\n",
                            "NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n",
                            "NOTE CLOSED malformed.txt", "NOTE UNLOCK"));
}

TEST_F(Locks, AMalformedSettingsFileIsReportedUnderTheLockThatIsReleasedThen) {
    directory().write("settings.txt", "20 1\noops\n");
    EXPECT_THAT(trace([&] {
                    EXPECT_THROW(sensor().writeRegistersFromFile("settings.txt"), std::exception);
                }),
                ElementsAre("NOTE LOCK", "SPI 01 00 00 08",
                            "NOTE ERR \\nError writing registers: settings.txt 2: oops\\n",
                            "NOTE ERR eof: 0 good: 0 fail: 1 bad: 0\\n", "NOTE UNLOCK"));
    // another thread gets it at once
    int result = -1;
    std::thread([&] { result = sensor().writeRegister(0x21, 1); }).join();
    EXPECT_EQ(result, 0);
}

TEST_F(Locks, AnAreaHoldsTheLockAroundItsLogAndBothWrites) {
    EXPECT_THAT(trace([&] { sensor().setROIArea(0, 0, 1, 0, 5); }),
                ElementsAre("NOTE LOCK",
                            "NOTE OUT setROIArea Num: 0 RowS: 0 RowE: 1 ColS: 0 ColE: 5\\n",
                            "NOTE LOCK", "SPI 00 00 00 25", "NOTE UNLOCK", // 0x94
                            "NOTE LOCK", "SPI 00 00 40 25", "NOTE UNLOCK", // 0x95
                            "NOTE UNLOCK"));
}

TEST_F(Locks, AnAreaThatDoesNotExistTakesTheLockToo) {
    EXPECT_THAT(trace([&] { sensor().setROIArea(8, 0, 1, 0, 5); }),
                ElementsAre("NOTE LOCK",
                            "NOTE OUT setROIArea Num: 8 RowS: 0 RowE: 1 ColS: 0 ColE: 5\\n",
                            "NOTE UNLOCK"));
}

TEST_F(Locks, EachWriteOfAResetIsALockedSectionOfItsOwn) {
    const auto lines = trace([&] { sensor().resetROIAreas(); });
    ASSERT_EQ(lines.size(), 48U);
    for (std::size_t write = 0; write < 16; ++write) {
        EXPECT_EQ(lines[3 * write], "NOTE LOCK");
        EXPECT_EQ(lines[3 * write + 1].substr(0, 4), "SPI ");
        EXPECT_EQ(lines[3 * write + 2], "NOTE UNLOCK");
    }
}

TEST_F(Locks, AnExceptionFromTheDeviceReleasesTheLockAndLeavesTheShadowCopy) {
    lockSpy().beforeWrite = [] { throw std::runtime_error("device"); };
    EXPECT_THAT(trace([&] { EXPECT_THROW(sensor().writeRegister(0x20, 1), std::runtime_error); }),
                ElementsAre("NOTE LOCK", "NOTE UNLOCK"));
    EXPECT_EQ(shadow(0x20), std::nullopt);
    lockSpy().beforeWrite = {};
    int result = -1;
    std::thread([&] { result = sensor().writeRegister(0x20, 2); }).join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(shadow(0x20), 2U);
}

TEST_F(Locks, AnExceptionInAnAreaReleasesBothLocks) {
    lockSpy().beforeWrite = [] { throw std::runtime_error("device"); };
    EXPECT_THROW(sensor().setROIArea(0, 0, 1, 0, 5), std::runtime_error);
    lockSpy().beforeWrite = {};
    int result = -1;
    std::thread([&] { result = sensor().writeRegister(0x20, 2); }).join();
    EXPECT_EQ(result, 0);
}

// ---- An owner that died

TEST_F(Locks, AWriteAfterTheOwnerDiedMakesTheLockConsistent) {
    killOwner();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegister(0x20, 1), 0); }),
                ElementsAre("NOTE LOCK", "NOTE CONSISTENT", "SPI 01 00 00 08", "NOTE UNLOCK"));
    EXPECT_EQ(err().text(), "");
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegister(0x20, 2), 0); }),
                ElementsAre("NOTE LOCK", "SPI 02 00 00 08", "NOTE UNLOCK"));
}

TEST_F(Locks, ASettingsFileAfterTheOwnerDiedMakesTheLockConsistent) {
    directory().write("settings.txt", "20 1\n");
    killOwner();
    EXPECT_THAT(trace([&] { EXPECT_EQ(sensor().writeRegistersFromFile("settings.txt"), 0); }),
                ElementsAre("NOTE LOCK", "NOTE CONSISTENT", "SPI 01 00 00 08", "NOTE UNLOCK"));
    EXPECT_EQ(sensor().writeRegister(0x20, 2), 0);
}

TEST_F(Locks, AnAreaAfterTheOwnerDiedMakesTheLockConsistent) {
    killOwner();
    const auto lines = trace([&] { EXPECT_EQ(sensor().setROIArea(8, 0, 1, 0, 5), 0); });
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1], "NOTE CONSISTENT");
    EXPECT_EQ(sensor().writeRegister(0x20, 2), 0);
}

TEST_F(Locks, AnOwnerMayDieAgainAndAgain) {
    for (int round = 0; round < 3; ++round) {
        killOwner();
        EXPECT_EQ(sensor().writeRegister(0x20, 1), 0);
    }
}

TEST_F(Locks, AnOwnerThatDiedInASettingsFileLeavesWhatItWrote) {
    directory().write("settings.txt", "20 1\n21 2\n");
    std::thread([&] {
        keepsItsLocks() = true;
        sensor().writeRegistersFromFile("settings.txt");
    }).join();
    EXPECT_EQ(shadow(0x21), 2U);
    EXPECT_EQ(sensor().writeRegister(0x20, 3), 0);
    EXPECT_EQ(shadow(0x20), 3U);
}

TEST_F(Locks, ALockThatStaysInconsistentIsReportedAndTheWriteGoesOn) {
    killOwner();
    consistencySpy().result = EINVAL;
    std::vector<std::string> lines;
    EXPECT_EQ(
        errorsOf([&] { lines = trace([&] { EXPECT_EQ(sensor().writeRegister(0x20, 7), 0); }); }),
        "pthread_mutex_consistent failed: Invalid argument\n");
    EXPECT_THAT(lines,
                ElementsAre("NOTE LOCK", "NOTE CONSISTENT", "SPI 07 00 00 08", "NOTE UNLOCK"));
    EXPECT_EQ(shadow(0x20), 7U);
}

TEST_F(Locks, ALockThatStaysInconsistentIsReportedAndTheSettingsFileGoesOn) {
    directory().write("settings.txt", "20 7\n");
    killOwner();
    consistencySpy().result = EINVAL;
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(sensor().writeRegistersFromFile("settings.txt"), 0); }),
              "pthread_mutex_consistent failed: Invalid argument\n");
    EXPECT_EQ(shadow(0x20), 7U);
}

TEST_F(Locks, AnAreaHoldsAnInconsistentLockOnceMore) {
    killOwner();
    consistencySpy().result = EINVAL;
    EXPECT_EQ(errorsOf([&] { EXPECT_EQ(sensor().setROIArea(0, 0, 2, 0, 6), 0); }),
              "pthread_mutex_consistent failed: Invalid argument\n");
    EXPECT_EQ(shadow(0x94), 0x800U);
    EXPECT_EQ(shadow(0x95), 0x1000U);
}

TEST_F(Locks, ALostLockStopsNoWrite) {
    killOwner();
    consistencySpy().result = EINVAL;
    errorsOf([&] { sensor().writeRegister(0x20, 7); });
    consistencySpy().result = 0;
    // Unlocked inconsistent, it is lost for good; frames go out all the same.
    EXPECT_EQ(sensor().writeRegister(0x20, 8), ENOTRECOVERABLE);
    EXPECT_EQ(shadow(0x20), 8U);
}

TEST_F(Locks, TheResultOfAWriteIsThatOfReleasingTheLock) {
    lockSpy().unlockResult = EPERM;
    EXPECT_EQ(sensor().writeRegister(0x20, 8), EPERM);
    EXPECT_EQ(sensor().setMClockMhz(36.0F), EPERM);
    EXPECT_EQ(sensor().setTestSigEnable(true), EPERM);
    lockSpy().unlockResult = 0;
    EXPECT_EQ(sensor().writeRegister(0x20, 8), 0);
}

// ---- The guard by itself

TEST_F(Locks, AGuardEndsItsSectionOnce) {
    tcMutex mutex(true);
    EXPECT_THAT(trace([&] {
                    tcMutexGuard guard(mutex);
                    EXPECT_EQ(guard.unlock(), 0);
                }),
                ElementsAre("NOTE LOCK", "NOTE UNLOCK"));
    EXPECT_THAT(trace([&] { const tcMutexGuard guard(mutex); }),
                ElementsAre("NOTE LOCK", "NOTE UNLOCK"));
}

} // namespace
