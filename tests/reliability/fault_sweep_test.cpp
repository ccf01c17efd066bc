// One thing fails, then the next, until everything has failed once; then two things at a time.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/reliability/fault.h"
#include "tests/reliability/file_opens.h"
#include "tests/reliability/job.h"
#include "tests/reliability/live_blocks.h"
#include "tests/reliability/seed.h"
#include "tests/reliability/worker.h"
#include "tests/support/board_fixture.h"
#include "tests/support/temporary_directory.h"

#if defined(HEAD_ADDRESS_SANITIZER)
#include <sanitizer/lsan_interface.h>
#endif

namespace fs = std::filesystem;
using sim::teCall;

namespace {

constexpr const char* kSpi = "/dev/spidev1.0";
constexpr const char* kGpio = "/dev/gpiochip0";
constexpr const char* kI2c = "/dev/i2c-1";
constexpr const char* kMem = "/dev/mem";

// Every call fails at least once in every build. A sanitizer makes a life ten times as long: a
// third of a call's errnos then, another third at the next call. What the target adds is its own
// structures and offsets at each call, not other errnos: a seventh there, as its emulator is ten
// times as slow.
#if defined(HEAD_ADDRESS_SANITIZER) || defined(HEAD_THREAD_SANITIZER)
constexpr std::size_t kStride = 3;
#elif defined(__arm__)
constexpr std::size_t kStride = 7;
#else
constexpr std::size_t kStride = 1;
#endif

/// Whether two faults are of the same call, or of the same kind at the same file.
bool isSameCall(const tsFault& one, const tsFault& other) {
    return one.call == other.call && one.device == other.device && one.nth == other.nth &&
           one.isOfAccess() == other.isOfAccess() &&
           (one.file == tsFault::teFile::none) == (other.file == tsFault::teFile::none);
}

/// \return of each call at least one fault, and every `kStride`th
std::vector<tsFault> chosenOf(const std::vector<tsFault>& faults) {
    std::vector<tsFault> chosen;
    std::size_t turn = 0;
    for (auto begin = faults.begin(); begin != faults.end();) {
        const auto end = std::find_if(
            begin, faults.end(), [&](const tsFault& fault) { return !isSameCall(*begin, fault); });
        const auto count = static_cast<std::size_t>(end - begin);
        for (std::size_t at = turn++ % std::min(kStride, count); at < count; at += kStride) {
            chosen.push_back(begin[static_cast<std::ptrdiff_t>(at)]);
        }
        begin = end;
    }
    return chosen;
}

/// Everything but frames takes well under a second; the three bring-ups of a dead link take 100 ms
/// each. A life that takes longer waits for something that does not come.
constexpr std::chrono::seconds kLongestLife(3);

// ---- What ends the process, and is meant to

struct tsFatal {
    teCall call;
    const char* device;
    std::uint64_t nth;
    const char* why;
};

/// The whole list. A fault that is not here must not kill, one that is must.
constexpr std::array kFatal{
    tsFatal{teCall::open, kMem, 2,
            "the clock generator's block is not mapped, and is no part of the mask that "
            "`initialize` checks: the register dump at its end touches it"},
    tsFatal{teCall::mmap, kMem, 2, "the same block, mapped instead of opened"},
};

/// How a process dies of a block that is not mapped. A sanitizer reports the signal and exits.
#if defined(HEAD_ADDRESS_SANITIZER)
constexpr const char* kFatalDeath = "exit 1";
#elif defined(HEAD_THREAD_SANITIZER)
constexpr const char* kFatalDeath = "exit 66";
#else
constexpr const char* kFatalDeath = "signal 11"; // SIGSEGV
#endif

bool isFatal(const tsFault& fault) {
    return std::any_of(kFatal.begin(), kFatal.end(), [&](const tsFatal& fatal) {
        return fault.is(fatal.call, fatal.device) && fault.nth == fatal.nth;
    });
}

// ---- What a fault must lead to

/// How it shows to host and user.
struct tsExpected {
    int initialized = 0;
    std::vector<std::string> reports{}; ///< each whole, as standard error has them
    std::vector<std::string> errors{};  ///< status lines of level 4 of `initialize`
    bool sameResults = true;            ///< of every other operation, as without the fault
};

std::string because(int error) {
    if (error == sim::kShort) { // a part of a transfer is none
        error = EIO;
    }
    return std::string(": ") + std::strerror(error) + " (errno " + std::to_string(error) + ")\n";
}

tsExpected powerFails(int result, std::string report, std::vector<std::string> before = {}) {
    before.emplace_back("4 Sensor powerup error!");
    return {result, {std::move(report)}, std::move(before), false};
}

/// Where the call stands among those of its kind, from 0.
std::size_t placeOf(const tsFault& fault) {
    return static_cast<std::size_t>(fault.nth - 1);
}

tsExpected spiFault(const tsFault& fault, const std::vector<std::string>& frames) {
    // The port's settings are read, changed and written back; from then on there are messages.
    constexpr std::array kSettings{"RD_MODE32",        "RD_LSB_FIRST",   "RD_BITS_PER_WORD",
                                   "RD_MAX_SPEED_HZ",  "WR_MODE32",      "WR_LSB_FIRST",
                                   "WR_BITS_PER_WORD", "WR_MAX_SPEED_HZ"};
    const std::string who = "tcSPIDevice: /dev/spidev1.0: ";
    if (fault.call == teCall::open) {
        return powerFails(6, who + "open" + because(fault.error), {"4 Failed to open spidev"});
    }
    if (fault.nth <= kSettings.size()) {
        const std::string setting = kSettings[placeOf(fault)];
        if (fault.error == EINVAL && setting.ends_with("MODE32")) {
            return {}; // an old kernel: the request of eight bits does it
        }
        if (fault.error == sim::kShort) {
            return {}; // a setting is taken or not
        }
        const std::string report = who + "SPI_IOC_" + setting + because(fault.error);
        return fault.nth > 4 ? powerFails(1, report) : tsExpected{0, {report}};
    }
    const std::string report = who + "SPI_IOC_MESSAGE" + because(fault.error);
    // Lost frames are reported, no more: the sensor cannot be asked. Only the one that switches the
    // lanes on for a link training shows.
    const std::string& lost = frames.at(placeOf(fault) - kSettings.size());
    if (lost == frames.at(90)) { // 0x10, lanes on: initialize, start, both clocks
        const std::size_t index = placeOf(fault) - kSettings.size();
        const auto before =
            std::count(frames.begin(), frames.begin() + static_cast<int>(index), lost);
        if (before == 0) {
            return {-1, {report, "PLL failed to lock\n"}, {}};
        }
        if (before >= 2) {
            return {0, {report, "PLL failed to lock\n"}, {}, false};
        }
    }
    return {0, {report}};
}

struct tsLine {
    const char* name;
    const char* place;
    std::size_t ioctls; ///< chip, every line up to this one, and the request of the line
};
constexpr std::array kLines{
    tsLine{"PS_1.2V_EN", "/dev/gpiochip0 line 5", 8},
    tsLine{"PS_3.3SVDD_EN", "/dev/gpiochip0 line 6", 9},
    tsLine{"PS_3.3AVDDH_EN", "/dev/gpiochip0 line 7", 10},
    tsLine{"RESET_B", "/dev/gpiochip0 line 11", 14},
    tsLine{"EXT_TRIG_EN", "/dev/gpiochip0 line 12", 15},
};

/// What a line that does not move leads to.
tsExpected deadLine(std::size_t line, std::vector<std::string> reports) {
    tsExpected expected;
    expected.reports = std::move(reports);
    if (line < 3) { // a supply that stays off
        expected.initialized = -4;
        expected.errors = {"4 Sensor powerup error!"};
        expected.sameResults = false;
    } else if (line == 3) { // the sensor stays in reset and sends nothing
        expected.initialized = -1;
        expected.sameResults = false;
    }
    return expected;
}

tsExpected lineNotFound(std::size_t line, const char* operation, int error) {
    return deadLine(line, {"ERROR: GPIO " + std::string(kLines[line].name) + " not found in DT\n",
                           "tcGpio: /dev/gpiochip0: " + std::string(operation) + because(error)});
}

tsExpected lineRefused(std::size_t line, const char* operation, int error) {
    return deadLine(line, {"tcGpioSingle: " + std::string(kLines[line].place) + ": " + operation +
                           because(error)});
}

tsExpected gpioFault(const tsFault& fault) {
    if (fault.call == teCall::open) { // each line is looked up, then requested
        const std::size_t line = placeOf(fault) / 2;
        return fault.nth % 2 == 1 ? lineNotFound(line, "open", fault.error)
                                  : lineRefused(line, "open", fault.error);
    }
    std::size_t nth = placeOf(fault) + 1;
    for (std::size_t line = 0; line < kLines.size(); ++line) {
        if (nth == 1) {
            return lineNotFound(line, "GPIO_GET_CHIPINFO", fault.error);
        }
        if (nth < kLines[line].ioctls) {
            return lineNotFound(line, "GPIO_V2_GET_LINEINFO", fault.error);
        }
        if (nth == kLines[line].ioctls) {
            return lineRefused(line, "GPIO_V2_GET_LINE", fault.error);
        }
        nth -= kLines[line].ioctls;
    }
    // Levels: reset low, the three supplies on, reset released, from then on the trigger line.
    constexpr std::array<std::size_t, 5> kLevels{3, 0, 1, 2, 3};
    tsExpected expected = lineRefused(nth <= kLevels.size() ? kLevels[nth - 1] : 4,
                                      "GPIO_V2_LINE_SET_VALUES", fault.error);
    if (nth == 1) { // low already
        expected.initialized = 0;
        expected.sameResults = true;
    }
    return expected;
}

tsExpected i2cFault(const tsFault& fault) {
    if (fault.call == teCall::open) {
        return powerFails(-4, "tcADS7828: /dev/i2c-1: open" + because(fault.error));
    }
    const std::string report = "tcADS7828: /dev/i2c-1: I2C_RDWR" + because(fault.error);
    // The reference is switched on, one reading is thrown away, then each supply is measured.
    return fault.nth <= 2 ? tsExpected{0, {report}} : powerFails(-4, report);
}

tsExpected memoryFault(const tsFault& fault) {
    struct tsBlock {
        int mask;
        const char* base; ///< of the host library's; the plug-in's own blocks use `perror`
    };
    constexpr std::array<tsBlock, 8> kBlocks{{{1, nullptr},
                                              {0, nullptr}, // fatal
                                              {2, nullptr},
                                              {4, "0xFF211000"},
                                              {8, "0xFF217000"},
                                              {16, "0xFF215000"},
                                              {16, "0xFF213000"},
                                              {16, "0xFF212000"}}};
    const tsBlock& block = kBlocks.at(placeOf(fault));
    const bool opens = fault.call == teCall::open;
    std::string report;
    if (block.base == nullptr) {
        report = std::string(opens ? kMem : "mmap") + ": " + std::strerror(fault.error) + "\n";
    } else {
        report = std::string("tcMappedRegisters: /dev/mem: ") + (opens ? "open" : "mmap") +
                 " for " + block.base + because(fault.error);
    }
    return {block.mask, {report}, {"4 FPGA Initialization error!"}, false};
}

tsExpected fileFault(const tsFault& fault) {
    tsExpected expected;
    if (fault.file == tsFault::teFile::broken &&
        (fault.error == sim::kShort || (fault.error == EINTR && !fault.device.ends_with(".ini")))) {
        return expected; // read on
    }
    if (fault.device.starts_with("version/")) {
        expected.sameResults = false; // the version says "???"
    }
    const bool unreadable =
        fault.file != tsFault::teFile::empty && fault.file != tsFault::teFile::cut;
    if (fault.device == "bad_pixel_map.txt" && unreadable) {
        expected.reports = {"tcBadPixelReplacement: setData: text (no readable file of that name), "
                            "line 1: \"bad_pixel_map.txt\" is not a pixel \"X Y\"; the map in "
                            "force stays\n"};
    }
    // Settings, INI and an empty map: a missing file means the defaults, and nothing is said.
    return expected;
}

tsExpected expectedOf(const tsFault& fault, const std::vector<std::string>& frames) {
    if (fault.file != tsFault::teFile::none) {
        return fileFault(fault);
    }
    if (fault.call == teCall::close || fault.call == teCall::munmap ||
        fault.call == teCall::sleep) {
        return {}; // closed all the same; slept on
    }
    return fault.device == kSpi    ? spiFault(fault, frames)
           : fault.device == kGpio ? gpioFault(fault)
           : fault.device == kI2c  ? i2cFault(fault)
                                   : memoryFault(fault);
}

// ---- Judging a life

class FaultSweep : public testing::Test {
protected:
    FaultSweep() {
        fs::copy(HEAD_DATA_DIRECTORY, m_directory.path(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        tsLifePlan plan;
        plan.spent = [this](const sim::tcVirtualHead& head) {
            m_calls = faultsOfCalls(head);
            m_frames = head.lines(sim::teEventKind::spi);
            m_files = faultsOfFiles();
            return true;
        };
        watchFiles();
        auto builder = aHead();
        live(builder, plan);
        plan = {};
        plan.initializesAgain = [](const sim::tcVirtualHead&) { return true; };
        m_healthy = live(builder, plan);
    }

    static sim::tcVirtualHeadBuilder aHead() {
        auto builder = sim::aVirtualHead();
        builder.withQuietViolations().withLogCapacity(kLogEvents);
        return builder;
    }

    /// A board that cannot reach its registers is given back: no host goes on with it.
    static bool losesRegisters(const std::vector<tsFault>& faults) {
        return std::any_of(faults.begin(), faults.end(), [](const tsFault& fault) {
            return fault.is(teCall::open, kMem) || fault.is(teCall::mmap, kMem);
        });
    }

    /// Whether the board of this life still has its devices, lines and blocks. They are opened,
    /// requested and mapped when it is built, and not once more.
    static bool isPassing(const tsFault& fault) {
        constexpr std::uint64_t kLineRequests = 56; // ioctls before the first level is set
        return fault.file != tsFault::teFile::none ||
               (fault.call != teCall::open && fault.call != teCall::mmap &&
                !(fault.is(teCall::ioctl, kGpio) && fault.nth <= kLineRequests));
    }

    static bool hasStruck(const tsFault& fault, const sim::tcVirtualHead& head) {
        return fault.file != tsFault::teFile::none ||
               head.calls(fault.call, fault.device) >= fault.nth;
    }

    /// Where 1.2 V alone failed to go on, both 3.3 V supplies stay on, as after every supply that
    /// is out of limits: a host that tries again switches 1.2 V on behind them. A new board does
    /// not, as requesting the lines switches all of them off.
    static std::vector<std::string> rulesBrokenAgain(const tsFault& fault) {
        constexpr std::uint64_t k1V2On = 58; // ioctl of the level
        if (fault.is(teCall::ioctl, kGpio) && fault.nth == k1V2On) {
            return {"supply-order"};
        }
        return {};
    }

    /// A life whose board is initialized once more when the fault is over.
    static tsLife liveAndTryAgain(const tsFault& fault) {
        return liveWith({fault}, [&](const sim::tcVirtualHead& head) {
            mend(fault);
            return isPassing(fault) && hasStruck(fault, head);
        });
    }

    static tsLife liveWith(const std::vector<tsFault>& faults,
                           std::function<bool(const sim::tcVirtualHead&)> initializesAgain = {}) {
        auto builder = aHead();
        for (const tsFault& fault : faults) {
            spoil(fault);
            if (fault.file == tsFault::teFile::none) {
                builder.withFailingCall(fault.call, fault.device, fault.nth, fault.error);
            }
        }
        tsLifePlan plan;
        plan.goOn = [&](int) { return !losesRegisters(faults); };
        plan.heal = [&] {
            for (const tsFault& fault : faults) {
                mend(fault);
            }
        };
        plan.spent = [&](const sim::tcVirtualHead& head) {
            return std::all_of(faults.begin(), faults.end(),
                               [&](const tsFault& fault) { return hasStruck(fault, head); });
        };
        plan.initializesAgain = std::move(initializesAgain);
        return live(builder, plan);
    }

    /// \return where two traces part
    static std::string difference(const std::vector<std::string>& trace,
                                  const std::vector<std::string>& meant) {
        const auto [here, there] =
            std::mismatch(trace.begin(), trace.end(), meant.begin(), meant.end());
        return " did \"" + (here == trace.end() ? "nothing" : *here) + "\" for \"" +
               (there == meant.end() ? "nothing" : *there) + "\"";
    }

    /// What holds whatever failed.
    std::vector<std::string> judge(const tsLife& life,
                                   const std::vector<std::string>& rulesBrokenAgain = {}) const {
        std::vector<std::string> wrong;
        const tsFollowUp& next = life.next;
        if (next.initialized != 0) {
            wrong.push_back("the next initialize gave " + std::to_string(next.initialized));
        }
        if (next.trace != m_healthy.next.trace) {
            wrong.push_back("the next board" + difference(next.trace, m_healthy.next.trace));
        }
        if (next.sensor != m_healthy.next.sensor || next.fpga != m_healthy.next.fpga) {
            wrong.emplace_back("the next board's registers differ");
        }
        if (next.violations != 0) {
            wrong.emplace_back("the next board broke a rule of the head");
        }
        if (life.descriptorsLost != 0 || life.descriptorsLostNext != 0) {
            wrong.push_back("descriptors lost: " + std::to_string(life.descriptorsLost) + ", " +
                            std::to_string(life.descriptorsLostNext));
        }
        if (life.again && life.again->initialized != 0) {
            wrong.push_back("once more, initialize gave " +
                            std::to_string(life.again->initialized));
        }
        if (life.again && life.again->trace != m_healthy.again->trace) {
            wrong.push_back("once more, initialize" +
                            difference(life.again->trace, m_healthy.again->trace));
        }
        if (life.again && life.again->broken != rulesBrokenAgain) {
            wrong.push_back("once more, initialize broke the rules " +
                            testing::PrintToString(life.again->broken));
        }
        if (life.job.took > kLongestLife) {
            wrong.push_back("took " + std::to_string(life.job.took.count()) + " ns");
        }
        return wrong;
    }

    /// Results and reports, as they are promised.
    std::vector<std::string> judgeReports(const tsFault& fault, const tsJob& job) const {
        std::vector<std::string> wrong;
        const tsExpected expected = expectedOf(fault, m_frames);
        if (job.initialized != expected.initialized) {
            wrong.push_back("initialize gave " + std::to_string(job.initialized) + ", not " +
                            std::to_string(expected.initialized));
        }
        for (const std::string& report : expected.reports) {
            if (job.errors.find(report) == std::string::npos) {
                wrong.push_back("not reported: " + report);
            }
        }
        if (expected.reports.empty() && !job.errors.empty()) {
            wrong.push_back("reported: " + job.errors);
        }
        for (const std::string& status : expected.errors) {
            if (std::find(job.statuses.begin(), job.statuses.end(), status) == job.statuses.end()) {
                wrong.push_back("no status " + status);
            }
        }
        if (expected.sameResults && expected.initialized == 0 &&
            job.results != m_healthy.job.results) {
            wrong.emplace_back("another operation's result changed");
        }
        return wrong;
    }

    /// \return what is wrong with the life; of one that is right, the memory that it lost
    template<class Life>
    static std::vector<std::string> judgeWithMemory(const Life& life) {
        const std::int64_t blocks = liveBlocks();
        std::vector<std::string> wrong = life();
        if (wrong.empty() && liveBlocks() > blocks) {
            wrong.push_back("blocks of memory lost: " + std::to_string(liveBlocks() - blocks));
        }
        return wrong;
    }

    static std::vector<std::string> leaks() {
#if defined(HEAD_ADDRESS_SANITIZER)
        if (__lsan_do_recoverable_leak_check() != 0) {
            return {"memory leaked; the sanitizer says where"};
        }
#endif
        return {};
    }

    const std::vector<tsFault>& calls() const {
        return m_calls;
    }
    const std::vector<tsFault>& files() const {
        return m_files;
    }
    const tsLife& healthy() const {
        return m_healthy;
    }

private:
    tcTemporaryDirectory m_directory;
    tsLife m_healthy;
    std::vector<tsFault> m_calls;
    std::vector<tsFault> m_files;
    std::vector<std::string> m_frames;
};

TEST_F(FaultSweep, ALifeWithoutAFaultIsQuiet) {
    EXPECT_EQ(healthy().job.initialized, 0);
    EXPECT_EQ(healthy().job.errors, "");
    EXPECT_EQ(judge(healthy()), std::vector<std::string>{});
    EXPECT_EQ(healthy().job.results.size(), 37U);
    EXPECT_GT(healthy().next.trace.size(), 200U);
    EXPECT_EQ(healthy().again->initialized, 0);
    EXPECT_GT(healthy().again->trace.size(), 200U);
    // The second board's stores are in its trace: pulse, bad-pixel table, pixel shift.
    for (const char* store : {"WRITE 0xFF211004 0x00124F80", "WRITE 0xFF215010 0x00000003",
                              "WRITE 0xFF217000 0x80000000"}) {
        EXPECT_NE(std::find(healthy().next.trace.begin(), healthy().next.trace.end(), store),
                  healthy().next.trace.end())
            << store;
    }
}

TEST_F(FaultSweep, EachFailureIsReportedAndLeavesTheHeadToTheNextBoard) {
    std::vector<tsFault> all = calls();
    all.insert(all.end(), files().begin(), files().end());
    const std::vector<tsFault> faults = chosenOf(all);
    const std::size_t count = faults.size();

    const tsWorkResult result = workInChildren(
        count,
        [&](std::size_t number) {
            const tsFault& fault = faults[number];
            return judgeWithMemory([&] {
                const tsLife life = liveAndTryAgain(fault);
                std::vector<std::string> wrong = judge(life, rulesBrokenAgain(fault));
                if (fault.isOfAccess() && !wasRefused(fault.device)) {
                    wrong.emplace_back("nobody opened the file or read so far");
                }
                if (isPassing(fault) && life.job.initialized != 0 && !life.again) {
                    wrong.emplace_back("not initialized once more");
                }
                const std::vector<std::string> more = judgeReports(fault, life.job);
                wrong.insert(wrong.end(), more.begin(), more.end());
                return wrong;
            });
        },
        leaks);

    std::size_t fatal = 0;
    for (std::size_t number = 0; number < count; ++number) {
        const tsFault& fault = faults[number];
        const auto death = result.deaths.find(number);
        const auto wrong = result.complaints.find(number);
        EXPECT_EQ(death == result.deaths.end() ? "lived" : death->second,
                  isFatal(fault) ? kFatalDeath : "lived")
            << fault.name();
        EXPECT_EQ(wrong == result.complaints.end() ? "" : testing::PrintToString(wrong->second), "")
            << fault.name();
        fatal += static_cast<std::size_t>(isFatal(fault));
    }
    EXPECT_EQ(result.ends, std::vector<std::string>{});
    EXPECT_EQ(result.done + fatal, count);
    std::cout << count << " of " << all.size() << " faults, " << fatal << " of them fatal\n";
}

TEST_F(FaultSweep, TwoFailuresAtATimeDoNoMoreHarm) {
    constexpr std::size_t kPairs = 1500 / kStride;
    std::mt19937 random(seedOf("FaultSweep"));
    std::vector<tsFault> faults = calls();
    faults.insert(faults.end(), files().begin(), files().end());
    std::erase_if(faults, isFatal);
    // Every call as often as any other, however many there are of its kind.
    std::map<std::string, std::vector<tsFault>> kinds;
    for (const tsFault& fault : faults) {
        kinds[fault.file == tsFault::teFile::none
                  ? fault.device + std::to_string(static_cast<int>(fault.call))
                  : "file"]
            .push_back(fault);
    }
    const auto any = [&] {
        const auto kind = std::next(kinds.begin(), static_cast<int>(random() % kinds.size()));
        return kind->second[random() % kind->second.size()];
    };
    std::vector<std::vector<tsFault>> pairs;
    for (std::size_t pair = 0; pair < kPairs; ++pair) {
        pairs.push_back({any(), any()});
    }

    const tsWorkResult result = workInChildren(
        kPairs,
        [&](std::size_t number) {
            return judgeWithMemory([&] { return judge(liveWith(pairs[number])); });
        },
        leaks);
    const auto name = [&](std::size_t pair) {
        return pairs[pair][0].name() + " and " + pairs[pair][1].name();
    };
    for (const auto& [pair, death] : result.deaths) {
        ADD_FAILURE() << name(pair) << ": " << death;
    }
    for (const auto& [pair, wrong] : result.complaints) {
        ADD_FAILURE() << name(pair) << ": " << testing::PrintToString(wrong);
    }
    EXPECT_EQ(result.ends, std::vector<std::string>{});
    EXPECT_EQ(result.done, kPairs);
}

// The undefined-behaviour sanitizer needs descriptors itself, whenever it probes memory with a
// pipe, and ends the process where there is none.
#ifndef HEAD_ADDRESS_SANITIZER
TEST_F(FaultSweep, AProcessWithoutDescriptorsLeftLosesNone) {
    constexpr std::size_t kMost = 24;
    const tsWorkResult result = workInChildren(
        kMost,
        [&](std::size_t spare) {
            rlimit before{};
            getrlimit(RLIMIT_NOFILE, &before);
            tsLifePlan plan;
            plan.goOn = [](int) { return false; };
            plan.atWork = [&] {
                rlimit limit = before;
                limit.rlim_cur = firstFreeDescriptor() + spare;
                setrlimit(RLIMIT_NOFILE, &limit);
            };
            plan.heal = [&] { setrlimit(RLIMIT_NOFILE, &before); };
            auto builder = aHead();
            const tsLife life = live(builder, plan);
            std::vector<std::string> wrong = judge(life);
            if (life.job.initialized != 0 &&
                life.job.errors.find("Too many open files") == std::string::npos) {
                wrong.push_back("not reported: " + life.job.errors);
            }
            // None at all: not even the sensor's port. Plenty: nothing is amiss.
            if ((spare == 0 && life.job.initialized != 6) ||
                (spare == kMost - 1 && life.job.initialized != 0)) {
                wrong.push_back("initialize gave " + std::to_string(life.job.initialized));
            }
            return wrong;
        },
        leaks);
    EXPECT_EQ(testing::PrintToString(result.deaths), "{}");
    EXPECT_EQ(testing::PrintToString(result.complaints), "{}");
    EXPECT_EQ(result.done, kMost);
}
#endif

} // namespace
