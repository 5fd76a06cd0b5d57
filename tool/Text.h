// Text and JSON as the program prints them.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace Tool {

using Json = nlohmann::ordered_json;

// Label and value pairs under a title, then tables. The part of the report that a person reads.
struct CTable
{
    std::vector<std::string> m_Head;
    std::vector<std::vector<std::string>> m_Rows;
};

struct CText
{
    std::string m_Title;
    std::vector<std::pair<std::string, std::string>> m_Rows;
    std::vector<CTable> m_Tables;
};

// Prints aligned; titles and heads stand out when standard output is a terminal that takes colour
// (NO_COLOR is honoured).
void Print(const CText& text);

// Prints one JSON object; bytes that are not UTF-8 become replacement characters.
void Print(const Json& json);

// The text in the colour of what stands out, where standard output shows colours.
std::string Bright(std::string_view text);

// The text as a terminal may show it: what it would act on becomes "?".
std::string Printable(std::string text);

// While it lives, what would be printed to standard output is collected instead, without colours.
class CCapture
{
public:
    CCapture();
    CCapture(const CCapture&) = delete;
    CCapture& operator=(const CCapture&) = delete;
    ~CCapture();

    std::string Text() const { return m_Text.str(); }

private:
    std::ostringstream m_Text;
    std::streambuf* m_Before;
};

// A message on standard error, with the program's name in front.
void Complain(std::string_view message);

// The message, code and context of an error that a service has just raised, on standard error.
void ComplainOfError();

// 1 day 02:03:04
std::string Duration(unsigned long long milliseconds);

// 1.5 GiB
std::string Size(unsigned long long bytes);

} // namespace Tool
