// What an element begins with. Included where the builder is instantiated, not by its users.
#pragma once

#include <regex/Builder.h>

namespace Vorn::Regex::Internals {

// The element that an element runs before any other one that can fail, or itself. intoGroups: the
// opening end of a group is passed over. It always matches, but when it is undone it also puts
// right what captureIndex says of the group, which is lost on those who do not enter.
template <class Char>
const ElxInterface* FirstOf(const ElxInterface* element, bool intoGroups)
{
    for (;;) {
        const ElxInterface* inner = nullptr;
        if (const auto* const list = ExactlyAs<CListElxT<0>>(element)) {
            const auto& items = list->m_Items;
            const int step = list->m_RightToLeft == 0 ? 1 : -1;
            int item = step > 0 ? 0 : items.GetSize() - 1;
            if (intoGroups && ExactlyAs<CBracketElxT<Char>>(items[item]) != nullptr)
                item += step;
            inner = items[item];
        } else if (const auto* const greedy = ExactlyAs<CGreedyElxT<0>>(element)) {
            inner = greedy->m_Fixed > 0 ? greedy->m_Element : nullptr;
        } else if (const auto* const repeat = ExactlyAs<CRepeatElxT<0>>(element)) {
            inner = repeat->m_Element;
        }
        if (inner == nullptr)
            return element;
        element = inner;
    }
}

// The character, as a byte, that an element cannot do without at the current position; -1: none.
template <class Char>
int FirstCharacterOf(const ElxInterface* element)
{
    const auto* const text = ExactlyAs<CStringElxT<Char>>(FirstOf<Char>(element, false));
    return text != nullptr && text->m_RightToLeft == 0 && text->m_IgnoreCase == 0 &&
                   text->m_Text.GetSize() > 0
               ? static_cast<unsigned char>(text->m_Text[0])
               : -1;
}

} // namespace Vorn::Regex::Internals
