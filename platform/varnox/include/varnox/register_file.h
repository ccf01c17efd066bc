/// \file
/// The host's register file: 32-bit words that boards publish and clients read and write.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include <varnox/export.h>
#include <varnox/observer.h>

namespace Varnox {

/// What became of a client's write.
struct tsWriteResult {
    bool handled = false;     ///< an observer took the write
    std::uint16_t status = 0; ///< 0, or what the observer reported
    std::uint32_t value = 0;  ///< what the word holds now
};

/// One register file. Boards use the device side (`update_word`), clients the client side
/// (`write_word`). All operations may be called from several threads.
class VARNOX_API tcRegisterFile {
public:
    tcRegisterFile();
    tcRegisterFile(const tcRegisterFile&) = delete;
    tcRegisterFile& operator=(const tcRegisterFile&) = delete;
    ~tcRegisterFile();

    /// \param name   null for the process's own register file, else the name of another one
    /// \param create make it when it does not exist yet
    /// \return the register file, which lives as long as the process; null when it does not exist
    ///         and `create` is false
    static tcRegisterFile* getInstance(const char* name, bool create);

    /// Device side: publishes a value. Nobody is notified.
    void update_word(std::uint32_t address, std::uint32_t value);

    /// Client side: stores the value and notifies the observers. When an observer reports failure,
    /// the word goes back to what it held, unless the device side has published another value
    /// meanwhile.
    tsWriteResult write_word(std::uint32_t address, std::uint32_t value);

    /// \return the word, or nothing when it was never written
    [[nodiscard]] std::optional<std::uint32_t> read_word(std::uint32_t address) const;

    /// \return a copy of all words, by ascending address
    [[nodiscard]] std::map<std::uint32_t, std::uint32_t> words() const;

    /// Where observers of the client side register.
    [[nodiscard]] tcObservable& observable();

private:
    struct VARNOX_LOCAL tsState;
    std::unique_ptr<tsState> m_state;
};

} // namespace Varnox
