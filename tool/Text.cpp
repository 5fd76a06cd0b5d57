#include "Text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include <unistd.h>

#include <vorn/Exceptions.h>
#include <vorn/StringRef.h>

namespace Tool {

namespace {

bool g_Captured = false;

bool ShowsColour()
{
    if (g_Captured)
        return false;
    static const bool shows = [] {
        const char* const terminal = std::getenv("TERM");
        return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr &&
               terminal != nullptr && std::string_view(terminal) != "dumb";
    }();
    return shows;
}

constexpr std::size_t UsualLabelWidth = 16;

// Columns that a text takes: characters where it is UTF-8, else bytes. What a terminal would act
// on is not counted; see Printable.
std::size_t Width(const std::string& text)
{
    const int characters = Vorn::Strings::CSubStringRef(text).UTF8Length();
    return characters < 0 ? text.size() : static_cast<std::size_t>(characters);
}

std::string Padded(const std::string& text, std::size_t width)
{
    const std::size_t taken = Width(text);
    return text + std::string(width > taken ? width - taken : 0, ' ');
}

void PrintTable(const CTable& table)
{
    std::vector<std::size_t> widths;
    const auto measure = [&widths](const std::vector<std::string>& cells) {
        widths.resize(std::max(widths.size(), cells.size()));
        for (std::size_t column = 0; column < cells.size(); ++column)
            widths[column] = std::max(widths[column], Width(Printable(cells[column])));
    };
    measure(table.m_Head);
    for (const auto& row : table.m_Rows)
        measure(row);

    const auto print = [&widths](const std::vector<std::string>& cells, bool head) {
        std::string line = " ";
        for (std::size_t column = 0; column < cells.size(); ++column)
            line += " " + Padded(Printable(cells[column]), widths[column]) + " ";
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << (head ? Bright(line) : line) << '\n';
    };
    print(table.m_Head, true);
    for (const auto& row : table.m_Rows)
        print(row, false);
}

} // namespace

void Print(const CText& text)
{
    if (!text.m_Title.empty())
        std::cout << Bright(text.m_Title) << '\n';
    // Labels of all sections share a column, so that the report reads as one.
    std::size_t width = UsualLabelWidth;
    for (const auto& row : text.m_Rows)
        width = std::max(width, Width(row.first));
    for (const auto& row : text.m_Rows)
        std::cout << "  " << Padded(row.first, width) << "  " << Printable(row.second) << '\n';
    for (const auto& table : text.m_Tables)
        PrintTable(table);
}

void Print(const Json& json)
{
    std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

std::string Bright(std::string_view text)
{
    if (!ShowsColour())
        return std::string(text);
    return "\033[1;36m" + std::string(text) + "\033[0m";
}

// Texts come from disks, files and kernels: control characters must not reach a terminal.
std::string Printable(std::string text)
{
    for (char& character : text)
        if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F)
            character = '?';
    return text;
}

CCapture::CCapture() : m_Before(std::cout.rdbuf(m_Text.rdbuf()))
{
    g_Captured = true;
}

CCapture::~CCapture()
{
    g_Captured = false;
    std::cout.rdbuf(m_Before);
}

void Complain(std::string_view message)
{
    std::cout.flush();
    std::cerr << "vornex: " << message << '\n';
}

void ComplainOfError()
{
    const auto& error = Vorn::Exceptions::LastError();
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X", error.Code());
    std::string message = std::string(error.Message().m_Text) + " (" + code + ")";
    for (const auto& line : error.Context())
        message += std::string("\n  in ") + line.m_Text.m_Text + ", " + line.m_Source + ":" +
                   std::to_string(line.m_Line);
    Complain(message);
}

std::string Duration(unsigned long long milliseconds)
{
    const unsigned long long seconds = milliseconds / 1000;
    const unsigned long long days = seconds / 86400;
    char clock[16];
    std::snprintf(
        clock, sizeof clock, "%02u:%02u:%02u", static_cast<unsigned int>(seconds / 3600 % 24),
        static_cast<unsigned int>(seconds / 60 % 60), static_cast<unsigned int>(seconds % 60));
    if (days == 0)
        return clock;
    return std::to_string(days) + (days == 1 ? " day " : " days ") + clock;
}

std::string Size(unsigned long long bytes)
{
    static constexpr const char* Units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    std::size_t unit = 0;
    auto amount = static_cast<double>(bytes);
    while (amount >= 1024 && unit + 1 < std::size(Units)) {
        amount /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", amount, Units[unit]);
    return text;
}

} // namespace Tool
