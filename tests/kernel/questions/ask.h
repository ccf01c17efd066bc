/// \file
/// A question to a device file, and its answer as a line.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// Where nothing is mapped, for a program of any width. The compiler is not told.
void* nowhere();

/// A descriptor of a device file.
class tcDevice {
public:
    tcDevice(const char* path, int flags);
    explicit tcDevice(int descriptor) : m_descriptor(descriptor) {}
    tcDevice(const tcDevice&) = delete;
    tcDevice& operator=(const tcDevice&) = delete;
    ~tcDevice();
    [[nodiscard]] int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// What a call gave, before errno is overwritten.
struct tsGiven {
    explicit tsGiven(long long value);
    long long result;
    int error; // 0 when it succeeded
};

/// Prints "question: 4" or "question: -1 EINVAL", and behind " | " what came back, if anything did.
void tell(std::string_view question, const tsGiven& given, const std::string& cameBack = {});
/// A call whose result is only good for being closed: "opened".
void tellOpened(std::string_view question, const tsGiven& given);

std::string hex(std::uint64_t number);
std::string bytes(std::span<const std::uint8_t> data);

void askSpi();
void askGpio();
void askI2c();
void askMemory();
