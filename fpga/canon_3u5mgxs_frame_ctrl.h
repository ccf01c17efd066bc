/// \file
/// Frame-control core: receiver of the sensor's serial lanes.
#pragma once

#include <cstdint>

#include "fpga/mapped_block.h"

/// Receives the sensor's twelve serial lanes, locks and aligns them, and cuts the frame to the
/// resolution and region that the board programs. Every accessor is single 32-bit loads and stores
/// of the core's block; none checks whether the block is mapped. Takes no lock: all calls come from
/// the board's control thread.
class tcCanon3U5MGXSFrameCtrl {
public:
    /// Size of an image.
    struct tsResolutionConfig {
        std::uint16_t H; ///< [lines]
        std::uint16_t W; ///< [pixels per line]
    };

    /// Where an image starts.
    struct tsRoiConfig {
        std::uint16_t y; ///< [lines]
        std::uint16_t x; ///< [pixels]
    };

    /// Blanking before an image.
    struct tsBackPorchConfig {
        std::uint16_t y; ///< [lines]
        std::uint16_t x; ///< [pixels]
    };

    /// State of the link.
    struct tsCoreStatus {
        bool aligned;  ///< frame alignment found
        bool locked;   ///< receiver PLL locked
        bool rgLocked; ///< receiver PLL rg locked
        bool gbLocked; ///< receiver PLL gb locked
    };

    /// \param base physical address of the core; its 64 words are mapped
    explicit tcCanon3U5MGXSFrameCtrl(unsigned int base);
    virtual ~tcCanon3U5MGXSFrameCtrl();
    tcCanon3U5MGXSFrameCtrl(const tcCanon3U5MGXSFrameCtrl&) = delete;
    tcCanon3U5MGXSFrameCtrl& operator=(const tcCanon3U5MGXSFrameCtrl&) = delete;

    /// \return whether the core's block is mapped
    [[nodiscard]] bool initialized() const;

    [[nodiscard]] bool readCoreEnabled() const;

    /// Brings the serial link from reset to aligned frames, or switches the core off. The sensor
    /// must be sending and the master clock set. Blocks for up to 600 ms. On failure the core stays
    /// enabled and the DPA registers keep what was written; a later call starts over. Standard
    /// output is in decimal once the lanes were tried.
    /// \return 0 on success, -1 when the receiver PLL does not lock or the frame does not align,
    ///         -2 when not all twelve lanes reach DPA lock
    int enableCore(bool enable);

    [[nodiscard]] bool readPairsFlip() const;
    /// \param flip true: the lines of each pair are swapped, as a flipped readout needs it
    void enablePairsFlip(bool flip);
    void triggerHdrUpdate();

    /// Each flag comes from a load of its own.
    [[nodiscard]] tsCoreStatus readStatus() const;

    /// \return the whole register
    [[nodiscard]] unsigned int readLaneInversion() const;
    /// \param lanes one bit a lane, bits 11..0; 1 inverts
    void setLaneInversion(unsigned int lanes);

    [[nodiscard]] unsigned int readIrqFlags() const;
    void clearIrqFlags(unsigned int flags);
    [[nodiscard]] unsigned int readIrqMask() const;
    void setIrqMask(unsigned int mask);

    /// \return the size as stored: H a multiple of 2, W a multiple of 6
    [[nodiscard]] tsResolutionConfig readRoiResCntConfig() const;
    /// Remainders of H / 2 and W / 6 are lost.
    void setRoiResCntConfig(tsResolutionConfig config);

    [[nodiscard]] tsResolutionConfig readResolutionConfig() const;
    void setResolutionConfig(tsResolutionConfig config);

    [[nodiscard]] tsRoiConfig readRoiConfig() const;
    void setRoiConfig(tsRoiConfig config);

    /// \return one bit a lane
    [[nodiscard]] unsigned int readDPAReset() const;
    /// Replaces the whole register: the FIFO resets become 0. The bring-up relies on it.
    void setDPAReset(unsigned int lanes);
    /// \return one bit a lane
    [[nodiscard]] unsigned int readDPAFifoReset() const;
    /// Replaces the whole register: the DPA resets become 0. The bring-up relies on it.
    void setDPAFifoReset(unsigned int lanes);
    /// \return the whole register
    [[nodiscard]] unsigned int readDPAHold() const;
    /// \param lanes one bit a lane, bits 11..0; 1 holds the lane's phase
    void setDPAHold(unsigned int lanes);
    /// \return one bit a lane; 0xFFF when all are locked
    [[nodiscard]] unsigned int readDPALock() const;

    void setIndexSync(unsigned int value);
    void setFrameTimestamp(unsigned int value);

    /// \return the porch as stored: y a multiple of 2, x a multiple of 6
    [[nodiscard]] tsBackPorchConfig readBackPorchConfig() const;
    /// Remainders of y / 2 and x / 6 are lost.
    void setBackPorchConfig(tsBackPorchConfig config);

    [[nodiscard]] unsigned int readCoreId() const;
    [[nodiscard]] unsigned int readCoreRev() const;
    [[nodiscard]] unsigned int readCoreCaps() const;

    /// Prints every register to standard output, line by line, flushed, and leaves it in decimal.
    void dumpRegisters() const;

private:
    bool lockPll();
    void resetDpa();
    bool lockDpa();
    bool alignFrame();

    tsMappedBlock m_block;
};
