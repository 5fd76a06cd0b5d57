// Fuzz target of base64: what is encoded decodes to itself, and any text decodes as a model that
// takes it bit by bit says.
#include <vornex/Base64.h>

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
    return 0;
}
