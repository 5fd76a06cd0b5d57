// Fuzz target of number conversion, beside a model in 128 bits: base, then the text.
#include <vorn/Threading.h>
#include <vornex/Module.h>
#include <vornex/Numbers.h>

#include "Fuzz.h"
#include "PlainNumber.h"

namespace {

using Fuzz::EOutcome;

template <class Result>
void Try(const char* name, Result (*convert)(const char*, int), const std::string& text, int base)
{
    const std::string where =
        name + (" of " + Fuzz::Readable(text)) + " in base " + std::to_string(base);
    const auto wanted = Fuzz::PlainNumber<Result>(text.c_str(), base);

    EOutcome outcome = EOutcome::Number;
    try {
        Fuzz::Expect(convert(text.c_str(), base) == wanted.m_Value, where.c_str());
    } catch (unsigned int code) {
        outcome = code == VornEx::NumberOutOfRange ? EOutcome::OutOfRange : EOutcome::NotANumber;
        Fuzz::Expect(code == Vorn::Exceptions::LastError().Code(), where.c_str());
        Fuzz::Expect(Vorn::Exceptions::LastError().Context().size() == 1, where.c_str());
        Fuzz::ExpectSame(std::string(Vorn::Exceptions::LastError().Context().front().m_Text.m_Text),
                         name + (" (" + text) + ")", where);
    }
    Fuzz::ExpectSame(static_cast<long long>(outcome), static_cast<long long>(wanted.m_Outcome),
                     where);
    const Vorn::Threading::CThrowDisable disabled;
    Fuzz::Expect(convert(text.c_str(), base) == wanted.m_Value, where.c_str());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        return 0;
    const int base = bytes[0] % 40 - 1;
    const std::string content(bytes + 1, bytes + size);
    const std::string text = content.c_str();
    Try("atoi32", VornEx::atoi32, text, base);
    Try("atoui32", VornEx::atoui32, text, base);
    Try("atoi64", VornEx::atoi64, text, base);
    Try("atoui64", VornEx::atoui64, text, base);
    return 0;
}
