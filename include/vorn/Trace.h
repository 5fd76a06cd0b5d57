// Trace lines: what the libraries do, while somebody wants to watch.
//
// A module's m_TraceMask says which levels are on. While a level's bit is clear nothing of its
// lines is built or formatted. Lines go to one sink of the process.
#pragma once

#include <functional>

#include <vorn/Export.h>
#include <vorn/FormatStream.h>
#include <vorn/ModuleInfo.h>
#include <vorn/StringVar.h>

namespace Vorn::Internals {

// Levels in use.
inline constexpr unsigned int TraceEnterLeave = 0x2;
inline constexpr unsigned int TraceDetail = 0x10;

// A finished line. The texts are valid during the sink's call only.
struct CTraceLine
{
    const char* m_Module;
    unsigned int m_Level;
    const char* m_Source;
    unsigned int m_Line;
    Strings::CSubStringRef m_Text;
};

using TraceSink = std::function<void(const CTraceLine&)>;

// Replaces the process's sink; an empty one brings the default back, which writes one line to
// standard error: local time, module, level, source path and line, text, with "?" for control
// characters. Any thread, at any time: a line that is being written meanwhile ends in the sink it
// began with. A sink is called by all threads that trace, several at once; what it throws is
// swallowed, and what it does to errno is undone.
VORN_EXPORT void SetTraceSink(TraceSink sink);

// What the default sink does, for sinks that want to see a line and have it written too.
VORN_EXPORT void WriteTraceLine(const CTraceLine& line);

// Collects one line and hands it to the sink when it is destroyed.
class VORN_EXPORT CTraceStreamBuffer : public Output_Streams::Base_Classes::CFormatStreamBuffer
{
public:
    CTraceStreamBuffer(unsigned int level, Misc::CModuleInfo& module, const char* sourcePath,
                       unsigned int line)
        : m_Level(level), m_Module(module), m_Source(sourcePath), m_Line(line)
    {}
    ~CTraceStreamBuffer() override;

    void Write(const char* text, unsigned int from, unsigned int length) override;
    void Fill(int character, unsigned int count) override;

private:
    unsigned int m_Level;
    Misc::CModuleInfo& m_Module;
    const char* m_Source;
    unsigned int m_Line;
    Strings::TString<128> m_Text;
};

// Supplies one field. Other kinds of values are numbers.
inline void TraceField(Output_Streams::CFormatStream& stream, const Strings::CSubStringRef& text)
{
    stream << text;
}
inline void TraceField(Output_Streams::CFormatStream& stream, const char* text)
{
    stream << text;
}
inline void TraceField(Output_Streams::CFormatStream& stream, unsigned int value)
{
    stream.FormatInt(value);
}
inline void TraceField(Output_Streams::CFormatStream& stream, int value)
{
    stream.FormatInt(static_cast<unsigned int>(value));
}

// Writes a line when its level is on. The fields are converted only then.
template <class... Fields>
inline void Trace(Misc::CModuleInfo& module, unsigned int level, const char* sourcePath,
                  unsigned int line, const char* format, const Fields&... fields)
{
    if ((module.m_TraceMask.load(std::memory_order_relaxed) & level) == 0)
        return;
    CTraceStreamBuffer buffer(level, module, sourcePath, line);
    Output_Streams::CFormatStream stream(buffer, format);
    (TraceField(stream, fields), ...);
}

} // namespace Vorn::Internals
