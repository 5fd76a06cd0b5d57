// Base64 of 1 KB and 1 MB beside OpenSSL, GLib, Abseil and a bare vector loop, each from the same
// bytes to a text of its own; header formatting with 1, 100 and 10,000 recipients.
#include "Allocations.h"

#include <random>
#include <string>

#include <absl/strings/escaping.h>
#include <glib.h>
#include <openssl/evp.h>

#include <vornex/Base64.h>
#include <vornex/Smtp.h>

#include "BareBase64.h"

namespace {

// Random, always the same.
const std::string& Bytes(std::size_t size)
{
    static const std::string small = [] {
        std::mt19937 random(1);
        std::string bytes(1 << 10, '\0');
        for (auto& byte : bytes)
            byte = static_cast<char>(random());
        return bytes;
    }();
    static const std::string large = [] {
        std::string bytes;
        while (bytes.size() < 1 << 20)
            bytes += small;
        return bytes;
    }();
    return size == small.size() ? small : large;
}

const unsigned char* Unsigned(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

std::string EncodeOurs(const std::string& bytes)
{
    return VornEx::base64_encode(Unsigned(bytes), static_cast<unsigned int>(bytes.size()));
}

std::string DecodeOurs(const std::string& text)
{
    return VornEx::base64_decode(text);
}

// EVP_EncodeBlock writes a NUL behind the text, which is where a string has one.
std::string EncodeOpenSsl(const std::string& bytes)
{
    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), Unsigned(bytes),
                    static_cast<int>(bytes.size()));
    return text;
}

// EVP_DecodeBlock counts what padding stands for as bytes.
std::string DecodeOpenSsl(const std::string& text)
{
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       Unsigned(text), static_cast<int>(text.size()));
    const std::size_t padding = text.size() - 1 - text.find_last_not_of('=');
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

// The peers that allocate for themselves are measured with the memory they give.
struct CGlibText
{
    gchar* m_Text;
    gsize m_Length;
    explicit CGlibText(gchar* text, gsize length) : m_Text(text), m_Length(length) {}
    CGlibText(const CGlibText&) = delete;
    CGlibText& operator=(const CGlibText&) = delete;
    ~CGlibText() { g_free(m_Text); }
    operator std::string() const { return {m_Text, m_Length}; } // NOLINT: for the check only
};

CGlibText EncodeGlib(const std::string& bytes)
{
    return CGlibText(g_base64_encode(Unsigned(bytes), bytes.size()), (bytes.size() + 2) / 3 * 4);
}

CGlibText DecodeGlib(const std::string& text)
{
    gsize length = 0;
    auto* const bytes = g_base64_decode(text.c_str(), &length);
    return CGlibText(reinterpret_cast<gchar*>(bytes), length);
}

std::string EncodeAbseil(const std::string& bytes)
{
    return absl::Base64Escape(bytes);
}

std::string DecodeAbseil(const std::string& text)
{
    std::string bytes;
    absl::Base64Unescape(text, &bytes);
    return bytes;
}

// Compares all but the end that the bare loop leaves.
bool IsRight(const std::string& found, const std::string& wanted, bool isBare)
{
    const std::size_t left = isBare ? 64 : 0;
    return (isBare || found.size() == wanted.size()) &&
           found.compare(0, wanted.size() - left, wanted, 0, wanted.size() - left) == 0;
}

bool IsMissing(benchmark::State& state, bool isBare)
{
    const bool missing = isBare && __builtin_cpu_supports("avx2") == 0;
    if (missing)
        state.SkipWithError("no AVX2");
    return missing;
}

template <auto Encode, bool IsBare = false>
void BM_Encode(benchmark::State& state)
{
    const std::string& bytes = Bytes(static_cast<std::size_t>(state.range(0)));
    if (IsMissing(state, IsBare))
        return;
    if (!IsRight(Encode(bytes), EncodeAbseil(bytes), IsBare))
        state.SkipWithError("wrong text");
    Measure(state, [&] { benchmark::DoNotOptimize(Encode(bytes)); });
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <auto Decode, bool IsBare = false>
void BM_Decode(benchmark::State& state)
{
    const std::string& bytes = Bytes(static_cast<std::size_t>(state.range(0)));
    const std::string text = EncodeAbseil(bytes);
    if (IsMissing(state, IsBare))
        return;
    if (!IsRight(Decode(text), bytes, IsBare))
        state.SkipWithError("wrong bytes");
    Measure(state, [&] { benchmark::DoNotOptimize(Decode(text)); });
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

// The time of 10,000 recipients is to be about 100 times that of 100.
void BM_FormatHeader(benchmark::State& state)
{
    VornEx::CSmtp mail;
    mail.SetFrom("agent@example.org", "Agent");
    mail.SetSubject("Benchmark");
    for (std::int64_t number = 0; number < state.range(0); ++number)
        mail.AddTO("recipient" + std::to_string(number) + "@example.org", "Recipient");
    Vorn::Strings::TString<128> header;
    Measure(state, [&] {
        header.Clear();
        benchmark::DoNotOptimize(mail.FormatHeader(header));
    });
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_FormatHeader)->Arg(1)->Arg(100)->Arg(10000);

#define SIZES Arg(1 << 10)->Arg(1 << 20)
BENCHMARK_TEMPLATE(BM_Encode, EncodeOurs)->SIZES;
BENCHMARK_TEMPLATE(BM_Encode, Bench::BareEncode, true)->SIZES;
BENCHMARK_TEMPLATE(BM_Encode, EncodeOpenSsl)->SIZES;
BENCHMARK_TEMPLATE(BM_Encode, EncodeGlib)->SIZES;
BENCHMARK_TEMPLATE(BM_Encode, EncodeAbseil)->SIZES;
BENCHMARK_TEMPLATE(BM_Decode, DecodeOurs)->SIZES;
BENCHMARK_TEMPLATE(BM_Decode, Bench::BareDecode, true)->SIZES;
BENCHMARK_TEMPLATE(BM_Decode, DecodeOpenSsl)->SIZES;
BENCHMARK_TEMPLATE(BM_Decode, DecodeGlib)->SIZES;
BENCHMARK_TEMPLATE(BM_Decode, DecodeAbseil)->SIZES;

} // namespace
