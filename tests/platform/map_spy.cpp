#include "tests/platform/map_spy.h"

#include <array>
#include <cstddef>
#include <dlfcn.h>
#include <ostream>
#include <sys/mman.h>
#include <sys/types.h>
#include <utility>

namespace {

// Programs map before their first constructor runs: nothing here needs one.
constinit std::array<tsMapCall, 16> s_calls{};
constinit std::size_t s_count = 0;

template<class Offset>
void* passOn(const char* name, void* address, std::size_t length, int protection, int flags,
             int descriptor, Offset offset) {
    if ((flags & MAP_SHARED) != 0 && s_count < s_calls.size()) {
        s_calls[s_count++] = {sizeof offset == 8, offset};
    }
    using tMap = void*(void*, std::size_t, int, int, int, Offset);
    const auto next = reinterpret_cast<tMap*>(dlsym(RTLD_NEXT, name));
    return next(address, length, protection, flags, descriptor, offset);
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void* mmap(void* address, std::size_t length, int protection,
                                                  int flags, int descriptor,
                                                  off_t offset) noexcept {
    return passOn("mmap", address, length, protection, flags, descriptor, offset);
}

__attribute__((visibility("default"))) void* mmap64(void* address, std::size_t length,
                                                    int protection, int flags, int descriptor,
                                                    off64_t offset) noexcept {
    return passOn("mmap64", address, length, protection, flags, descriptor, offset);
}

} // extern "C"

std::vector<tsMapCall> takeMapCalls() {
    const std::size_t count = std::exchange(s_count, 0);
    return {s_calls.begin(), s_calls.begin() + static_cast<std::ptrdiff_t>(count)};
}

void PrintTo(const tsMapCall& call, std::ostream* stream) {
    *stream << (call.wide ? "64" : "32") << " bits, " << call.offset;
}
