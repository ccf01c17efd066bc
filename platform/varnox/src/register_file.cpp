#include <varnox/register_file.h>

#include <string>

#include "observer_lock.h"
#include "platform/support/immortal.h"

namespace Varnox {

namespace {

struct tsWord {
    std::uint32_t value = 0;
    std::uint64_t writes = 0; ///< how often it was written, to tell one's own write from others
};

using tmWords = std::map<std::uint32_t, tsWord>;

/// All register files of the process. The one without a name is the process's own.
struct tsRegistry {
    std::mutex lock;
    std::map<std::optional<std::string>, tcRegisterFile> files;
};

} // namespace

struct tcRegisterFile::tsState {
    mutable std::mutex lock; ///< guards the words; never held while observers are called
    tmWords words;
    std::uint64_t writes = 0; ///< writes to all words
    tcObservable observable;

    /// Stores a value. The caller holds the lock.
    /// \return the number of this write
    std::uint64_t store(std::uint32_t address, std::uint32_t value) {
        words[address] = {value, ++writes};
        return writes;
    }

    /// Undoes a client's write when nothing has been written since. The caller holds the lock.
    void undo(std::uint32_t address, std::uint64_t write, const std::optional<tsWord>& previous) {
        const auto word = words.find(address);
        if (word == words.end() || word->second.writes != write)
            return;
        if (previous)
            word->second = *previous;
        else
            words.erase(word);
    }

    [[nodiscard]] std::optional<tsWord> find(std::uint32_t address) const {
        const auto word = words.find(address);
        return word != words.end() ? std::optional(word->second) : std::nullopt;
    }
};

tcRegisterFile::tcRegisterFile() : m_state(std::make_unique<tsState>()) {}

tcRegisterFile::~tcRegisterFile() = default;

tcRegisterFile* tcRegisterFile::getInstance(const char* name, bool create) {
    static platform::tuImmortal<tsRegistry> theRegistry; // boards publish until the process ends
    tsRegistry& registry = theRegistry.value;

    const auto key = name != nullptr ? std::optional<std::string>(name) : std::nullopt;
    const std::lock_guard lock(registry.lock);
    if (create)
        return &registry.files[key];
    const auto file = registry.files.find(key);
    return file != registry.files.end() ? &file->second : nullptr;
}

void tcRegisterFile::update_word(std::uint32_t address, std::uint32_t value) {
    const std::lock_guard lock(m_state->lock);
    m_state->store(address, value);
}

tsWriteResult tcRegisterFile::write_word(std::uint32_t address, std::uint32_t value) {
    // One client's write after the other: what a refused write goes back to is then a value that
    // was not refused itself.
    const std::lock_guard clients(observerLock());

    std::unique_lock lock(m_state->lock);
    const std::optional<tsWord> previous = m_state->find(address);
    const std::uint64_t write = m_state->store(address, value);
    lock.unlock();

    tsUpdate update{kUpdateWordWrite, address, value, false, 0};
    m_state->observable.notify(update);

    lock.lock();
    if (update.status != 0)
        m_state->undo(address, write, previous);
    const std::optional<tsWord> word = m_state->find(address);
    return {update.handled, update.status, word ? word->value : 0};
}

std::optional<std::uint32_t> tcRegisterFile::read_word(std::uint32_t address) const {
    const std::lock_guard lock(m_state->lock);
    const std::optional<tsWord> word = m_state->find(address);
    return word ? std::optional(word->value) : std::nullopt;
}

std::map<std::uint32_t, std::uint32_t> tcRegisterFile::words() const {
    const std::lock_guard lock(m_state->lock);
    std::map<std::uint32_t, std::uint32_t> copy;
    for (const auto& [address, word] : m_state->words)
        copy.emplace_hint(copy.end(), address, word.value);
    return copy;
}

tcObservable& tcRegisterFile::observable() {
    return m_state->observable;
}

} // namespace Varnox
