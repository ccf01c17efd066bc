/// \file
/// The one owner of a file descriptor.
#pragma once

#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace platform {

/// Owns one file descriptor and closes it when it goes out of scope.
class tcFileDescriptor {
public:
    tcFileDescriptor() = default;
    explicit tcFileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    tcFileDescriptor(tcFileDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    tcFileDescriptor& operator=(tcFileDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~tcFileDescriptor() {
        if (isOpen())
            ::close(m_descriptor);
    }

    /// Opens a device. Programs that the host starts do not inherit it.
    /// \param path  the device file
    /// \param flags as `open` takes them; O_CLOEXEC is added
    /// \return the descriptor; where `isOpen` is false, errno says why
    static tcFileDescriptor open(const char* path, int flags) {
        return tcFileDescriptor(::open(path, flags | O_CLOEXEC));
    }

    [[nodiscard]] bool isOpen() const { return m_descriptor >= 0; }
    [[nodiscard]] int get() const { return m_descriptor; }

private:
    int m_descriptor = -1;
};

} // namespace platform
