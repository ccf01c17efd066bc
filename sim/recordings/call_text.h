/// \file
/// Calls at the device boundary as text, and answers read back from it.
///
/// The text has no pointers and no sizes of a machine's own: what a 32-bit head did can be given to
/// a 64-bit program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace sim {

/// \param flags of `open` \return for example "/dev/mem rw sync cloexec"
[[nodiscard]] std::string openText(std::string_view path, int flags);
/// \return for example "0xFF210000 16384 rw shared"
[[nodiscard]] std::string mapText(std::uint32_t physicalAddress, std::size_t length, int protection,
                                  int flags);

/// \param argument as the program handed it over, before the call is answered
/// \return for example "SPI_IOC_MESSAGE 0F B9 04 36 (10000000 Hz, 32 bits)"
[[nodiscard]] std::string ioctlText(std::uint32_t request, const void* argument);
/// \param result   0 and more, or -errno
/// \param argument as the program gets it back
/// \return for example "4", "EIO", "0 | 0x00000001"
[[nodiscard]] std::string ioctlAnswer(int result, std::uint32_t request, const void* argument);
/// Gives the program what `ioctlAnswer` wrote.
/// \return 0 and more, or -errno
/// \throws std::runtime_error when the text is no answer to such a call
int playIoctl(std::string_view answer, std::uint32_t request, void* argument);

/// \param result 0 and more, or -errno \return a number, or the error's name
[[nodiscard]] std::string resultText(std::int64_t result);
/// \return 0 and more, or -errno
/// \throws std::runtime_error when the text is neither a number nor an error's name
[[nodiscard]] std::int64_t playResult(std::string_view text);

/// As a read answers: the count, and the bytes behind it.
[[nodiscard]] std::string readAnswer(std::int64_t result, std::span<const std::uint8_t> buffer);
/// Gives the program what `readAnswer` wrote. \throws std::runtime_error when it does not fit
std::int64_t playRead(std::string_view answer, std::span<std::uint8_t> buffer);

} // namespace sim
