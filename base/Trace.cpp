#include <vorn/Trace.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <new>

#include <unistd.h>

namespace Vorn::Internals {

namespace {

// Never destroyed: lines may still come while the process ends.
std::shared_ptr<const TraceSink>& Sink()
{
    static auto* const sink = new std::shared_ptr<const TraceSink>();
    return *sink;
}

bool IsControl(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

} // namespace

// One write(2) a line, so that lines of several threads do not mix.
void WriteTraceLine(const CTraceLine& line)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    char when[32] = "";
    if (localtime_r(&now, &local) != nullptr)
        std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);

    Strings::TString<256> text;
    (text.Format("%s %s 0x%02x %s:%u %s\n") << when << line.m_Module)
        .FormatInt(line.m_Level)
        .
        operator<<(line.m_Source)
        .FormatInt(line.m_Line)
        .
        operator<<(line.m_Text);
    std::replace_if(text.m_Text, text.m_Text + text.m_Length - 1, IsControl, '?');
    for (const char *at = text.m_Text, *end = at + text.m_Length; at != end;) {
        const ssize_t written = write(STDERR_FILENO, at, static_cast<std::size_t>(end - at));
        if (written < 0 && errno != EINTR)
            break;
        at += written > 0 ? written : 0;
    }
}

void SetTraceSink(TraceSink sink)
{
    std::shared_ptr<const TraceSink> next;
    if (sink)
        next = std::make_shared<const TraceSink>(std::move(sink));
    std::atomic_store(&Sink(), std::move(next));
}

CTraceStreamBuffer::~CTraceStreamBuffer()
{
    const int error = errno;
    const CTraceLine line{m_Module.m_Name, m_Level, m_Source, m_Line, m_Text};
    try {
        const auto sink = std::atomic_load(&Sink());
        if (sink != nullptr)
            (*sink)(line);
        else
            WriteTraceLine(line);
    } catch (...) {
        // Watching must not change what is watched.
    }
    errno = error;
}

void CTraceStreamBuffer::Write(const char* text, unsigned int from, unsigned int length)
{
    try {
        Output_Streams::CChrStreamBuffer(&m_Text).Write(text, from, length);
    } catch (const std::bad_alloc&) {
        // The line goes without it.
    }
}

void CTraceStreamBuffer::Fill(int character, unsigned int count)
{
    try {
        Output_Streams::CChrStreamBuffer(&m_Text).Fill(character, count);
    } catch (const std::bad_alloc&) {
        // The line goes without it.
    }
}

} // namespace Vorn::Internals
