/// \file
/// Calls of the sensor driver and of the FPGA access by themselves, by chance.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "fpga/canon_3u5mgxs_frame_ctrl.h"
#include "fpga/fpga.h"
#include "sensor/sensor.h"
#include "tests/target/notes.h"

/// A sensor driver without a board.
class tcRandomSensor : public tcRandomLife<tcRandomSensor> {
public:
    tcRandomSensor(tcChance& chance, sim::tcVirtualHead& head);

private:
    friend tcRandomLife;
    static const tcOperations kOperations;

    unsigned short address();
    unsigned char shift();
    std::uint32_t bits();
    unsigned short place();
    std::chrono::microseconds time(int most);

    tc3U5MGXS m_sensor;
};

/// The FPGA's cores without a board, and one more frame-control core on the same registers.
class tcRandomFpga : public tcRandomLife<tcRandomFpga> {
public:
    tcRandomFpga(tcChance& chance, sim::tcVirtualHead& head);

private:
    friend tcRandomLife;
    static const tcOperations kOperations;

    std::uint32_t bits();
    template<class Pair>
    Pair pair();

    tc3U5MGXSFpga m_fpga;
    tcCanon3U5MGXSFrameCtrl m_core;
};
