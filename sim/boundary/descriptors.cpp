#include "sim/boundary/descriptors.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "sim/base/own_descriptor.h"
#include "sim/base/real_calls.h"

namespace sim {

constinit tcDescriptors g_descriptors;

namespace {

std::uint64_t inodeOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return 0;
    }
    return status.st_ino;
}

} // namespace

tsOpenFile* tcDescriptors::freeSlot() {
    auto* const slot =
        std::find_if(m_files.begin(), m_files.end(), [](const tsOpenFile& candidate) {
            return candidate.inode == 0 && candidate.hardware < 0;
        });
    if (slot == m_files.end()) {
        return nullptr;
    }
    *slot = tsOpenFile{};
    m_everUsed = std::max(m_everUsed, static_cast<std::size_t>(slot - m_files.begin()) + 1);
    return slot;
}

bool tcDescriptors::adopt(int descriptor, teDevice device, int flags) {
    tsOpenFile* const slot = freeSlot();
    if (slot == nullptr) {
        return false;
    }
    slot->hardware = descriptor;
    slot->device = device;
    slot->flags = flags;
    return true;
}

int tcDescriptors::create(bool closeOnExec, tsOpenFile*& file) {
    tsOpenFile* const slot = freeSlot();
    if (slot == nullptr) {
        return -EMFILE;
    }
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return -errno;
    }
    if (!closeOnExec) {
        ::fcntl(ends[0], F_SETFD, 0);
    }
    slot->inode = inodeOf(ends[0]);
    slot->peer = outOfTheWay(ends[1]);
    file = slot;
    return ends[0];
}

int tcDescriptors::open(teDevice device, int flags) {
    tsOpenFile* file = nullptr;
    const int descriptor = create((flags & O_CLOEXEC) != 0, file);
    if (file != nullptr) {
        file->device = device;
        file->flags = flags;
    }
    return descriptor;
}

int tcDescriptors::openLines(const tsLineRequest& lines) {
    tsOpenFile* file = nullptr;
    const int descriptor = create(true, file); // as the kernel does
    if (file != nullptr) {
        file->device = teDevice::gpio;
        file->isLineRequest = true;
        file->lines = lines;
    }
    return descriptor;
}

tsOpenFile* tcDescriptors::find(int descriptor) {
    if (m_everUsed == 0) {
        return nullptr;
    }
    const std::uint64_t inode = inodeOf(descriptor);
    for (std::size_t at = 0; at < m_everUsed; ++at) {
        const bool modelled = inode != 0 && m_files[at].inode == inode;
        const bool hardware = descriptor >= 0 && m_files[at].hardware == descriptor;
        if (modelled || hardware) {
            return &m_files[at];
        }
    }
    return nullptr;
}

bool tcDescriptors::isOpen(teDevice device) const {
    return std::any_of(m_files.begin(), m_files.begin() + m_everUsed, [device](const auto& file) {
        return file.inode != 0 && !file.isLineRequest && file.device == device;
    });
}

void tcDescriptors::sweep(tcModel& model) {
    for (std::size_t at = 0; at < m_everUsed; ++at) {
        tsOpenFile& file = m_files[at];
        char byte = 0;
        if (file.inode == 0 || ::recv(file.peer, &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 0) {
            continue;
        }
        real::close(file.peer);
        file.inode = 0;
        if (file.isLineRequest) {
            model.gpio.release(file.lines);
        } else if (file.device == teDevice::spi && !isOpen(teDevice::spi)) {
            model.spi.released();
        }
    }
}

void tcDescriptors::forgetAll() {
    for (std::size_t at = 0; at < m_everUsed; ++at) {
        if (m_files[at].inode != 0) {
            real::close(m_files[at].peer);
            m_files[at].inode = 0;
        }
    }
    m_everUsed = 0;
}

} // namespace sim
