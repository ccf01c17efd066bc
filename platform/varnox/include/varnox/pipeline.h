/// \file
/// The host's image pipeline behind the sensor board.
#pragma once

#include <cstdint>

#include <varnox/codes.h>
#include <varnox/export.h>
#include <varnox/roi.h>

namespace Varnox {

/// The stages behind the sensor board. A host derives its own; this base remembers what it is told
/// and moves no pixel. The order of the virtual operations is part of the host interface: boards
/// call operation 17, counting from 0. An operation that returns an int and does not say what
/// returns a `teResult`.
class VARNOX_API tcPipeline {
public:
    tcPipeline() = default;
    tcPipeline(const tcPipeline&) = delete;
    tcPipeline& operator=(const tcPipeline&) = delete;
    virtual ~tcPipeline(); // 0 and 1

    /// Makes the stages ready.
    virtual int open(); // 2
    /// Ends the stream and gives the stages back.
    virtual int close(); // 3
    /// Lets pixels through.
    virtual int startStream(); // 4
    /// Lets no more pixels through.
    virtual int stopStream(); // 5
    /// \return whether pixels are let through
    virtual bool isStreaming(); // 6
    /// Drops what is under way.
    virtual int flush(); // 7
    /// \param frames after which the stream ends; 0: never
    virtual int setFrameCount(int frames); // 8
    /// \return frames after which the stream ends; 0: never
    virtual int getFrameCount(); // 9
    /// \param roi the image that arrives
    virtual int setGeometry(const ROI& roi); // 10
    /// \return the image that arrives
    virtual ROI getGeometry(); // 11
    /// \param color true: pixels have the colours of a mosaic
    virtual int setColor(bool color); // 12
    /// \return whether pixels have the colours of a mosaic
    virtual bool getColor(); // 13
    /// \param percent gamma [%]; 100 leaves pixels as they are
    virtual int setGamma(int percent); // 14
    /// \return gamma [%]
    virtual int getGamma(); // 15
    /// \return a `tePixelPacking`
    virtual int getPixelPacking(); // 16
    /// \param packing a `tePixelPacking`
    /// \return 3 for another number
    virtual int setPixelPacking(int packing); // 17: a tePixelPacking

private:
    ROI m_geometry;
    int m_frameCount = 0;
    int m_gamma = 100;
    int m_packing = ePacking12;
    bool m_color = false;
    bool m_streaming = false;
};

} // namespace Varnox
