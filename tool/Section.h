// Sections of the report. A section is one function, and one row in the table of Report.cpp.
#pragma once

#include <string>
#include <vector>

#include "Text.h"

namespace Tool {

// What one section found: for a person, for a program, and what went wrong meanwhile.
// NOLINTNEXTLINE(bugprone-exception-escape): moving JSON does not throw
struct CSection
{
    CText m_Text;
    Json m_Json;
    std::vector<std::string> m_Problems;
};

CSection HostSection();
CSection OsSection();
CSection ProcessorSection();
CSection TimeSection();
CSection DisksSection();
CSection PciSection();
CSection LibrarySection();

// Prints a section as text or JSON, complains of its problems, and gives the exit status.
int PrintSection(const CSection& section, bool json);

} // namespace Tool
