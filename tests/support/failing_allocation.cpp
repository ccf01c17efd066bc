#include "tests/support/failing_allocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

int allocationsUntilFailure = 0;

namespace {

bool nextIsWatched = false;
void* watched = nullptr;
std::function<void()> watchedIsReleased;

void release(void* memory) {
    std::free(memory);
    if (memory != nullptr && memory == watched) {
        watched = nullptr;
        watchedIsReleased();
    }
}

} // namespace

void watchNextAllocation(std::function<void()> released) {
    watchedIsReleased = std::move(released);
    nextIsWatched = true;
}

void* operator new(std::size_t size) {
    if (allocationsUntilFailure > 0 && --allocationsUntilFailure == 0) {
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size)) {
        if (nextIsWatched) {
            nextIsWatched = false;
            watched = memory;
        }
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    release(memory);
}
