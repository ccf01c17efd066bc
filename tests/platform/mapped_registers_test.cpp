#include <varnox/mapped_registers.h>

#include <cerrno>

#include <gmock/gmock.h>

#include "sim/virtual_head.h"
#include "tests/platform/captured.h"

using sim::aVirtualHead;
using sim::teEventKind;
using testing::ElementsAre;

TEST(MappedRegisters, MapsWholePagesAndLetsThemGo) {
    const auto head = aVirtualHead().build();
    {
        const tcMappedRegisters registers(0xFF211000, 130);
        EXPECT_TRUE(registers.mapped());
    }
    EXPECT_THAT(head.lines(teEventKind::device),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF211000 4096", "CLOSE /dev/mem",
                            "UNMAP 0xFF211000 4096"));
}

TEST(MappedRegisters, ReachesTheWordsOfABlockInsideAPage) {
    const auto head = aVirtualHead().withSystemId(0x11, 0x22).build();
    const tcMappedRegisters registers(0xFF200004, 1);
    EXPECT_EQ(registers.read(0), 0x22U);
    EXPECT_THAT(head.lines(teEventKind::device | teEventKind::read),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF200000 4096", "CLOSE /dev/mem",
                            "READ 0xFF200004 0x00000022"));
}

TEST(MappedRegisters, MapsASecondPageForWordsThatReachIntoIt) {
    const auto head = aVirtualHead().build();
    const tcMappedRegisters one(0xFF213FFC, 1);
    const tcMappedRegisters two(0xFF213FFC, 2);
    EXPECT_THAT(head.lines(teEventKind::device),
                ElementsAre("OPEN /dev/mem", "MAP 0xFF213000 4096", "CLOSE /dev/mem",
                            "OPEN /dev/mem", "MAP 0xFF213000 8192", "CLOSE /dev/mem"));
}

TEST(MappedRegisters, LoadsAndStoresOneWordAtATime) {
    auto head = aVirtualHead().build();
    tcMappedRegisters registers(0xFF213000, 1024);
    head.clearLog();
    registers.write(0, 0x00010002);
    registers.write(1023, 0x0BAD0CAF);
    EXPECT_EQ(registers.read(1023), 0x0BAD0CAFU);
    EXPECT_THAT(head.lines(),
                ElementsAre("WRITE 0xFF213000 0x00010002", "WRITE 0xFF213FFC 0x0BAD0CAF",
                            "READ 0xFF213FFC 0x0BAD0CAF"));
}

TEST(MappedRegisters, TellsThatTheMemoryCannotBeOpened) {
    const auto head = aVirtualHead().withMemOpenFailing(EACCES).build();
    EXPECT_EQ(stderrOf([] {
                  const tcMappedRegisters registers(0xFF211000, 130);
                  EXPECT_FALSE(registers.mapped());
              }),
              "tcMappedRegisters: /dev/mem: open for 0xFF211000: Permission denied (errno 13)\n");
}

TEST(MappedRegisters, TellsThatTheBlockCannotBeMapped) {
    const auto head = aVirtualHead().withMapFailing(0xFF211000, EPERM).build();
    EXPECT_EQ(stderrOf([] {
                  const tcMappedRegisters registers(0xFF211000, 130);
                  EXPECT_FALSE(registers.mapped());
              }),
              "tcMappedRegisters: /dev/mem: mmap for 0xFF211000: Operation not permitted "
              "(errno 1)\n");
    EXPECT_THAT(head.lines(teEventKind::device).back(), "CLOSE /dev/mem");
}
