// Base64: known pairs, every length and byte beside the plain definition, and where decoding stops.
#include <random>

#include <vornex/Base64.h>

#include "DataTable.h"

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
    EachRow("base64", "decoding",
            [](const CDataRow& row) { EXPECT_EQ(VornEx::base64_decode(row[0]), row[1]); });

    // Wherever the stop is, what stands before it counts and nothing else.
    const std::string text = Encode(std::string(40, '\x5A'));
    for (std::size_t stop = 0; stop < text.size() - 1; ++stop) {
        const std::size_t bytes = stop / 4 * 3 + (stop % 4 != 0 ? stop % 4 - 1 : 0);
        EXPECT_EQ(VornEx::base64_decode(std::string(text).replace(stop, 1, ".")),
                  std::string(bytes, '\x5A'));
    }
}

} // namespace
