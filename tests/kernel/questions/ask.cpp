#include "tests/kernel/questions/ask.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

void* nowhere() {
    constexpr std::uintptr_t address = 16;
    return reinterpret_cast<void*>(address); // a bad pointer is what is asked about
}

tcDevice::tcDevice(const char* path, int flags) : m_descriptor(open(path, flags | O_CLOEXEC)) {}

tcDevice::~tcDevice() {
    if (m_descriptor >= 0) {
        close(m_descriptor);
    }
}

tsGiven::tsGiven(long long value) : result(value), error(value < 0 ? errno : 0) {}

namespace {

void print(std::string_view question, const std::string& answer, const tsGiven& given,
           const std::string& cameBack) {
    const std::string error =
        given.error == 0 ? "" : std::string(" ") + strerrorname_np(given.error);
    std::printf("%.*s: %s%s%s%s\n", static_cast<int>(question.size()), question.data(),
                answer.c_str(), error.c_str(), cameBack.empty() ? "" : " | ", cameBack.c_str());
}

} // namespace

void tell(std::string_view question, const tsGiven& given, const std::string& cameBack) {
    print(question, std::to_string(given.result), given, cameBack);
}

void tellOpened(std::string_view question, const tsGiven& given) {
    print(question, given.error == 0 ? "opened" : "-1", given, {});
}

std::string hex(std::uint64_t number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%llX", static_cast<unsigned long long>(number));
    return text.data();
}

std::string bytes(std::span<const std::uint8_t> data) {
    std::string text;
    for (const std::uint8_t byte : data) {
        std::array<char, 4> two{};
        std::snprintf(two.data(), two.size(), "%02X", unsigned{byte});
        text += (text.empty() ? "" : " ") + std::string(two.data());
    }
    return text;
}
