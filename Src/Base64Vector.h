// Base64 in blocks of 24 bytes and 32 characters, with the processor's vector instructions.
#pragma once

#include <cstddef>

namespace VornEx::Internals {

// What one set of instructions offers. Neither function reads or writes outside of what it says.
struct CBase64Vector
{
    static constexpr std::size_t BlockBytes = 24;
    static constexpr std::size_t BlockCharacters = 32;

    const char* m_Name;

    // Whether this machine has the instructions. Any thread, at any time.
    bool (*m_IsThere)();

    // Encodes the whole blocks among `length` bytes of data; room for as many whole blocks of
    // characters is the caller's. The number of bytes taken.
    std::size_t (*m_Encode)(const unsigned char* data, std::size_t length, char* text);

    // Decodes the whole blocks among `length` characters, up to the first block with a character
    // outside the alphabet, from which nothing is taken; room for as many whole blocks of bytes is
    // the caller's, and behind those decoded it may hold anything. The number of characters taken.
    std::size_t (*m_Decode)(const unsigned char* text, std::size_t length, char* bytes);
};

// Those that the library was built with, the best first, and behind them one without functions.
extern const CBase64Vector Base64Vectors[];

} // namespace VornEx::Internals
