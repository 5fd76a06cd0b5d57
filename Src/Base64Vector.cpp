// The methods are published: W. Muła and D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2
// Instructions", ACM Transactions on the Web 12(3), 2018, doi:10.1145/3132709.
//
// Encoding: a shuffle puts the three bytes of each group into a 32-bit lane as b a c b, from where
// two multiplications shift the four fields of six bits into a byte each:
//
//     in memory   bbbbcccc aaaaaabb ccdddddd bbbbcccc
//     then        00aaaaaa 00bbbbbb 00cccccc 00dddddd
//
// From a value to its character is one addition, of an offset that the value's range selects.
//
// Decoding: a character is in the alphabet when its lower half is allowed in the group that its
// upper half belongs to; its upper half, and whether it is "/", select the offset to its value. Two
// multiply-and-add instructions then join the four fields of a group.
#include "Base64Vector.h"

#if defined(__i386__) || defined(__x86_64__)

#include <immintrin.h>

#include "Processor.h"

namespace VornEx::Internals {

namespace {

// A row of 16 is what a shuffle of one 128-bit lane takes.
struct alignas(16) CRow
{
    signed char m_Bytes[16];
};

// The bytes of four groups that begin at the lane's first byte, and at its fifth.
constexpr CRow Spread = {{1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10}};
constexpr CRow SpreadFromFifth = {{5, 4, 6, 5, 8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14}};

// Offsets from value to character: a to z, the ten digits, + and /, and A to Z.
constexpr CRow ToCharacter = {
    {'a' - 26, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, '+' - 62, '/' - 63, 'A', 0, 0}};

// A bit for each group of upper halves (2; 3; 4 and 6; 5 and 7; all others), and for each lower
// half the groups in which it makes a character of the alphabet. A shuffle by a byte above 127
// gives 0.
constexpr CRow UpperGroup = {{0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10,
                              0x10, 0x10, 0x10, 0x10, 0x10}};
constexpr CRow LowerGroups = {{0x0A, 0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0C,
                               0x05, 0x04, 0x04, 0x04, 0x05}};

// Offsets from character to value by upper half; "/" is found at 1, where no other is.
constexpr CRow ToValue = {{0, 63 - '/', 62 - '+', 52 - '0', 0 - 'A', 0 - 'A', 26 - 'a', 26 - 'a', 0,
                           0, 0, 0, 0, 0, 0, 0}};

// The three bytes of each 32-bit lane, in order; what a negative place gives is 0.
constexpr CRow Gather = {{2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1}};

constexpr int FieldsAC = 0x0FC0FC00;
constexpr int FieldsBD = 0x003F03F0;
constexpr int ShiftAC = 0x04000040; // down by 10 and 6
constexpr int ShiftBD = 0x01000010; // up by 8 and 4
constexpr int JoinPairs = 0x01400140;
constexpr int JoinFours = 0x00011000;

[[gnu::target("ssse3")]] inline __m128i Load128(const void* place)
{
    return _mm_loadu_si128(static_cast<const __m128i*>(place));
}

[[gnu::target("ssse3")]] inline __m128i Row128(const CRow& row)
{
    return _mm_load_si128(reinterpret_cast<const __m128i*>(row.m_Bytes));
}

[[gnu::target("ssse3")]] inline __m128i Characters128(__m128i spread)
{
    const __m128i values = _mm_or_si128(
        _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(FieldsAC)), _mm_set1_epi32(ShiftAC)),
        _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(FieldsBD)), _mm_set1_epi32(ShiftBD)));
    const __m128i capital = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
    const __m128i range = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)),
                                       _mm_and_si128(capital, _mm_set1_epi8(13)));
    return _mm_add_epi8(values, _mm_shuffle_epi8(Row128(ToCharacter), range));
}

[[gnu::target("ssse3")]] std::size_t EncodeSsse3(const unsigned char* data, std::size_t length,
                                                 char* text)
{
    const std::size_t whole = length - length % CBase64Vector::BlockBytes;
    for (std::size_t at = 0; at != whole; at += CBase64Vector::BlockBytes, text += 32) {
        auto* const out = reinterpret_cast<__m128i*>(text);
        // The second half is in a load that ends with the block.
        const __m128i low = _mm_shuffle_epi8(Load128(data + at), Row128(Spread));
        const __m128i high = _mm_shuffle_epi8(Load128(data + at + 8), Row128(SpreadFromFifth));
        _mm_storeu_si128(out, Characters128(low));
        _mm_storeu_si128(out + 1, Characters128(high));
    }
    return whole;
}

// Adds to `bad` what is not in the alphabet.
[[gnu::target("ssse3")]] inline __m128i Bytes128(__m128i text, __m128i& bad)
{
    const __m128i upper = _mm_and_si128(_mm_srli_epi32(text, 4), _mm_set1_epi8(15));
    bad = _mm_or_si128(bad, _mm_andnot_si128(_mm_shuffle_epi8(Row128(LowerGroups), text),
                                             _mm_shuffle_epi8(Row128(UpperGroup), upper)));
    const __m128i slash = _mm_cmpeq_epi8(text, _mm_set1_epi8('/'));
    const __m128i values =
        _mm_add_epi8(text, _mm_shuffle_epi8(Row128(ToValue), _mm_add_epi8(upper, slash)));
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(JoinPairs));
    const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(JoinFours));
    return _mm_shuffle_epi8(groups, Row128(Gather));
}

[[gnu::target("ssse3")]] std::size_t DecodeSsse3(const unsigned char* text, std::size_t length,
                                                 char* bytes)
{
    const std::size_t whole = length - length % CBase64Vector::BlockCharacters;
    std::size_t at = 0;
    for (; at != whole; at += CBase64Vector::BlockCharacters, bytes += CBase64Vector::BlockBytes) {
        __m128i bad = _mm_setzero_si128();
        const __m128i low = Bytes128(Load128(text + at), bad);
        const __m128i high = Bytes128(Load128(text + at + 16), bad);
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(bad, _mm_setzero_si128())) != 0xFFFF)
            break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes),
                         _mm_or_si128(low, _mm_slli_si128(high, 12)));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes + 16), _mm_srli_si128(high, 4));
    }
    return at;
}

[[gnu::target("avx2")]] inline __m256i Twice(const CRow& row)
{
    return _mm256_broadcastsi128_si256(Row128(row));
}

[[gnu::target("avx2")]] std::size_t EncodeAvx2(const unsigned char* data, std::size_t length,
                                               char* text)
{
    const __m256i spread = _mm256_inserti128_si256(Twice(Spread), Row128(SpreadFromFifth), 1);
    const __m256i toCharacter = Twice(ToCharacter);
    const std::size_t whole = length - length % CBase64Vector::BlockBytes;
    for (std::size_t at = 0; at != whole; at += CBase64Vector::BlockBytes, text += 32) {
        const __m256i low = _mm256_castsi128_si256(Load128(data + at));
        const __m256i groups =
            _mm256_shuffle_epi8(_mm256_inserti128_si256(low, Load128(data + at + 8), 1), spread);
        const __m256i values = _mm256_or_si256(
            _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(FieldsAC)),
                               _mm256_set1_epi32(ShiftAC)),
            _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(FieldsBD)),
                               _mm256_set1_epi32(ShiftBD)));
        const __m256i capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
        const __m256i range = _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                              _mm256_and_si256(capital, _mm256_set1_epi8(13)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(text),
                            _mm256_add_epi8(values, _mm256_shuffle_epi8(toCharacter, range)));
    }
    return whole;
}

// 24 bytes from 32 characters; false when one is not in the alphabet.
[[gnu::target("avx2")]] inline bool DecodeBlock(const unsigned char* text, __m256i& bytes)
{
    const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text));
    const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(block, 4), _mm256_set1_epi8(15));
    if (_mm256_testc_si256(_mm256_shuffle_epi8(Twice(LowerGroups), block),
                           _mm256_shuffle_epi8(Twice(UpperGroup), upper)) == 0)
        return false;
    const __m256i slash = _mm256_cmpeq_epi8(block, _mm256_set1_epi8('/'));
    const __m256i values =
        _mm256_add_epi8(block, _mm256_shuffle_epi8(Twice(ToValue), _mm256_add_epi8(upper, slash)));
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(JoinPairs));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(JoinFours));
    // Each lane has twelve bytes.
    bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, Twice(Gather)),
                                        _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    return true;
}

[[gnu::target("avx2")]] std::size_t DecodeAvx2(const unsigned char* text, std::size_t length,
                                               char* bytes)
{
    const std::size_t whole = length - length % CBase64Vector::BlockCharacters;
    std::size_t at = 0;
    __m256i block;
    // While there is room for another block, 32 bytes can be written.
    for (; whole - at > CBase64Vector::BlockCharacters; at += CBase64Vector::BlockCharacters) {
        if (!DecodeBlock(text + at, block))
            return at;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(bytes), block);
        bytes += CBase64Vector::BlockBytes;
    }
    if (at != whole && DecodeBlock(text + at, block)) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), _mm256_castsi256_si128(block));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(bytes + 16),
                         _mm256_extracti128_si256(block, 1));
        at = whole;
    }
    return at;
}

} // namespace

const CBase64Vector Base64Vectors[] = {
    {"AVX2", HasAvx2, EncodeAvx2, DecodeAvx2},
    {"SSSE3", HasSsse3, EncodeSsse3, DecodeSsse3},
    {"none", nullptr, nullptr, nullptr},
};

} // namespace VornEx::Internals

#else

namespace VornEx::Internals {

const CBase64Vector Base64Vectors[] = {{"none", nullptr, nullptr, nullptr}};

} // namespace VornEx::Internals

#endif
