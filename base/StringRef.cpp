#include <vorn/StringRef.h>

#include "Utf8.h"

namespace Vorn::Strings {

const CStringRef _TEmpty;

int CSubStringRef::FindLast(int character, unsigned int from) const
{
    for (unsigned int position = m_Length; position > from; --position)
        if (static_cast<unsigned char>(m_Text[position - 1]) ==
            static_cast<unsigned char>(character))
            return static_cast<int>(position - 1);
    return -1;
}

int CSubStringRef::UTF8Length() const
{
    int characters = 0;
    for (unsigned int position = 0; position < m_Length; ++characters) {
        const unsigned int bytes = Utf8SequenceLength(m_Text + position, m_Length - position);
        if (bytes == 0)
            return -1;
        position += bytes;
    }
    return characters;
}

} // namespace Vorn::Strings
