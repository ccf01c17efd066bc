#include "tests/sensor/counting_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t count = 0;

void* allocate(std::size_t size) {
    ++count;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void* allocate(std::size_t size, std::align_val_t alignment) {
    ++count;
    const auto step = static_cast<std::size_t>(alignment);
    if (void* const memory = std::aligned_alloc(step, (size + step - 1) / step * step)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

std::size_t allocations() {
    return count;
}

// The other forms of new and delete come down to these.
void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate(size, alignment);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
