#include "tests/plugin/base_spy.h"

#include <dlfcn.h>

namespace {
tsBaseArguments lastArguments;
}

const tsBaseArguments& lastBaseArguments() {
    return lastArguments;
}

// The constructor, by its name in the host library: the members that it makes are the library's
// own. On the target a constructor returns its object.
__attribute__((visibility("default"))) void*
baseMade(void* base, int boardType, std::uint32_t regionBase, std::uint32_t regionLength,
         int eventLines, int* eventCount) asm("_ZN6Varnox13tcSensorBoardC2EijjiPi");
void* baseMade(void* base, int boardType, std::uint32_t regionBase, std::uint32_t regionLength,
               int eventLines, int* eventCount) {
    using tcReal = void*(void*, int, std::uint32_t, std::uint32_t, int, int*);
    static const auto real =
        reinterpret_cast<tcReal*>(dlsym(RTLD_NEXT, "_ZN6Varnox13tcSensorBoardC2EijjiPi"));
    lastArguments = {boardType, regionBase, regionLength, eventLines, eventCount};
    return real(base, boardType, regionBase, regionLength, eventLines, eventCount);
}
