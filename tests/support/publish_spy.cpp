#include "tests/support/publish_spy.h"

#include <utility>

#include <dlfcn.h>

#include <varnox/register_file.h>

namespace {
std::function<void(std::uint32_t, std::uint32_t)> publishSpy;
}

void setPublishSpy(std::function<void(std::uint32_t address, std::uint32_t value)> spy) {
    publishSpy = std::move(spy);
}

// Stands before the host library's own operation of this name: publishing notifies nobody, so a
// test has no other way to see the order.
void Varnox::tcRegisterFile::update_word(std::uint32_t address, std::uint32_t value) {
    if (publishSpy) {
        publishSpy(address, value);
    }
    using tcReal = void (*)(tcRegisterFile*, std::uint32_t, std::uint32_t);
    static const auto real =
        reinterpret_cast<tcReal>(dlsym(RTLD_NEXT, "_ZN6Varnox14tcRegisterFile11update_wordEjj"));
    real(this, address, value);
}
