// Both directions work on whole groups - three bytes, four characters - through tables made from
// the alphabet at compile time:
//
//     byte        0         1         2
//     bits     aaaaaabb  bbbbcccc  ccdddddd
//     pairs    [ first 12 bits ][ last 12 bits ]   one look-up each while encoding
//
// While decoding, each of the four characters has a table that holds its six bits in their place.
// Where the processor has vector instructions, these take whole blocks first (Base64Vector.h), up
// to the first that has anything but characters of the alphabet; the tables take what is left.
#include <vornex/Base64.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "Base64Vector.h"

namespace VornEx {

namespace {

constexpr std::string_view Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of each 12-bit value.
constexpr auto Pairs = [] {
    std::array<std::array<char, 2>, 4096> pairs{};
    for (std::size_t value = 0; value < pairs.size(); ++value)
        pairs[value] = {Alphabet[value >> 6U], Alphabet[value & 63U]};
    return pairs;
}();

constexpr std::uint32_t NotInAlphabet = 0xFF000000;

// The 24 bits that a character gives in each of the four places, or NotInAlphabet.
constexpr auto Places = [] {
    std::array<std::array<std::uint32_t, 256>, 4> places{};
    for (std::size_t place = 0; place < places.size(); ++place) {
        for (auto& entry : places[place])
            entry = NotInAlphabet;
        for (std::size_t value = 0; value < Alphabet.size(); ++value)
            places[place][static_cast<unsigned char>(Alphabet[value])] =
                static_cast<std::uint32_t>(value << (18 - 6 * place));
    }
    return places;
}();

void PutPair(char* out, std::uint32_t value)
{
    std::memcpy(out, Pairs[value].data(), 2);
}

void PutBytes(char* out, std::uint32_t group)
{
    out[0] = static_cast<char>(group >> 16U);
    out[1] = static_cast<char>(group >> 8U);
    out[2] = static_cast<char>(group);
}

std::uint32_t Group(const unsigned char* four)
{
    return Places[0][four[0]] | Places[1][four[1]] | Places[2][four[2]] | Places[3][four[3]];
}

// The six bits of one character; false where decoding stops. A character that the search of the
// alphabet misses though isalnum takes it counts as all bits set: it is no stop.
bool Value(unsigned char character, unsigned char& value)
{
    const std::uint32_t entry = Places[3][character];
    if (entry == NotInAlphabet && std::isalnum(character) == 0)
        return false;
    value = static_cast<unsigned char>(entry == NotInAlphabet ? 63U : entry);
    return true;
}

// The best that this machine has. Asking is a look into memory: there is nothing to keep.
const Internals::CBase64Vector& Vector()
{
    const Internals::CBase64Vector* vector = Internals::Base64Vectors;
    while (vector->m_IsThere != nullptr && !vector->m_IsThere())
        ++vector;
    return *vector;
}

std::size_t EncodeBlocks(const unsigned char* data, std::size_t length, char* out)
{
    const auto encode =
        length >= Internals::CBase64Vector::BlockBytes ? Vector().m_Encode : nullptr;
    return encode != nullptr ? encode(data, length, out) : 0;
}

std::size_t DecodeBlocks(const unsigned char* in, std::size_t length, char* out)
{
    const auto decode =
        length >= Internals::CBase64Vector::BlockCharacters ? Vector().m_Decode : nullptr;
    return decode != nullptr ? decode(in, length, out) : 0;
}

} // namespace

std::string base64_encode(const unsigned char* data, unsigned int length)
{
    std::string text;
    const std::size_t groups = length / 3 + (length % 3 != 0 ? 1 : 0);
    if (groups > text.max_size() / 4)
        throw std::length_error("base64_encode");
    text.resize(groups * 4);

    char* out = text.data();
    const unsigned char* const wholeEnd = data + (length - length % 3);
    const std::size_t inBlocks = EncodeBlocks(data, length, out);
    data += inBlocks;
    out += inBlocks / 3 * 4;
    for (; data != wholeEnd; data += 3, out += 4) {
        const std::uint32_t group =
            std::uint32_t{data[0]} << 16U | std::uint32_t{data[1]} << 8U | data[2];
        PutPair(out, group >> 12U);
        PutPair(out + 2, group & 0xFFFU);
    }
    if (length % 3 == 1) {
        PutPair(out, std::uint32_t{data[0]} << 4U);
        out[2] = '=';
        out[3] = '=';
    } else if (length % 3 == 2) {
        PutPair(out, std::uint32_t{data[0]} << 4U | std::uint32_t{data[1]} >> 4U);
        out[2] = Alphabet[(data[1] & 15U) << 2U];
        out[3] = '=';
    }
    return text;
}

std::string base64_decode(const std::string& text)
{
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    const unsigned char* const end = in + text.size();
    std::string bytes(text.size() / 4 * 3 + 3, '\0');
    char* out = bytes.data();

    for (;;) {
        const std::size_t inBlocks = DecodeBlocks(in, static_cast<std::size_t>(end - in), out);
        in += inBlocks;
        out += inBlocks / 4 * 3;
        for (; end - in >= 4; in += 4, out += 3) {
            const std::uint32_t group = Group(in);
            if (group >= NotInAlphabet)
                break;
            PutBytes(out, group);
        }

        // The last group, or one that a character outside the alphabet is in.
        unsigned int count = 0;
        std::uint32_t group = 0;
        for (unsigned char value = 0; count < 4 && in != end && Value(*in, value); ++count, ++in)
            group |= std::uint32_t{value} << (18 - 6 * count);
        if (count != 0) {
            PutBytes(out, group);
            out += count - 1;
        }
        if (count != 4)
            break;
    }
    bytes.resize(static_cast<std::size_t>(out - bytes.data()));
    return bytes;
}

} // namespace VornEx
