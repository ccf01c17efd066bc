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
/// call operation 17, counting from 0.
class VARNOX_API tcPipeline {
public:
    tcPipeline() = default;
    tcPipeline(const tcPipeline&) = delete;
    tcPipeline& operator=(const tcPipeline&) = delete;
    virtual ~tcPipeline(); // 0 and 1

    virtual int open();                       // 2
    virtual int close();                      // 3
    virtual int startStream();                // 4
    virtual int stopStream();                 // 5
    virtual bool isStreaming();               // 6
    virtual int flush();                      // 7
    virtual int setFrameCount(int frames);    // 8
    virtual int getFrameCount();              // 9
    virtual int setGeometry(const ROI& roi);  // 10
    virtual ROI getGeometry();                // 11
    virtual int setColor(bool color);         // 12
    virtual bool getColor();                  // 13
    virtual int setGamma(int percent);        // 14
    virtual int getGamma();                   // 15
    virtual int getPixelPacking();            // 16
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
