// What an access to an FPGA register costs a program on the head: the program of live_bench.py.
// Prints nanoseconds of the thread's CPU time an access, the best of many rounds.

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <iostream>
#include <limits>
#include <sys/mman.h>

namespace {

constexpr int kRounds = 40;
constexpr int kAccesses = 2000;
constexpr off_t kFrameControl = static_cast<off_t>(0xFF210000);
constexpr std::size_t kPage = 4096;

double cpuNs() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

} // namespace

int main() {
    const int file = open("/dev/mem", O_RDWR | O_SYNC);
    void* const page =
        mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, kFrameControl);
    if (page == MAP_FAILED) {
        std::cerr << "live_cost: run it on the virtual head" << std::endl;
        return 1;
    }
    const volatile std::uint32_t* const words = static_cast<const volatile std::uint32_t*>(page);
    double best = std::numeric_limits<double>::max();
    std::uint32_t sum = 0;
    for (int round = 0; round < kRounds; ++round) {
        const double start = cpuNs();
        for (int at = 0; at < kAccesses; ++at) {
            sum += words[0];
        }
        best = std::min(best, cpuNs() - start);
    }
    std::cout << best / kAccesses << " " << (sum != 0 ? "" : "(zeroes)") << std::endl;
    return 0;
}
