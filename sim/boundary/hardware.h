/// \file
/// The machine's own registers, one access at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sim {

/// Pages of "/dev/mem" that the program has mapped through the head's library while it records what
/// passes to real devices. The program's own pages are inaccessible; these are the ones behind
/// them. Whoever uses it holds `g_headLock`; accesses are possible in a signal handler.
class tcHardware {
public:
    /// Maps registers, once: pages that are mapped in the same way already serve again, and stay
    /// for as long as the process lives. \param descriptor of the kernel's "/dev/mem" \return 0 or
    /// errno
    int map(int descriptor, std::uint32_t physicalAddress, std::size_t length, int protection,
            int flags);
    /// \param width [bytes] 1, 2 or 4
    [[nodiscard]] std::uint32_t load(std::uint32_t physicalAddress, unsigned width) const;
    void store(std::uint32_t physicalAddress, unsigned width, std::uint32_t value) const;

private:
    struct tsPages {
        std::uint32_t physicalAddress = 0;
        std::size_t length = 0; // 0: free
        int protection = 0;
        volatile std::uint8_t* start = nullptr;
    };
    template<class Word>
    [[nodiscard]] volatile Word* at(std::uint32_t physicalAddress) const;

    static constexpr std::size_t kMappings = 256;
    std::array<tsPages, kMappings> m_pages{};
};

extern tcHardware g_hardware;

} // namespace sim
