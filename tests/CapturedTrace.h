// The library's trace lines while the object lives, of the levels given.
#pragma once

#include <string>
#include <vector>

#include <vorn/Trace.h>
#include <vornex/Module.h>

class CCapturedTrace
{
public:
    explicit CCapturedTrace(unsigned int levels)
    {
        Vorn::Internals::SetTraceSink([this](const Vorn::Internals::CTraceLine& line) {
            m_Texts.emplace_back(line.m_Text.Text(), line.m_Text.Length());
            m_Places.push_back(std::string(line.m_Module) + " " + std::to_string(line.m_Level) +
                               " " + line.m_Source + ":" + std::to_string(line.m_Line));
        });
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = levels;
    }
    CCapturedTrace(const CCapturedTrace&) = delete;
    CCapturedTrace& operator=(const CCapturedTrace&) = delete;
    ~CCapturedTrace()
    {
        VornEx::VORN_MODULE_INFO_VornEx.m_TraceMask = 0;
        Vorn::Internals::SetTraceSink({});
    }

    std::vector<std::string> m_Texts,
        m_Places; // of each line; a place is "MODULE LEVEL SOURCE:LINE"
};
