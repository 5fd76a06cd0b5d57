#include <vorn/Language.h>

#include <cstdlib>

#include "Catalogue.h"

namespace Vorn::Language_Support {

CLanguageSupport::CLngFile::CLngFile(const char* file, unsigned int language, const char* encoding,
                                     unsigned int set, const char** defaults, unsigned int count)
    : m_File(file), m_Language(language), m_Encoding(encoding), m_Set(set), m_Defaults(defaults),
      m_Count(count)
{}

CLanguageSupport::CLngFile::~CLngFile() = default;

Strings::CStringVar CLanguageSupport::CLngFile::Text(unsigned int index) const
{
    if (m_Count == 0)
        return Strings::CStringVar();
    if (index >= m_Count)
        index = m_Count - 1;
    Strings::CStringVar text;
    if (!CatalogueText(m_File, m_Set, index + 1, text))
        text = m_Defaults[index];
    return text;
}

} // namespace Vorn::Language_Support
