// Physical addresses above 2 GiB as the C library gets them.

#include <varnox/mapped_registers.h>

#include <gmock/gmock.h>
#include <sys/types.h>

#include "fpga/mapped_block.h"
#include "sim/virtual_head.h"
#include "tests/platform/map_spy.h"

namespace {

using sim::aVirtualHead;
using sim::teEventKind;
using testing::ElementsAre;

// The host library has file offsets of 64 bits on every target: a negative one is no address.
TEST(FileOffset, OfTheHostLibraryIsTheAddressItself) {
    const auto head = aVirtualHead().build();
    takeMapCalls();
    const tcMappedRegisters lowest(0xFF200000, 1);
    const tcMappedRegisters frameControl(0xFF210000, 130);
    const tcMappedRegisters last(0xFF217000, 1024);
    EXPECT_THAT(takeMapCalls(),
                ElementsAre(tsMapCall{true, 4280287232}, tsMapCall{true, 4280352768},
                            tsMapCall{true, 4280381440}));
    EXPECT_EQ(frameControl.read(128), 0x46435231U);
}

// The plug-in has those of its build. The 32 bits of a negative one are the address's, and the C
// library hands them on without its sign.
TEST(FileOffset, OfThePlugInHasTheAddressInItsLowest32Bits) {
    const auto head = aVirtualHead().build();
    takeMapCalls();
    const tsMappedBlock frameControl(0xFF210000, 512);
    const tsMapCall expected =
        sizeof(off_t) == 4 ? tsMapCall{false, -14614528} : tsMapCall{true, 4280352768};
    EXPECT_THAT(takeMapCalls(), ElementsAre(expected));
    EXPECT_EQ(frameControl.read(128), 0x46435231U);
    EXPECT_EQ(head.lines(teEventKind::device)[1], "MAP 0xFF210000 16384");
}

} // namespace
