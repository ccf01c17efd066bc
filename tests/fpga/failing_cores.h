/// \file
/// FPGA cores that cannot be constructed: memory is short, or another build of the host library
/// throws.
#pragma once

/// The cores of the FPGA object, in the order of their construction.
enum class teFpgaCore { eNone, eFrameCtrl, ePwm, ePixelShift, eBadPixelReplacement };

/// For as long as it lives, constructing this core throws `std::runtime_error` "no core" before
/// anything of it is there.
class tcFailingCore {
public:
    explicit tcFailingCore(teFpgaCore core);
    ~tcFailingCore();
    tcFailingCore(const tcFailingCore&) = delete;
    tcFailingCore& operator=(const tcFailingCore&) = delete;
};
