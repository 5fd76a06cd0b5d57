// Base64: known pairs, every length and byte beside the plain definition, and where decoding stops.
#include <gtest/gtest.h>

#include <random>

#include <vornex/Base64.h>

namespace {

std::string Encode(const std::string& bytes)
{
    return VornEx::base64_encode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()));
}

// Bit by bit, as RFC 4648 puts it.
std::string EncodePlainly(const std::string& bytes)
{
    const char* const alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
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
        text += alphabet[value];
    }
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

TEST(Base64, EveryLengthAndByteThereAndBack)
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same run each time
    for (std::size_t length = 0; length < 700; ++length) {
        std::string bytes(length, '\0');
        for (auto& byte : bytes)
            byte = static_cast<char>(random());
        const std::string text = Encode(bytes);
        ASSERT_EQ(text, EncodePlainly(bytes)) << length;
        ASSERT_EQ(VornEx::base64_decode(text), bytes) << length;
        ASSERT_EQ(VornEx::base64_decode(text.substr(0, text.find('='))), bytes) << length;
    }
    EXPECT_EQ(VornEx::base64_encode(nullptr, 0), "");
}

TEST(Base64, DecodingStops)
{
    struct
    {
        std::string m_Text;
        std::string m_Bytes;
    } const rows[] = {
        {"TWFu", "Man"},
        {"TQ==", "M"},
        {"TQ", "M"},
        {"TWF", "Ma"},
        {"T", ""},
        {"=TWFu", ""},
        {"TWFuT", "Man"},      // one left over gives nothing
        {"TW!u", "M"},         // in the middle of a group
        {"TWF!", "Ma"},        // at the last place of a group
        {"!WFu", ""},          // at the first
        {"TWFu\nTWFu", "Man"}, // no line breaks
        {"TWFu\r\nTWFu", "Man"},
        {"TWFuTQ==TWFu", "ManM"}, // nothing behind padding
        {"TWFu-_-_", "Man"},      // the other alphabet
        {std::string("TWFu\0TWFu", 9), "Man"},
        {"TWFu\xE4\xE4\xE4\xE4", "Man"}, // no letter of the C locale
        {"AAA=", std::string(2, '\0')},
        {"////", "\xFF\xFF\xFF"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(VornEx::base64_decode(row.m_Text), row.m_Bytes) << row.m_Text;

    // Wherever the stop is, what stands before it counts and nothing else.
    const std::string text = Encode(std::string(40, '\x5A'));
    for (std::size_t stop = 0; stop < text.size() - 1; ++stop) {
        std::string broken = text;
        broken[stop] = '.';
        const std::size_t bytes = stop / 4 * 3 + (stop % 4 != 0 ? stop % 4 - 1 : 0);
        EXPECT_EQ(VornEx::base64_decode(broken), std::string(bytes, '\x5A')) << stop;
    }
}

} // namespace
