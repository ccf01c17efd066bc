#include "tests/plugin/core_faults.h"

#include <functional>
#include <map>
#include <stdexcept>

#include <dlfcn.h>
#include <pthread.h>

#include <varnox/bad_pixel_replacement.h>
#include <varnox/pixel_shift.h>
#include <varnox/pwm.h>

namespace {

std::map<std::string, std::function<void()>>& faults() {
    static std::map<std::string, std::function<void()>> theFaults;
    return theFaults;
}

void throwWhereWanted(const char* operation) {
    const auto fault = faults().find(operation);
    if (fault != faults().end()) {
        fault->second();
    }
}

/// \return the host library's own operation, which the definitions below stand before
template<class Function>
Function* realOne(const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

void failCore(const std::string& operation, const std::string& text) {
    faults()[operation] = [text] { throw std::runtime_error(text); };
}

void failCoreStrangely(const std::string& operation) {
    faults()[operation] = [] { throw 42; };
}

void endThreadInCore(const std::string& operation) {
    faults()[operation] = [] { pthread_exit(nullptr); };
}

void healCores() {
    faults().clear();
}

void tcPwm::enableCore(bool enable) {
    throwWhereWanted("tcPwm::enableCore");
    realOne<void(tcPwm*, bool)>("_ZN5tcPwm10enableCoreEb")(this, enable);
}

void tcPwm::setInvertPulse(bool invert) {
    throwWhereWanted("tcPwm::setInvertPulse");
    realOne<void(tcPwm*, bool)>("_ZN5tcPwm14setInvertPulseEb")(this, invert);
}

void tcPwm::setDutyClks(std::uint32_t clocks) {
    throwWhereWanted("tcPwm::setDutyClks");
    realOne<void(tcPwm*, std::uint32_t)>("_ZN5tcPwm11setDutyClksEj")(this, clocks);
}

void tcPwm::setPeriodFreq(double hertz) {
    throwWhereWanted("tcPwm::setPeriodFreq");
    realOne<void(tcPwm*, double)>("_ZN5tcPwm13setPeriodFreqEd")(this, hertz);
}

void tcPwm::dumpRegisters() const {
    throwWhereWanted("tcPwm::dumpRegisters");
    realOne<void(const tcPwm*)>("_ZNK5tcPwm13dumpRegistersEv")(this);
}

bool tcPixelShift::setShift(int direction, int amount) {
    throwWhereWanted("tcPixelShift::setShift");
    return realOne<bool(tcPixelShift*, int, int)>("_ZN12tcPixelShift8setShiftEii")(this, direction,
                                                                                   amount);
}

void tcPixelShift::reset(bool hold) {
    throwWhereWanted("tcPixelShift::reset");
    realOne<void(tcPixelShift*, bool)>("_ZN12tcPixelShift5resetEb")(this, hold);
}

bool tcBadPixelReplacement::initialize() {
    throwWhereWanted("tcBadPixelReplacement::initialize");
    return realOne<bool(tcBadPixelReplacement*)>("_ZN21tcBadPixelReplacement10initializeEv")(this);
}

void tcBadPixelReplacement::setColor(bool color) {
    throwWhereWanted("tcBadPixelReplacement::setColor");
    realOne<void(tcBadPixelReplacement*, bool)>("_ZN21tcBadPixelReplacement8setColorEb")(this,
                                                                                         color);
}

bool tcBadPixelReplacement::setData(const std::string& data) {
    throwWhereWanted("tcBadPixelReplacement::setData");
    return realOne<bool(tcBadPixelReplacement*, const std::string&)>(
        "_ZN21tcBadPixelReplacement7setDataERKNSt7__cxx1112basic_stringIcSt11char_traitsIcE"
        "SaIcEEE")(this, data);
}

void tcBadPixelReplacement::setMapState(bool apply) {
    throwWhereWanted("tcBadPixelReplacement::setMapState");
    realOne<void(tcBadPixelReplacement*, bool)>("_ZN21tcBadPixelReplacement11setMapStateEb")(this,
                                                                                             apply);
}

bool tcBadPixelReplacement::mapState() const {
    throwWhereWanted("tcBadPixelReplacement::mapState");
    return realOne<bool(const tcBadPixelReplacement*)>("_ZNK21tcBadPixelReplacement8mapStateEv")(
        this);
}
