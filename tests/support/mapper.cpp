#include "tests/support/mapper.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

// MAPPER is the namespace of this build.
tsMapped MAPPER::readWord(int file, std::uint32_t address, std::size_t word) {
    tsMapped result;
    result.offsetBytes = sizeof(off_t);
    void* const page =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, static_cast<off_t>(address));
    if (page == MAP_FAILED) {
        result.error = errno;
        return result;
    }
    result.value = static_cast<volatile std::uint32_t*>(page)[word];
    munmap(page, 4096);
    return result;
}

tsMapped MAPPER::readRegister(std::uint32_t address, std::size_t word) {
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    if (memory < 0) {
        tsMapped result;
        result.error = errno;
        return result;
    }
    const tsMapped result = MAPPER::readWord(memory, address, word);
    close(memory);
    return result;
}
