#include "tests/support/gpio_spy.h"

#include <dlfcn.h>

#include <pellum/gpio.h>

namespace {

void see(const std::string& what) {
    if (gpioSpy().seen) {
        gpioSpy().seen(what);
    }
}

/// The definition that this program's own stands before.
template<class Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

tsGpioSpy& gpioSpy() {
    static tsGpioSpy spy;
    return spy;
}

int Pellum::tcGpio::GetPinFromDTName(const char* name) {
    static const auto real = next<int(const char*)>("_ZN6Pellum6tcGpio16GetPinFromDTNameEPKc");
    const auto pin = gpioSpy().pins.find(name);
    return pin != gpioSpy().pins.end() ? pin->second : real(name);
}

// The constructor, by its name in the library: the members that it makes are the library's own. On
// the target a constructor returns its object.
__attribute__((visibility("default"))) void*
lineMade(void* line, unsigned int pin) asm("_ZN6Pellum12tcGpioSingleC1Ej");
void* lineMade(void* line, unsigned int pin) {
    static const auto real = next<void*(void*, unsigned int)>("_ZN6Pellum12tcGpioSingleC1Ej");
    see("LINE " + std::to_string(pin));
    return real(line, pin);
}

int Pellum::tcGpioSingle::SetDirection(int direction, int level) {
    static const auto real =
        next<int(tcGpioSingle*, int, int)>("_ZN6Pellum12tcGpioSingle12SetDirectionEii");
    see("DIRECTION " + std::to_string(direction) + " " + std::to_string(level));
    return real(this, direction, level);
}
