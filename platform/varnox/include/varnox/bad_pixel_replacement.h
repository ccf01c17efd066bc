/// \file
/// The FPGA's replacement of defective pixels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <varnox/export.h>
#include <varnox/mapped_registers.h>
#include <varnox/roi.h>

/// Loads the map of defective pixels and switches their replacement. Takes no lock. Calls to a core
/// that is not initialized are reported once on standard error and do nothing.
///
/// Map text: one pixel a line, "X Y" in decimal, in pixels of the full frame; '#' starts a comment;
/// blank lines are skipped; a pixel listed again counts once. At most 1024 pixels, each inside the
/// full frame.
class VARNOX_API tcBadPixelReplacement {
public:
    /// \param control   physical address of the control block
    /// \param table     physical address of the table block
    /// \param takeOver  physical address of the block that takes the table over
    /// \param buffer    physical address of the line buffer the core works in
    /// \param fullFrame rectangle of the whole pixel array
    tcBadPixelReplacement(std::uint32_t control, std::uint32_t table, std::uint32_t takeOver,
                          std::uint32_t buffer, const Varnox::ROI& fullFrame);

    /// Sets the core up: line buffer, full-frame region, empty map, replacement off, core running.
    /// \return false when a block is not mapped or the core does not identify itself
    bool initialize();

    /// \param hold true: hold the core in reset; false: let it run
    void reset(bool hold);

    /// \param roi the part of the full frame that arrives; one that is not inside it is reported on
    ///            standard error and changes nothing
    void setRoi(const Varnox::ROI& roi);

    /// \param color true: replace from neighbours of the same colour
    void setColor(bool color);

    /// Loads a map and takes it over. "" clears the map.
    /// \param data name of a readable file, else the text of the map itself
    /// \return false when the text is not a map (reported on standard error with its line); the map
    ///         in force stays
    bool setData(const std::string& data);

    /// \return the text of the default map: no defective pixel
    [[nodiscard]] std::string defaultData() const;

    /// \return whether listed pixels are replaced
    [[nodiscard]] bool mapState() const;
    /// \param apply true: replace listed pixels
    void setMapState(bool apply);

    /// \return whether the core is running
    [[nodiscard]] bool onState() const;

    /// Prints the registers to standard output.
    void dumpRegisters() const;

private:
    void takeOver(const std::vector<std::uint32_t>& entries);
    bool usable(const char* operation) const;
    void setControlBit(const char* operation, std::uint32_t bit, bool set);

    tcMappedRegisters m_control;
    tcMappedRegisters m_table;
    tcMappedRegisters m_takeOver;
    std::uint32_t m_base;   // physical
    std::uint32_t m_buffer; // physical
    Varnox::ROI m_fullFrame;
    bool m_initialized = false;
    mutable bool m_reported = false;
};
