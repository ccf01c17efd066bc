/// \file
/// Driver of the 3U5MGXS image sensor.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include <pellum/ads7828.h>
#include <pellum/gpio.h>
#include <varnox/mutex.h>
#include <varnox/spi_device.h>

#include "common/register_field.h"
#include "sensor/shadow_register_map.h"

class INIReader;

/// Looks a GPIO line up by its device-tree name and says what it found: "GPIO NAME\t\tPIN" on
/// standard output, or "ERROR: GPIO NAME not found in DT" on standard error.
/// \return the pin; negative when there is no such line
int GetPinFromDTName(const char* name);

/// Powers the sensor, loads and writes its registers, and answers every read from a shadow copy:
/// the sensor's registers cannot be read back.
///
/// Threads: every register write and its shadow update hold the register lock; reads of the shadow
/// copy take no lock and are safe beside them. A read-modify-write of one field is not atomic
/// against another writer of the same register. Power and readout areas are for the board's
/// control thread.
class tc3U5MGXS {
public:
    enum teExposureMode : std::uint32_t {
        eExposureSingle = 0, ///< one global-shutter position
        eExposureDual = 1,   ///< two equal halves
        eExposureRolling = 2 ///< not supported by the exposure arithmetic
    };

    /// Who sets frame and exposure.
    enum teCtrlMode : std::uint32_t {
        eCtrlInternal = 0,         ///< the sensor's registers
        eCtrlExternalExposure = 1, ///< the trigger gives frame and exposure
        eCtrlReserved = 2,
        eCtrlExternalTrigger = 3 ///< the trigger gives the frame, registers the exposure
    };

    enum teFrameState : std::uint32_t { eFrameStop = 0, eFrameStream = 3, eFrameLanesOn = 4 };

    enum teTestPattern : std::uint32_t { ePatternOff = 0, ePatternFirst = 3, ePatternSecond = 4 };

    /// Steps 1 to 5 are the amplification of both analogue stages together; others are step 0.
    enum teAGainCoarse : std::uint32_t { eAGain0, eAGain1, eAGain2, eAGain3, eAGain4, eAGain5 };

    enum teDGainCoarse : std::uint32_t { eDGain0, eDGain1, eDGain2, eDGain3 };

    /// Opens the SPI device, requests the control lines (outputs, low) and sets the ADC up. The
    /// sensor stays off. A missing line or device is reported and does not end the construction.
    /// \param spiDevicePath for example "/dev/spidev1.0"
    explicit tc3U5MGXS(std::string spiDevicePath);

    /// Leaves the sensor powered as it is.
    virtual ~tc3U5MGXS();
    tc3U5MGXS(const tc3U5MGXS&) = delete;
    tc3U5MGXS& operator=(const tc3U5MGXS&) = delete;

    // ---- Registers

    /// Sends one frame and stores the value in the shadow copy, under the register lock. The wire
    /// carries bits 9..0 of the address and bits 21..0 of the value; the shadow copy keeps all.
    /// A failed transfer is not detected.
    /// \return the result of releasing the lock: 0
    int writeRegister(unsigned short address, unsigned int value);

    /// The same for callers that hold the register lock.
    void writeRegisterUnlocked(unsigned short address, unsigned int value);

    /// \param value untouched when the register was never written
    /// \return 0, or -1 when the register was never written
    int readShadowRegister(unsigned short address, unsigned int& value) const;

    /// Changes one field of a register and writes the whole register. A register that was never
    /// written starts from 0.
    /// \param mask  of the value, before the shift
    /// \param shift 32 and more write the register back unchanged
    void setRegisterField(unsigned short address, unsigned int value, unsigned int mask,
                          unsigned char shift);

    /// \return the field; 0 when `shift` is 32 or more, and for a register that was never written,
    ///         which the shadow copy holds with 0 from then on
    unsigned int getRegisterField(unsigned short address, unsigned int mask, unsigned char shift);

    /// Prints the shadow copy to standard output, in ascending order, in decimal.
    void dumpRegisterMap() const;

    /// Sends a settings file to the sensor, line by line, holding the register lock all the time.
    /// docs/settings-file.md describes the format. A file that cannot be opened is taken for empty.
    /// \return 0
    /// \throws std::exception for a malformed line, after a report on standard error; registers of
    ///         earlier lines stay written
    int writeRegistersFromFile(const std::string& fileName);

    // ---- Power

    /// Switches the supplies on, verifies them, and loads the settings file of the pixel depth.
    /// Takes about 316 ms.
    /// \return 0; 1 when the SPI port refuses its settings, nothing is switched on then; -4 when a
    ///         supply is out of limits: supplies stay on, no settings are loaded
    /// \throws std::runtime_error "Failed to open spidev" before anything is switched on, "Unknown
    ///         bpp settings" after the supplies are verified; std::exception from the settings file
    int powerUp();

    /// Puts the sensor in reset and switches the supplies off.
    void powerDown();

    /// \param bits 10 or 12, judged by `powerUp`; 12 after construction
    void setPixelDepth(unsigned char bits) { m_pixelDepth = bits; }

    // ---- Timing

    /// Stores the master clock and selects the sensor's clock range.
    /// \param mhz [MHz]
    /// \return the result of the register write: 0
    int setMClockMhz(float mhz);

    /// \return length of a line [master clocks], 1 to 4096
    unsigned short getHorizontalPeriod();

    /// \return shortest time between two frames for the readout areas programmed
    std::chrono::microseconds getFrameReadoutTime();

    /// Sets the frame length, in frame-control mode 0 only.
    /// \return 0
    int setHDMax(std::chrono::microseconds frameTime);

    /// Programs the exposure, limited to what the frame allows. The frame length must be set first.
    /// \return 0; 4 when exposure mode 2 is in force
    int setExposure(std::chrono::microseconds exposure);

    /// \return the exposure that the registers come to
    [[nodiscard]] std::chrono::microseconds getExposure() const;

    /// Takes effect with the next `setExposure` or `getFrameReadoutTime`.
    void setExposureMode(teExposureMode mode) { m_exposureMode = mode; }
    [[nodiscard]] teExposureMode getExposureMode() const { return m_exposureMode; }

    // ---- Features

    void setFrameState(teFrameState state);
    void setFrameControlMode(teCtrlMode mode);
    teCtrlMode getFrameControlMode();

    /// \param bin 2 bins two rows into one; any other value switches binning off
    void setBin(unsigned short bin);

    void setVScanInvert(bool invert);
    bool getVScanInvert();
    void setHScanInvert(bool invert);
    bool getHScanInvert();

    /// \return 0; 4 in 12-bit mode, where analogue gain is refused and nothing is written
    unsigned int setAGainCourse(teAGainCoarse gain);
    unsigned char getAGainCourse();
    /// \return 0; 4 in 12-bit mode, where analogue gain is refused and nothing is written
    unsigned int setAGainFine(unsigned char gain);
    unsigned char getAGainFine();
    void setDGainCourse(teDGainCoarse gain);
    teDGainCoarse getDGainCourse();
    void setDGainFine(unsigned char gain);
    unsigned char getDGainFine();

    void setTestPattern(teTestPattern pattern);
    /// \return the result of the register write: 0
    int setTestSigEnable(bool on);

    /// Area 0 becomes the whole array, the others are switched off; no rows count as read out.
    /// \return 0
    int resetROIAreas();

    /// Programs one readout area. Rows are programmed in pairs, columns in units of six.
    /// \param num 0 to 7; others are logged and change nothing
    /// \return 0
    int setROIArea(unsigned char num, unsigned short rowStart, unsigned short rowEnd,
                   unsigned short colStart, unsigned short colEnd);

private:
    void setField(const tsRegisterField& field, unsigned int value);
    unsigned int getField(const tsRegisterField& field);

    void requestControlLines();
    bool configurePort();
    void switchSuppliesOn();
    bool suppliesWithinLimits(const INIReader& limits);
    void loadSettings();

    void applySettingsLine(unsigned short address, unsigned int value);

    void programSingleExposure(std::chrono::microseconds exposure);
    void programDualExposure(std::chrono::microseconds exposure);
    void programExternalExposure();
    void programTriggeredExposure(std::chrono::microseconds exposure);

    // Scalars that one thread sets and another may read are atomic: the host asks for exposure and
    // timing from threads of its own.
    std::atomic<float> m_clockMhz{0.0F};         // MHz
    std::atomic<std::uint32_t> m_readoutRows{0}; // rows of all areas since the last reset
    Pellum::tcADS7828 m_adc;
    tcSPIDevice m_spi;
    tcMutex m_registerLock{true};
    tcShadowRegisterMap m_shadow;
    std::atomic<std::int64_t> m_exposure{0};     // us
    std::atomic<unsigned char> m_pixelDepth{12}; // bits
    std::atomic<unsigned short> m_binning{0};    // 1 = two rows make one
    std::atomic<teExposureMode> m_exposureMode{eExposureSingle};
    Pellum::tcGpioSingle m_enable1V2{0};
    Pellum::tcGpioSingle m_enableSvdd{0};
    Pellum::tcGpioSingle m_enableAvddh{0};
    Pellum::tcGpioSingle m_resetB{0}; // active low
};
