#include "tests/sim/mapper.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

// MAPPER is the namespace of this build.
tsMapped MAPPER::readRegister(std::uint32_t address, std::size_t word) {
    tsMapped result;
    result.offsetBytes = sizeof(off_t);
    const int memory = open("/dev/mem", O_RDWR | O_SYNC);
    if (memory < 0) {
        result.error = errno;
        return result;
    }
    void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, memory,
                            static_cast<off_t>(address));
    if (page == MAP_FAILED) {
        result.error = errno;
    } else {
        result.value = static_cast<volatile std::uint32_t*>(page)[word];
        munmap(page, 4096);
    }
    close(memory);
    return result;
}
