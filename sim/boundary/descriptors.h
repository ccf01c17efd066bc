/// \file
/// Descriptors that the head hands out.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "sim/chips/gpio_chip.h"
#include "sim/head/model.h"

namespace sim {

/// An open file of the head. The descriptor that the program has is one end of a socket pair, so
/// that `poll` behaves and the kernel keeps count of its copies: the file is recognised by the
/// inode whatever descriptor it comes by, and it is closed when the other end says so.
struct tsOpenFile {
    std::uint64_t inode = 0; // 0: free, or a device of the machine's own
    int peer = -1;           // the head's end
    int hardware = -1;       // descriptor of a device of the machine's own, by which it is known
    unsigned number = 0;     // in a recording
    teDevice device = teDevice::spi;
    int flags = 0;                // of `open`
    std::uint16_t i2cAddress = 0; // I2C_SLAVE
    bool isLineRequest = false;
    tsLineRequest lines;
};

/// The open files of the present head. Whoever uses it holds `g_headLock`.
class tcDescriptors {
public:
    /// \param flags of `open` \return the program's descriptor, or -errno
    int open(teDevice device, int flags);
    int openLines(const tsLineRequest& lines);
    /// Takes note of a device of the machine's own. \return false when there is no room
    bool adopt(int descriptor, teDevice device, int flags);
    /// The device of the machine's own is closed.
    static void release(tsOpenFile& file) { file.hardware = -1; }
    /// \return the file, or null when the descriptor is none of the head's
    [[nodiscard]] tsOpenFile* find(int descriptor);
    /// Frees what the program has closed in whatever way, and releases its GPIO lines.
    void sweep(tcModel& model);
    /// The head goes.
    void forgetAll();

private:
    tsOpenFile* freeSlot();
    [[nodiscard]] bool isOpen(teDevice device) const;
    int create(bool closeOnExec, tsOpenFile*& file);

    static constexpr std::size_t kFiles = 512;
    std::array<tsOpenFile, kFiles> m_files{};
    std::size_t m_everUsed = 0;
};

extern tcDescriptors g_descriptors;

} // namespace sim
