/// \file
/// What the sensor was told, register by register.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

/// An ordered map from register address to value, for one writer at a time and any number of
/// readers beside it: a reader takes no lock, allocates nothing, and sees every value whole.
///
/// Every possible address has its place from the start (264 KiB), so an insertion moves nothing
/// under a reader.
class tcShadowRegisterMap {
public:
    tcShadowRegisterMap() : m_entries(std::make_unique<tsEntries>()) {}

    [[nodiscard]] bool contains(std::uint16_t address) const {
        return (presence(address).load(std::memory_order_acquire) & bit(address)) != 0;
    }

    /// \param value untouched when the address is absent
    /// \return whether the address is present
    bool find(std::uint16_t address, std::uint32_t& value) const {
        if (!contains(address)) {
            return false;
        }
        value = m_entries->values[address].load(std::memory_order_relaxed);
        return true;
    }

    /// \return the value; an absent address is inserted with 0
    std::uint32_t findOrInsert(std::uint16_t address) {
        insert(address);
        return m_entries->values[address].load(std::memory_order_relaxed);
    }

    /// Stores the value, inserting the address when it is absent.
    void store(std::uint16_t address, std::uint32_t value) {
        m_entries->values[address].store(value, std::memory_order_relaxed);
        insert(address);
    }

    /// Calls `visit(address, value)` for every entry in ascending order of addresses.
    template<class Visitor>
    void forEach(Visitor visit) const {
        for (std::size_t word = 0; word < m_entries->present.size(); ++word) {
            std::uint32_t bits = m_entries->present[word].load(std::memory_order_acquire);
            for (; bits != 0; bits &= bits - 1) {
                const auto address = static_cast<std::uint16_t>(
                    word * kBitsPerWord + static_cast<unsigned>(std::countr_zero(bits)));
                visit(address, m_entries->values[address].load(std::memory_order_relaxed));
            }
        }
    }

private:
    static constexpr std::size_t kAddresses = 65536;
    static constexpr std::size_t kBitsPerWord = 32;
    using tcWord = std::atomic<std::uint32_t>;
    static_assert(tcWord::is_always_lock_free);

    struct tsEntries {
        std::array<tcWord, kAddresses> values{};
        std::array<tcWord, kAddresses / kBitsPerWord> present{};
    };

    static std::uint32_t bit(std::uint16_t address) {
        return std::uint32_t{1} << (address % kBitsPerWord);
    }
    [[nodiscard]] tcWord& presence(std::uint16_t address) const {
        return m_entries->present[address / kBitsPerWord];
    }
    // The value is in place before the bit that lets readers see it.
    void insert(std::uint16_t address) {
        if (!contains(address)) {
            presence(address).fetch_or(bit(address), std::memory_order_release);
        }
    }

    std::unique_ptr<tsEntries> m_entries;
};
