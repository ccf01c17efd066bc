/// \file
/// The board's handle on the FPGA.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <varnox/bad_pixel_replacement.h>
#include <varnox/pixel_shift.h>
#include <varnox/pwm.h>

#include "fpga/canon_3u5mgxs_frame_ctrl.h"
#include "fpga/mapped_block.h"

/// Maps the FPGA's base block and clock generator and owns its cores, all at the fixed addresses of
/// one FPGA image. Takes no lock: all calls come from the board's control thread.
class tc3U5MGXSFpga {
public:
    /// Sensor master clock.
    enum teMClkSpeed : std::int32_t { eMClk24MHz = 0, eMClk36MHz = 1 };

    /// Maps the blocks and constructs the cores. A device that is not available leaves a flag that
    /// `initialize` reports.
    /// \param config accepted and not consulted: every address is fixed
    explicit tc3U5MGXSFpga(const std::string& config);
    virtual ~tc3U5MGXSFpga();
    tc3U5MGXSFpga(const tc3U5MGXSFpga&) = delete;
    tc3U5MGXSFpga& operator=(const tc3U5MGXSFpga&) = delete;

    /// Sets the bad-pixel core up and asks the others whether they are ready. The clock generator
    /// has no bit: when it is not mapped, setting the clock and dumping the registers are fatal.
    /// \return what is not usable, 0 for nothing: 0x01 base block, 0x02 frame control, 0x04 PWM,
    ///         0x08 pixel shift, 0x10 bad-pixel replacement
    unsigned int initialize();

    /// Holds the pixel-shift and bad-pixel cores in reset, or lets them run.
    /// \return true
    bool resetPipeline(bool reset);

    /// Programs the sensor's master clock and tells the PWM core what it counts from now on. Does
    /// not wait for the clock: bring the link up afterwards.
    /// \return 0; 3 for an unknown speed, nothing is written then
    int setMClk(teMClkSpeed speed);

    /// \return the speed set last; 36 MHz after construction
    [[nodiscard]] teMClkSpeed getMClk() const { return m_speed; }

    /// \return the sensor's master clock [MHz]; 36 after construction
    [[nodiscard]] float getClockMhz() const { return m_clockMhz; }

    void setExposureMode(bool mode);       ///< accepted and ignored: the sensor does it
    void setExternalTrigger(bool enabled); ///< accepted and ignored: the GPIO line does it

    /// \return both words of the system id in hexadecimal, joined by a full stop
    [[nodiscard]] std::string getSysId() const;

    /// Prints system id, clock and the cores' registers to standard output, and leaves it in
    /// decimal. The pixel-shift core has no part in it.
    void dumpRegisters() const;

private:
    float m_clockMhz;
    teMClkSpeed m_speed;
    tsMappedBlock m_base;
    std::unique_ptr<tsMappedBlock> m_pll;

public:
    tcCanon3U5MGXSFrameCtrl frameCtrl;
    tcPwm pwm; ///< the sensor's frame-start pulse
    tcPixelShift pixelShift;
    tcBadPixelReplacement badPixelReplacement;
};
