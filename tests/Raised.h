// What a call raises, and what the thread's error record says then.
#pragma once

#include <cstdio>
#include <string>

#include <vorn/Exceptions.h>

// The code that a call raises, 0 for none.
template <class Call>
unsigned int Raised(Call call)
{
    try {
        call();
    } catch (unsigned int code) {
        return code;
    }
    return 0;
}

// The newest record of this thread, "CODE:LINE" and for each line of context "; TEXT SOURCE:LINE".
inline std::string Record()
{
    const auto& error = Vorn::Exceptions::LastError();
    char begin[32];
    std::snprintf(begin, sizeof begin, "%08X:%u", error.Code(), error.Line());
    std::string record = begin;
    for (const auto& context : error.Context())
        record += std::string("; ") + context.m_Text.m_Text + " " + context.m_Source + ":" +
                  std::to_string(context.m_Line);
    return record;
}

// The record of what a call raises, empty when it raises nothing.
template <class Call>
std::string RaisedRecord(Call call)
{
    const unsigned int code = Raised(call);
    return code == 0                                      ? ""
           : code == Vorn::Exceptions::LastError().Code() ? Record()
                                                          : "another code";
}
