/// \file
/// Software that uses a camera head through the kernel's interfaces and nothing else, as small as
/// it can be: what the virtual head's own tests run on it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <sys/types.h>
#include <vector>

/// A descriptor that is closed at the end.
class tcDescriptor {
public:
    explicit tcDescriptor(int descriptor = -1) : m_descriptor(descriptor) {}
    tcDescriptor(tcDescriptor&& other) noexcept : m_descriptor(other.release()) {}
    tcDescriptor& operator=(tcDescriptor&& other) noexcept;
    tcDescriptor(const tcDescriptor&) = delete;
    tcDescriptor& operator=(const tcDescriptor&) = delete;
    ~tcDescriptor();
    [[nodiscard]] int get() const { return m_descriptor; }
    [[nodiscard]] bool valid() const { return m_descriptor >= 0; }
    int release();

private:
    int m_descriptor;
};

tcDescriptor openDevice(const char* path);

/// \return the physical address as the file offset that `mmap` takes; negative on 32-bit targets
off_t fileOffset(std::uint32_t physicalAddress);

/// Offsets of the head's lines on its chip.
namespace lines {
inline constexpr unsigned kCore = 5;     // PS_1.2V_EN
inline constexpr unsigned kSvdd = 6;     // PS_3.3SVDD_EN
inline constexpr unsigned kAvddh = 7;    // PS_3.3AVDDH_EN
inline constexpr unsigned kReset = 11;   // RESET_B
inline constexpr unsigned kTrigger = 12; // EXT_TRIG_EN
} // namespace lines

/// Requests one line as output. \return descriptor; invalid with errno set when refused
tcDescriptor requestOutput(int chip, unsigned offset, int level);
/// \return 0 or errno
int setLevel(const tcDescriptor& line, int level);
/// \return level, or -1
int getLevel(const tcDescriptor& line);

/// Registers mapped through "/dev/mem".
class tcRegisters {
public:
    explicit tcRegisters(std::uint32_t physicalAddress, std::size_t bytes = 16384);
    tcRegisters(const tcRegisters&) = delete;
    tcRegisters& operator=(const tcRegisters&) = delete;
    ~tcRegisters();
    [[nodiscard]] bool mapped() const { return m_words != nullptr; }
    [[nodiscard]] std::uint32_t read(std::size_t word) const { return m_words[word]; }
    void write(std::size_t word, std::uint32_t value) { m_words[word] = value; }
    [[nodiscard]] volatile std::uint32_t* words() const { return m_words; }

private:
    void* m_mapping;
    std::size_t m_bytes;
    volatile std::uint32_t* m_words = nullptr;
};

/// The SPI port of the sensor.
class tcPort {
public:
    explicit tcPort(const char* path = "/dev/spidev1.0");
    /// Each \return 0 or errno
    int setMode(std::uint32_t mode);
    int setLsbFirst(std::uint8_t lsbFirst);
    int setBits(std::uint8_t bits);
    int setSpeed(std::uint32_t hertz);
    /// Mode 0, 32 bits, 10 MHz.
    void configure();
    /// \return bytes sent, or -errno
    int send(std::initializer_list<std::uint8_t> bytes);
    int send(const std::vector<std::uint8_t>& bytes);
    /// One register write. \return bytes sent, or -errno
    int writeRegister(std::uint32_t address, std::uint32_t value);
    [[nodiscard]] int descriptor() const { return m_descriptor.get(); }

private:
    tcDescriptor m_descriptor;
};

/// The supply monitor.
class tcMonitor {
public:
    tcMonitor();
    /// \return bytes written, or -errno
    int command(std::uint8_t byte);
    /// \return result, or -errno
    int convert();
    /// \param channel 0, 1 or 4 \return result of a conversion against ground, or -errno
    int measure(int channel);
    [[nodiscard]] int descriptor() const { return m_descriptor.get(); }

private:
    tcDescriptor m_descriptor;
};

/// The whole head, used as it should be.
class tcUser {
public:
    tcUser();
    /// Supplies, reset, measurements; then the head takes registers.
    void powerUp();
    void powerDown();
    /// Frame timing and readout of the whole array, pulses to match.
    void configure();
    /// Locks and aligns the link. \return 0, -1 (PLL or alignment) or -2 (lanes)
    int bringUp();
    void start();
    void stop();

    tcPort port;
    tcMonitor monitor;
    tcDescriptor chip;
    tcDescriptor core, svdd, avddh, reset;
    tcRegisters frameControl{0xFF210000};
    tcRegisters pulses{0xFF211000, 4096};
    tcRegisters clock{0xFF204000};

private:
    template<class Condition>
    bool waitFor(unsigned milliseconds, Condition condition);
};
