/// \file
/// The one owner of a file descriptor.
#pragma once

#include <utility>

#include <unistd.h>

namespace camhost {

/// Owns one file descriptor and closes it when it goes out of scope.
class tcDescriptor {
public:
    tcDescriptor() = default;
    explicit tcDescriptor(int descriptor) : m_descriptor(descriptor) {}
    tcDescriptor(tcDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    tcDescriptor& operator=(tcDescriptor&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~tcDescriptor() {
        if (isOpen())
            ::close(m_descriptor);
    }

    [[nodiscard]] bool isOpen() const { return m_descriptor >= 0; }
    [[nodiscard]] int get() const { return m_descriptor; }

private:
    int m_descriptor = -1;
};

} // namespace camhost
