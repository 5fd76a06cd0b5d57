// The least that Base64 costs with AVX2: the bare loop over whole blocks, from a string into a
// string, for input that is known to be whole and good. Nothing is checked, and no end is dealt
// with: the rest behind the last whole block is for the caller. Only where the processor has AVX2.
#pragma once

#include <string>

#include <immintrin.h>

namespace Bench {

#define BARE __attribute__((target("avx2"))) inline

// Whole blocks of 24 bytes, as far as two reads of 16 fit.
BARE std::string BareEncode(const std::string& bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    const __m256i spread = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0,
                                            2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const __m256i offsets =
        _mm256_setr_epi8(65, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0, 65, 71, -4,
                         -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 0, 0);
    char* out = text.data();
    for (const char* in = bytes.data(); bytes.data() + bytes.size() - in >= 28; in += 24) {
        const __m256i block =
            _mm256_shuffle_epi8(_mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(in + 12),
                                                    reinterpret_cast<const __m128i*>(in)),
                                spread);
        const __m256i first = _mm256_and_si256(block, _mm256_set1_epi32(0x0FC0FC00));
        const __m256i second = _mm256_and_si256(block, _mm256_set1_epi32(0x003F03F0));
        const __m256i values =
            _mm256_or_si256(_mm256_mulhi_epu16(first, _mm256_set1_epi32(0x04000040)),
                            _mm256_mullo_epi16(second, _mm256_set1_epi32(0x01000010)));
        const __m256i ranges = _mm256_sub_epi8(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                                               _mm256_cmpgt_epi8(values, _mm256_set1_epi8(25)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                            _mm256_add_epi8(values, _mm256_shuffle_epi8(offsets, ranges)));
        out += 32;
    }
    return text;
}

// Whole blocks of 32 characters, as far as a write of 32 bytes for each fits.
BARE std::string BareDecode(const std::string& text)
{
    std::string bytes(text.size() / 4 * 3, '\0');
    const __m256i offsets =
        _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4,
                         -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m256i gather = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,
                                            2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    char* out = bytes.data();
    for (const char* in = text.data(); bytes.data() + bytes.size() - out >= 32; in += 32) {
        const __m256i block = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
        const __m256i upper = _mm256_and_si256(_mm256_srli_epi32(block, 4), _mm256_set1_epi8(15));
        const __m256i ranges =
            _mm256_add_epi8(upper, _mm256_cmpeq_epi8(block, _mm256_set1_epi8('/')));
        const __m256i values = _mm256_add_epi8(block, _mm256_shuffle_epi8(offsets, ranges));
        const __m256i groups =
            _mm256_madd_epi16(_mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140)),
                              _mm256_set1_epi32(0x00011000));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out),
                            _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, gather),
                                                        _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7)));
        out += 24;
    }
    return bytes;
}

#undef BARE

} // namespace Bench
