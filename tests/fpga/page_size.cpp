#include "tests/fpga/page_size.h"

namespace {
int wantedBytes = 0; // 0: the machine's own
}

// The linker takes calls of `getpagesize` in this program, not in its libraries, to the first of
// these and gives the C library's function the name of the second.
int pageSizeOfTheTest() noexcept asm("__wrap_getpagesize");
int pageSizeOfTheMachine() noexcept asm("__real_getpagesize");

int pageSizeOfTheTest() noexcept {
    return wantedBytes != 0 ? wantedBytes : pageSizeOfTheMachine();
}

tcPageSize::tcPageSize(int bytes) {
    wantedBytes = bytes;
}

tcPageSize::~tcPageSize() {
    wantedBytes = 0;
}
