// Base64: known pairs, every length and byte beside the plain definition, and where decoding stops;
// the same for each kind of vector instructions that this machine has.
#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include <vornex/Base64.h>

#include "../Src/Base64Vector.h"
#include "DataTable.h"

namespace {

// The letter of an 8-bit locale, when it is to be one.
constexpr char Letter = '\xE4';
bool g_IsLetter = false;

} // namespace

extern "C" int isalnum(int character) noexcept
{
    const auto byte = static_cast<unsigned char>(character);
    return (byte >= '0' && byte <= '9') || ((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z') ||
                   (g_IsLetter && byte == static_cast<unsigned char>(Letter))
               ? 1
               : 0;
}

namespace {

std::string Encode(const std::string& bytes)
{
    return VornEx::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()));
}

const std::string Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string RandomBytes(std::size_t length)
{
    static std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same run each time
    std::string bytes(length, '\0');
    for (auto& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Bit by bit, as RFC 4648 puts it.
std::string EncodePlainly(const std::string& bytes)
{
    const auto bit = [&](std::size_t at) {
        return at / 8 < bytes.size()
                   ? (static_cast<unsigned char>(bytes[at / 8]) >> (7 - at % 8)) & 1
                   : 0;
    };
    std::string text;
    for (std::size_t at = 0; at < bytes.size() * 8; at += 6) {
        int value = 0;
        for (std::size_t place = 0; place < 6; ++place)
            value = value * 2 + bit(at + place);
        text += Alphabet[static_cast<std::size_t>(value)];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

// Bit by bit up to the first stop; where the alphabet has no value all six bits are set.
std::string DecodePlainly(const std::string& text)
{
    std::string bytes;
    unsigned int bits = 0;
    unsigned int count = 0;
    for (const char character : text) {
        const std::size_t value = Alphabet.find(character);
        if (value == std::string::npos && isalnum(static_cast<unsigned char>(character)) == 0)
            break;
        bits = (bits << 6U) | (static_cast<unsigned int>(value) & 63U);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count);
        }
    }
    return bytes;
}

TEST(Base64, EveryLengthAndByteThereAndBack)
{
    for (std::size_t length = 0; length < 700; ++length) {
        const std::string bytes = RandomBytes(length);
        const std::string text = Encode(bytes);
        ASSERT_EQ(text, EncodePlainly(bytes)) << length;
        ASSERT_EQ(VornEx::base64_decode(text), bytes) << length;
        ASSERT_EQ(VornEx::base64_decode(text.substr(0, text.find('='))), bytes) << length;
    }
    EXPECT_EQ(VornEx::base64_encode(nullptr, 0), "");
}

TEST(Base64, DecodingStops)
{
    EachRow("base64", "decoding",
            [](const CDataRow& row) { EXPECT_EQ(VornEx::base64_decode(row[0]), row[1]); });
}

// Texts around the sizes of blocks, and each kind of character that is not in the alphabet at each
// place: those next to its ranges, padding, line ends, bytes above 127, and a letter of the locale,
// which is no stop.
TEST(Base64, DecodingStopsAtEveryPlace)
{
    const std::string whole = EncodePlainly(RandomBytes(120));
    const std::string strange =
        std::string("=\n\r *,-.:@[`{\x7F\x80\xAF\xB1\xC1\xFF") + '\0' + Letter;
    for (const bool isLetter : {false, true}) {
        g_IsLetter = isLetter;
        for (std::size_t length = 1; length <= 132; ++length) {
            const std::string text = whole.substr(whole.size() - length);
            ASSERT_EQ(VornEx::base64_decode(text), DecodePlainly(text)) << text;
            for (std::size_t place = 0; place < length; ++place) {
                std::string broken = text;
                broken[place] = strange[(length + place) % strange.size()];
                ASSERT_EQ(VornEx::base64_decode(broken), DecodePlainly(broken)) << broken;
            }
        }
        const std::string letters(200, Letter);
        ASSERT_EQ(VornEx::base64_decode(letters), std::string(isLetter ? 150 : 0, '\xFF'));
    }
    g_IsLetter = false;
}

class Base64Vectors : public testing::TestWithParam<VornEx::Internals::CBase64Vector>
{
protected:
    void SetUp() override
    {
        if (GetParam().m_IsThere == nullptr || !GetParam().m_IsThere())
            GTEST_SKIP() << "this machine has no " << GetParam().m_Name;
    }
};

// Memory that is as large as it has to be shows a sanitizer what goes beyond.
template <class Character>
std::unique_ptr<Character[]> Exactly(const std::string& text)
{
    auto copy = std::make_unique<Character[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

TEST_P(Base64Vectors, EncodeWholeBlocks)
{
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string bytes = RandomBytes(length);
        const std::size_t blocks = length / 24;
        const auto text = Exactly<char>(std::string(blocks * 32, '\0'));
        EXPECT_EQ(GetParam().m_Encode(Exactly<unsigned char>(bytes).get(), length, text.get()),
                  blocks * 24);
        EXPECT_EQ(std::string(text.get(), blocks * 32),
                  EncodePlainly(bytes.substr(0, blocks * 24)));
    }
}

// Every byte at every place of three blocks, and in what is too short for a fourth.
TEST_P(Base64Vectors, DecodeUpToTheFirstBadBlock)
{
    const std::string good = EncodePlainly(RandomBytes(93)); // 124 characters
    for (std::size_t place = 0; place < good.size(); ++place) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string text = good;
            text[place] = static_cast<char>(byte);
            const bool isGood = Alphabet.find(text[place]) != std::string::npos || place >= 96;
            const std::size_t taken = isGood ? 96 : place / 32 * 32;
            const auto bytes = Exactly<char>(std::string(72, '\0'));
            const auto input = Exactly<unsigned char>(text);
            ASSERT_EQ(GetParam().m_Decode(input.get(), text.size(), bytes.get()), taken) << text;
            ASSERT_EQ(EncodePlainly(std::string(bytes.get(), taken / 4 * 3)),
                      text.substr(0, taken));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Base64, Base64Vectors, testing::ValuesIn([] {
                             std::vector<VornEx::Internals::CBase64Vector> vectors;
                             const auto* vector = VornEx::Internals::Base64Vectors;
                             for (; vector->m_IsThere != nullptr; ++vector)
                                 vectors.push_back(*vector);
                             return vectors;
                         }()),
                         [](const auto& row) { return std::string(row.param.m_Name); });

} // namespace
