// Fuzz target of base64: what is encoded decodes to itself, and any text decodes as a model that
// takes it bit by bit says. So does what each kind of vector instructions takes of it.
#include <algorithm>
#include <memory>

#include <vornex/Base64.h>

#include "../Src/Base64Vector.h"
#include "Fuzz.h"

namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Plain(const std::string& text)
{
    static const std::string alphabet = Alphabet;
    std::string bytes;
    unsigned int bits = 0;
    unsigned int count = 0;
    for (const char character : text) {
        const std::size_t value = alphabet.find(character);
        if (value == std::string::npos)
            break;
        bits = (bits << 6U | static_cast<unsigned int>(value)) & 0xFFFFU;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    return bytes;
}

// Each writes into memory that is as large as it has to be.
void TryVectors(const std::uint8_t* bytes, std::size_t size, const std::string& text)
{
    const std::string input(bytes, bytes + size);
    const std::size_t good = std::min(input.find_first_not_of(Alphabet), size) / 32 * 32;
    const auto* vector = VornEx::Internals::Base64Vectors;
    for (; vector->m_IsThere != nullptr; ++vector) {
        if (!vector->m_IsThere())
            continue;
        const std::size_t encodes = size / 24 * 24;
        auto out = std::make_unique<char[]>(encodes / 3 * 4);
        Fuzz::Expect(vector->m_Encode(bytes, size, out.get()) == encodes, "whole blocks");
        Fuzz::ExpectSame(std::string(out.get(), encodes / 3 * 4), text.substr(0, encodes / 3 * 4),
                         vector->m_Name);
        out = std::make_unique<char[]>(size / 32 * 24);
        Fuzz::Expect(vector->m_Decode(bytes, size, out.get()) == good, "up to the first bad block");
        Fuzz::ExpectSame(std::string(out.get(), good / 4 * 3), Plain(input.substr(0, good)),
                         vector->m_Name);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const std::string input(bytes, bytes + size);
    Fuzz::ExpectSame(VornEx::base64_decode(input), Plain(input), Fuzz::Readable(input));

    const std::string text = VornEx::base64_encode(bytes, static_cast<unsigned int>(size));
    Fuzz::Expect(text.size() == (size + 2) / 3 * 4, "length");
    const std::size_t digits = text.find_last_not_of('=') + 1;
    Fuzz::Expect(text.find_first_not_of(Alphabet) >= digits && text.size() - digits < 3,
                 "a character outside the alphabet");
    Fuzz::ExpectSame(VornEx::base64_decode(text), input, text);
    TryVectors(bytes, size, text);
    return 0;
}
