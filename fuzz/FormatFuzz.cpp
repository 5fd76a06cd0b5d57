// Fuzz target of the format streams. A format made of fields that printf has too must give what
// snprintf gives; a format of raw bytes, filled with raw values, must give the same to a string and
// to a buffer of one's own.
#include <vector>

#include <vorn/FormatStream.h>
#include <vorn/StringVar.h>

#include "Fuzz.h"

namespace {

using Vorn::Output_Streams::CFormatStream;
using Vorn::Strings::CStringVar;

// A value for a field.
struct CValue
{
    bool m_IsText;
    unsigned int m_Number;
    std::string m_Text;
};

CValue MadeValue(FuzzedDataProvider& data, bool isText)
{
    CValue value{isText, 0, {}};
    if (isText)
        value.m_Text = data.ConsumeBytesAsString(data.ConsumeIntegralInRange<std::size_t>(0, 40));
    else
        value.m_Number = data.ConsumeBool() ? data.ConsumeIntegral<unsigned int>()
                                            : data.ConsumeIntegralInRange<unsigned int>(0, 9);
    return value;
}

void Supply(CFormatStream& stream, const std::vector<CValue>& values)
{
    for (const auto& value : values) {
        if (value.m_IsText)
            stream << Vorn::Strings::CSubStringRef(value.m_Text);
        else
            stream.FormatInt(value.m_Number);
    }
}

class CCollector : public Vorn::Output_Streams::Base_Classes::CFormatStreamBuffer
{
public:
    void Write(const char* text, unsigned int from, unsigned int length) override
    {
        m_Text.append(text + from, length);
    }
    void Fill(int character, unsigned int count) override
    {
        m_Text.append(count, static_cast<char>(character));
    }
    void SignalFormatEnd() override { ++m_Ends; }

    std::string m_Text;
    int m_Ends = 0;
};

std::string Formatted(const std::string& format, const std::vector<CValue>& values)
{
    Vorn::Strings::TString<16> text(Vorn::Strings::CStringRef("before "));
    {
        CFormatStream stream = text.Format(format.c_str());
        Supply(stream, values);
    }
    CCollector collector;
    {
        CFormatStream stream(collector, format.c_str());
        Supply(stream, values);
    }
    Fuzz::ExpectSame(std::string(text), "before " + collector.m_Text, Fuzz::Readable(format));
    Fuzz::Expect(collector.m_Ends == 1, "a format has one end");
    return collector.m_Text;
}

void TryRaw(FuzzedDataProvider& data)
{
    std::vector<CValue> values;
    for (std::size_t count = data.ConsumeIntegralInRange<std::size_t>(0, 5); count > 0; --count)
        values.push_back(MadeValue(data, data.ConsumeBool()));
    Formatted(data.ConsumeRemainingBytesAsString().c_str(), values);
}

void TryMade(FuzzedDataProvider& data)
{
    std::string format;
    std::string wanted;
    std::vector<CValue> values;
    for (std::size_t count = data.ConsumeIntegralInRange<std::size_t>(0, 5); count > 0; --count) {
        const char* const literal = data.PickValueInArray({"", "a", "50%%", "[", " \xE9 "});
        format += literal;
        wanted += std::string(literal) == "50%%" ? "50%" : literal;

        const char conversion = data.PickValueInArray({'d', 'i', 'u', 'x', 'X', 'o', 'c', 's'});
        const bool isNumber = conversion != 'c' && conversion != 's';
        std::string field = "%";
        for (const char flag : {'-', '+', ' ', '#', '0'})
            if ((isNumber || flag == '-') && data.ConsumeIntegralInRange<int>(0, 3) == 0)
                field += flag;
        if (data.ConsumeBool())
            field += std::to_string(data.ConsumeIntegralInRange<int>(1, 200));
        if (conversion != 'c' && data.ConsumeBool())
            field +=
                "." + (data.ConsumeBool() ? std::to_string(data.ConsumeIntegralInRange<int>(0, 200))
                                          : std::string());
        format += field + data.PickValueInArray({"", "", "h", "l", "ll", "z"}) + conversion;
        field += conversion;

        values.push_back(MadeValue(data, conversion == 's'));
        const CValue& value = values.back();
        char buffer[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        // printf ends a text at its first NUL, the stream does not.
        if (value.m_IsText)
            values.back().m_Text = value.m_Text.c_str();
        const int length =
            value.m_IsText
                ? std::snprintf(buffer, sizeof buffer, field.c_str(), value.m_Text.c_str())
                : std::snprintf(buffer, sizeof buffer, field.c_str(), value.m_Number);
#pragma GCC diagnostic pop
        wanted.append(buffer, static_cast<std::size_t>(length));
    }
    Fuzz::ExpectSame(Formatted(format, values), wanted, Fuzz::Readable(format));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    FuzzedDataProvider data(bytes, size);
    if (data.ConsumeBool())
        TryMade(data);
    else
        TryRaw(data);
    return 0;
}
