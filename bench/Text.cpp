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

// Runs a coder on its input, once it has given what is wanted.
template <auto Code, bool IsBare>
void Run(benchmark::State& state, const std::string& input, const std::string& wanted)
{
    if (IsBare && __builtin_cpu_supports("avx2") == 0) {
        state.SkipWithError("no AVX2");
        return;
    }
    if (!IsRight(Code(input), wanted, IsBare))
        state.SkipWithError("wrong result");
    Measure(state, [&] { benchmark::DoNotOptimize(Code(input)); });
}

template <auto Encode, bool IsBare = false>
void RunEncode(benchmark::State& state, std::size_t size)
{
    const std::string& bytes = Bytes(size);
    Run<Encode, IsBare>(state, bytes, EncodeAbseil(bytes));
}

template <auto Decode, bool IsBare = false>
void RunDecode(benchmark::State& state, std::size_t size)
{
    const std::string& bytes = Bytes(size);
    Run<Decode, IsBare>(state, EncodeAbseil(bytes), bytes);
}

// The time of 10,000 recipients is to be about 100 times that of 100.
void FormatHeader(benchmark::State& state, int recipients)
{
    VornEx::CSmtp mail;
    mail.SetFrom("agent@example.org", "Agent");
    mail.SetSubject("Benchmark");
    for (int number = 0; number < recipients; ++number)
        mail.AddTO("recipient" + std::to_string(number) + "@example.org", "Recipient");
    Vorn::Strings::TString<128> header;
    Measure(state, [&] {
        header.Clear();
        benchmark::DoNotOptimize(mail.FormatHeader(header));
    });
}

const bool g_Registered = [] {
    const struct
    {
        const char* m_Name;
        void (*m_Encode)(benchmark::State&, std::size_t);
        void (*m_Decode)(benchmark::State&, std::size_t);
    } rows[] = {{"vornex", RunEncode<EncodeOurs>, RunDecode<DecodeOurs>},
                {"OpenSSL", RunEncode<EncodeOpenSsl>, RunDecode<DecodeOpenSsl>},
                {"GLib", RunEncode<EncodeGlib>, RunDecode<DecodeGlib>},
                {"Abseil", RunEncode<EncodeAbseil>, RunDecode<DecodeAbseil>},
                {"limit: bare AVX2 loop", RunEncode<Bench::BareEncode, true>,
                 RunDecode<Bench::BareDecode, true>}};
    for (const bool isLarge : {false, true}) {
        const std::size_t size = isLarge ? 1U << 20U : 1U << 10U;
        const std::string of = isLarge ? " of 1 MB/" : " of 1 KB/";
        for (const auto& row : rows)
            benchmark::RegisterBenchmark(("Base64 text" + of + row.m_Name).c_str(), row.m_Encode,
                                         size);
        for (const auto& row : rows)
            benchmark::RegisterBenchmark(("bytes from Base64" + of + row.m_Name).c_str(),
                                         row.m_Decode, size);
    }
    for (const int recipients : {1, 100, 10000})
        benchmark::RegisterBenchmark(
            ("mail header, recipients: " + std::to_string(recipients) + "/vornex").c_str(),
            FormatHeader, recipients);
    return true;
}();

} // namespace
