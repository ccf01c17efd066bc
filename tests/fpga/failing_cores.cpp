#include "tests/fpga/failing_cores.h"

#include <cstdint>
#include <stdexcept>
#include <string>

#include <varnox/roi.h>

namespace {

teFpgaCore failingCore = teFpgaCore::eNone;

void throwWhereWanted(teFpgaCore core) {
    if (core == failingCore) {
        throw std::runtime_error("no core");
    }
}

} // namespace

// The linker takes each call of a constructor to the "__wrap_" of its name, and "__real_" is the
// constructor itself. On the target a constructor returns its object.

void* frameCtrlMade(void* core, std::uint32_t base) asm("__wrap__ZN23tcCanon3U5MGXSFrameCtrlC1Ej");
void* realFrameCtrl(void* core, std::uint32_t base) asm("__real__ZN23tcCanon3U5MGXSFrameCtrlC1Ej");
void* frameCtrlMade(void* core, std::uint32_t base) {
    throwWhereWanted(teFpgaCore::eFrameCtrl);
    return realFrameCtrl(core, base);
}

void* pwmMade(void* core, std::uint32_t base, double clock, const std::string& name) asm(
    "__wrap__ZN5tcPwmC1EjdRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
void* realPwm(void* core, std::uint32_t base, double clock, const std::string& name) asm(
    "__real__ZN5tcPwmC1EjdRKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
void* pwmMade(void* core, std::uint32_t base, double clock, const std::string& name) {
    throwWhereWanted(teFpgaCore::ePwm);
    return realPwm(core, base, clock, name);
}

void* pixelShiftMade(void* core, std::uint32_t base) asm("__wrap__ZN12tcPixelShiftC1Ej");
void* realPixelShift(void* core, std::uint32_t base) asm("__real__ZN12tcPixelShiftC1Ej");
void* pixelShiftMade(void* core, std::uint32_t base) {
    throwWhereWanted(teFpgaCore::ePixelShift);
    return realPixelShift(core, base);
}

void* badPixelMade(
    void* core, std::uint32_t control, std::uint32_t table, std::uint32_t takeOver,
    std::uint32_t buffer,
    const Varnox::ROI& fullFrame) asm("__wrap__ZN21tcBadPixelReplacementC1EjjjjRKN6Varnox3ROIE");
void* realBadPixel(
    void* core, std::uint32_t control, std::uint32_t table, std::uint32_t takeOver,
    std::uint32_t buffer,
    const Varnox::ROI& fullFrame) asm("__real__ZN21tcBadPixelReplacementC1EjjjjRKN6Varnox3ROIE");
void* badPixelMade(void* core, std::uint32_t control, std::uint32_t table, std::uint32_t takeOver,
                   std::uint32_t buffer, const Varnox::ROI& fullFrame) {
    throwWhereWanted(teFpgaCore::eBadPixelReplacement);
    return realBadPixel(core, control, table, takeOver, buffer, fullFrame);
}

tcFailingCore::tcFailingCore(teFpgaCore core) {
    failingCore = core;
}

tcFailingCore::~tcFailingCore() {
    failingCore = teFpgaCore::eNone;
}
