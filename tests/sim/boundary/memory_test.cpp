// "/dev/mem", and what is mapped through it.

#include <atomic>
#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "sim/virtual_head.h"
#include "tests/sim/head_user.h"

namespace {

using sim::teEventKind;
using testing::ElementsAre;
using testing::IsEmpty;

volatile std::uint32_t* wordsAt(void* pages) {
    return static_cast<volatile std::uint32_t*>(pages);
}

TEST(Memory, MappingIsOpenMapAndClose) {
    const auto head = sim::aVirtualHead().build();
    { const tcRegisters base(0xFF200000); }
    EXPECT_THAT(head.lines(teEventKind::device),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 16384", "CLOSE /dev/mem",
                            "UNMAP 0xFF200000 16384"));
}

TEST(Memory, WindowsThatOverlapReachTheSameRegisters) {
    const auto head = sim::aVirtualHead().build();
    tcRegisters frameControl(0xFF210000);  // four pages
    tcRegisters pulses(0xFF211000, 4096);  // the second of them
    frameControl.write(1024 + 1, 3600000); // word 1 of the second page
    EXPECT_EQ(pulses.read(1), 3600000U);
    EXPECT_THAT(head.lines(teEventKind::read | teEventKind::write),
                ElementsAre("WRITE 0xFF211004 0x0036EE80", "READ 0xFF211004 0x0036EE80"));
}

TEST(Memory, UnmappingAPartLeavesTheRest) {
    const auto head = sim::aVirtualHead().build();
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    void* pages =
        mmap(nullptr, 16384, PROT_READ | PROT_WRITE, MAP_SHARED, memory, fileOffset(0xFF210000));
    ASSERT_NE(pages, MAP_FAILED);
    EXPECT_EQ(munmap(pages, 100), 0);                   // the kernel rounds up to one page
    EXPECT_EQ(wordsAt(pages)[1024 + 128], 0x50574D31U); // the next page is still there
    EXPECT_EQ(head.lines(teEventKind::device).back(), "UNMAP 0xFF210000 100");
    EXPECT_DEATH(static_cast<void>(wordsAt(pages)[0]), "");
    EXPECT_EQ(munmap(static_cast<char*>(pages) + 1, 4096), -1);
    EXPECT_EQ(errno, EINVAL);
    munmap(static_cast<char*>(pages) + 4096, 12288);
    close(memory);
}

TEST(Memory, OnlyTheRegisterRegionCanBeMapped) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const tcRegisters below(0xFF1FF000, 4096);
    const tcRegisters above(0xFF217000, 8192);
    const tcRegisters ram(0x12000000, 4096);
    const tcRegisters last(0xFF217000, 4096);
    EXPECT_FALSE(below.mapped());
    EXPECT_FALSE(above.mapped());
    EXPECT_FALSE(ram.mapped());
    EXPECT_TRUE(last.mapped());
    ASSERT_EQ(head.violations().size(), 3U);
    EXPECT_EQ(head.violations()[2].rule, "memory-range");
    EXPECT_EQ(head.violations()[2].text, "a mapping of 4096 bytes at 0x12000000");
}

TEST(Memory, RegistersMustBeMappedUncachedAndShared) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    const int cached = open("/dev/mem", O_RDWR);
    void* pages =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, cached, fileOffset(0xFF200000));
    ASSERT_NE(pages, MAP_FAILED);
    munmap(pages, 4096);
    close(cached);
    ASSERT_EQ(head.violations().size(), 1U);
    EXPECT_EQ(head.violations()[0].rule, "memory-cached");
}

TEST(Memory, WhatTheKernelRefusesIsRefused) {
    const auto head = sim::aVirtualHead().build();
    const int readOnly = open("/dev/mem", O_RDONLY | O_SYNC);
    EXPECT_EQ(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, readOnly, fileOffset(0xFF200000)),
        MAP_FAILED);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, readOnly, fileOffset(0xFF200004)),
              MAP_FAILED);
    EXPECT_EQ(errno, EINVAL);
    // Neither shared nor private.
    EXPECT_EQ(mmap(nullptr, 4096, PROT_READ, 0, readOnly, fileOffset(0xFF200000)), MAP_FAILED);
    EXPECT_EQ(errno, EINVAL);
    close(readOnly);
    EXPECT_TRUE(head.violations().empty());
}

TEST(Memory, OpeningAndMappingFailAsAskedFor) {
    {
        const auto head = sim::aVirtualHead().withMemOpenFailing(EACCES).build();
        EXPECT_EQ(open("/dev/mem", O_RDWR | O_SYNC), -1);
        EXPECT_EQ(errno, EACCES);
    }
    const auto head = sim::aVirtualHead().withMapFailing(0xFF204000, ENOMEM).build();
    const tcRegisters clock(0xFF204000);
    EXPECT_EQ(errno, ENOMEM);
    const tcRegisters base(0xFF200000);
    EXPECT_FALSE(clock.mapped());
    EXPECT_TRUE(base.mapped());
    EXPECT_EQ(head.lines(teEventKind::device)[1], "MAP 0xFF204000 16384 failed ENOMEM");
}

TEST(Memory, AnUnmodelledRegisterReadsDeadBeefAndIsAViolation) {
    const auto head = sim::aVirtualHead().withQuietViolations().build();
    tcRegisters frameControl(0xFF210000);
    EXPECT_EQ(frameControl.read(3), 0xDEADBEEFU);
    frameControl.write(7, 1);
    EXPECT_EQ(frameControl.read(13), 0xDEADBEEFU); // write only
    frameControl.write(12, 0);                     // read only
    frameControl.write(2, 0x1000);                 // twelve bits exist
    std::vector<std::string> rules;
    for (const auto& violation : head.violations()) {
        rules.push_back(violation.rule);
    }
    EXPECT_THAT(rules, ElementsAre("fpga-unmodelled", "fpga-unmodelled", "fpga-write-only",
                                   "fpga-read-only", "fpga-reserved"));
    EXPECT_EQ(head.violations()[0].text, "a load from 0xFF21000C");
    EXPECT_EQ(head.violations()[4].text,
              "a store of 0x00001000 to 0xFF210008; bits that exist are 0x00000FFF");
}

TEST(Memory, FourThreadsLoseNoAccess) {
    constexpr unsigned threads = 4;
    constexpr std::uint32_t rounds = 5000;
    const auto head = sim::aVirtualHead().build();
    tcRegisters table(0xFF213000, 4096);
    std::vector<std::thread> workers;
    std::vector<std::uint32_t> wrong(threads, 0);
    for (unsigned thread = 0; thread < threads; ++thread) {
        workers.emplace_back([&table, &wrong, thread] {
            for (std::uint32_t round = 0; round < rounds; ++round) {
                table.write(thread, round);
                wrong[thread] += table.read(thread) == round ? 0U : 1U;
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    EXPECT_THAT(wrong, ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(head.log(teEventKind::write).size(), 20000U);
    EXPECT_EQ(head.log(teEventKind::read).size(), 20000U);
    std::vector<std::uint32_t> next(threads, 0);
    for (const sim::tsEvent& event : head.log(teEventKind::write)) {
        std::uint32_t& expected = next[(event.address - 0xFF213000) / 4];
        ASSERT_EQ(event.value, expected);
        ++expected;
    }
}

TEST(Memory, AChildProcessCanUseTheHeadWhateverOtherThreadsDo) {
    const auto head = sim::aVirtualHead().build();
    tcRegisters base(0xFF200000);
    std::atomic<bool> stop{false};
    std::thread busy([&] {
        while (!stop) {
            static_cast<void>(base.read(0));
        }
    });
    for (int round = 0; round < 20; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(base.read(0) == 0x3505 ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    busy.join();
}

#if defined(__x86_64__)
TEST(Memory, FourThreadsLoseNoReadModifyWrite) {
    constexpr unsigned threads = 4;
    constexpr std::uint32_t rounds = 2000;
    const auto head = sim::aVirtualHead().build();
    tcRegisters table(0xFF213000, 4096);
    std::vector<std::thread> workers;
    for (unsigned thread = 0; thread < threads; ++thread) {
        workers.emplace_back([&table, thread] {
            for (std::uint32_t round = 0; round < rounds; ++round) {
                asm volatile("addl $3, %0" : "+m"(table.words()[thread]) : : "cc");
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    for (std::uint32_t thread = 0; thread < threads; ++thread) {
        EXPECT_EQ(head.fpgaWord(0xFF213000 + 4 * thread), 6000U);
    }
    EXPECT_EQ(head.log(teEventKind::write).size(), 8000U);
}
#endif

// --- Signals ---

sigjmp_buf s_back;
volatile std::sig_atomic_t s_seen = 0;

void remember(int number) {
    s_seen = number;
    siglongjmp(s_back, 1);
}

TEST(Signals, TheProgramsOwnHandlerGetsItsFaults) {
    const auto head = sim::aVirtualHead().build();
    tcRegisters base(0xFF200000);
    EXPECT_EQ(base.read(0), 0x3505U);
    struct sigaction action {};
    struct sigaction before {};
    struct sigaction seen {};
    action.sa_handler = remember;
    ASSERT_EQ(sigaction(SIGSEGV, &action, &before), 0);
    ASSERT_EQ(sigaction(SIGSEGV, nullptr, &seen), 0);
    EXPECT_EQ(seen.sa_handler, remember);
    void* nothing = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    s_seen = 0;
    if (sigsetjmp(s_back, 1) == 0) {
        static_cast<void>(wordsAt(nothing)[0]);
    }
    EXPECT_EQ(s_seen, SIGSEGV);
    EXPECT_EQ(base.read(1), 0x10203U); // registers are still ours
    EXPECT_EQ(signal(SIGSEGV, before.sa_handler), remember);
    sigaction(SIGSEGV, &before, nullptr);
    munmap(nothing, 4096);
}

TEST(Signals, AHandlerThatWasThereBeforeGetsItsFaults) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = remember;
    sigaction(SIGSEGV, &action, &before);
    const auto head = sim::aVirtualHead().build();
    tcRegisters base(0xFF200000);
    s_seen = 0;
    void* nothing = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (sigsetjmp(s_back, 1) == 0) {
        static_cast<void>(wordsAt(nothing)[0]);
    }
    EXPECT_EQ(s_seen, SIGSEGV);
    sigaction(SIGSEGV, &before, nullptr);
    munmap(nothing, 4096);
}

TEST(Signals, BlockingFaultsDoesNotStopRegisterAccesses) {
    const auto head = sim::aVirtualHead().build();
    tcRegisters base(0xFF200000);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ASSERT_EQ(sigprocmask(SIG_BLOCK, &all, &before), 0);
    EXPECT_EQ(base.read(0), 0x3505U);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &all, nullptr), 0);
    EXPECT_EQ(base.read(0), 0x3505U);
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, &before, &now);
    EXPECT_EQ(sigismember(&now, SIGSEGV), 0);
    EXPECT_EQ(sigismember(&now, SIGTERM), 1);
}

TEST(Signals, AnAccessKeepsErrno) {
    const auto head = sim::aVirtualHead().build();
    tcRegisters base(0xFF200000);
    errno = EXDEV;
    static_cast<void>(base.read(0));
    EXPECT_EQ(errno, EXDEV);
}

TEST(Signals, AnAccessToAHeadThatIsGoneFaults) {
    auto words = [] {
        const auto head = sim::aVirtualHead().build();
        const int memory = open("/dev/mem", O_RDWR | O_SYNC);
        void* pages = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, memory, fileOffset(0xFF200000));
        close(memory);
        return wordsAt(pages);
    }();
    EXPECT_DEATH(static_cast<void>(words[0]), "");
}

} // namespace
