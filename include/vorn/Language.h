// A module's message texts: built-in defaults, and translations from message catalogues.
//
// Catalogues are X/Open message catalogues (catopen(3), built with gencat(1)), found through
// NLSPATH in the host's locale (setlocale(3), category LC_MESSAGES).
#pragma once

#include <vorn/Export.h>
#include <vorn/StringVar.h>

namespace Vorn::Language_Support {

struct VORN_EXPORT CLanguageSupport
{
    // A code and the index of its text. A list is ended by the row {0, 0}.
    struct ERROR_MSG_LIST
    {
        unsigned int m_Code;
        unsigned int m_Index;
    };

    // The texts of one module. Immutable; may be asked by any thread.
    class VORN_EXPORT CLngFile
    {
    public:
        // `language` holds the two letters of the defaults' language, the first in the high byte;
        // `encoding` is theirs; `set` is the catalogue's set number. The file name and the `count`
        // defaults must outlive the object. Nothing is opened here.
        CLngFile(const char* file, unsigned int language, const char* encoding, unsigned int set,
                 const char** defaults, unsigned int count);
        ~CLngFile(); // NOLINT(performance-trivially-destructible): part of the interface
        CLngFile(const CLngFile&) = delete;
        CLngFile& operator=(const CLngFile&) = delete;

        unsigned int Count() const { return m_Count; }
        unsigned int Language() const { return m_Language; }
        const char* Encoding() const { return m_Encoding; }

        // The text of an index in the locale of the moment: message index + 1 of the catalogue's
        // set, else the default. A catalogue that is missing or damaged counts as none. An index
        // beyond the defaults gives the last default.
        Strings::CStringVar Text(unsigned int index) const;

    private:
        const char* m_File;
        unsigned int m_Language;
        const char* m_Encoding;
        unsigned int m_Set;
        const char** m_Defaults;
        unsigned int m_Count;
    };
};

} // namespace Vorn::Language_Support
