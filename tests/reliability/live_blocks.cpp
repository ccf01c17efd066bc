#include "tests/reliability/live_blocks.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::int64_t> blocks{0};
}

std::int64_t liveBlocks() {
    return blocks;
}

#if !defined(HEAD_ADDRESS_SANITIZER) && !defined(HEAD_THREAD_SANITIZER)

namespace {

void* allocate(std::size_t size) {
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++blocks;
    return memory;
}

void release(void* memory) {
    blocks -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

} // namespace

// The other forms without an alignment come down to these; none of the product's types has one.
void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete[](void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    release(memory);
}

#endif
