/// \file
/// The same accesses, compiled in two ways.
#pragma once

#include <cstddef>
#include <cstdint>

#define ACCESS_FORMS                                                                               \
    std::uint32_t load(const volatile std::uint32_t* word);                                        \
    void store(volatile std::uint32_t* word, std::uint32_t value);                                 \
    void storeConstant(volatile std::uint32_t* word);                                              \
    std::uint32_t loadIndexed(const volatile std::uint32_t* words, std::size_t index);             \
    void storeIndexed(volatile std::uint32_t* words, std::size_t index, std::uint32_t value);      \
    void setBits(volatile std::uint32_t* word, std::uint32_t bits);                                \
    void clearBits(volatile std::uint32_t* word, std::uint32_t bits);                              \
    void increment(volatile std::uint32_t* word);                                                  \
    bool testBit(const volatile std::uint32_t* word, unsigned bit);                                \
    bool isEqual(const volatile std::uint32_t* word, std::uint32_t value);                         \
    std::uint32_t highHalf(const volatile std::uint32_t* word);                                    \
    std::int64_t asSigned64(const volatile std::int32_t* word);                                    \
    double asDouble(const volatile std::uint32_t* word);                                           \
    float asFloat(const volatile std::int32_t* word);                                              \
    std::uint64_t sumOf(const volatile std::uint32_t* words, std::size_t count);                   \
    std::uint32_t product(const volatile std::uint32_t* word, std::uint32_t factor);               \
    std::uint32_t larger(const volatile std::uint32_t* one, const volatile std::uint32_t* other);  \
    void copyWords(volatile std::uint32_t* to, const volatile std::uint32_t* from,                 \
                   std::size_t count);                                                             \
    std::uint8_t loadByte(const volatile std::uint8_t* byte);                                      \
    std::uint16_t loadHalf(const volatile std::uint16_t* half);                                    \
    std::uint64_t loadDouble(const volatile std::uint64_t* word);                                  \
    void storeByte(volatile std::uint8_t* byte, std::uint8_t value);

namespace plain {
ACCESS_FORMS
}
namespace optimized {
ACCESS_FORMS
}
