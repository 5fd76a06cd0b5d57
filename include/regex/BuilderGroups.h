// How the builder numbers named groups and binds what refers to groups. Included where the builder
// is instantiated, not by its users.
#pragma once

#include <algorithm>

#include <regex/Builder.h>

namespace Vorn::Regex {

template <class Char>
void CBuilderT<Char>::BindGroups()
{
    NumberNamedGroups();
    m_TableSize = m_GroupTable.GetSize();

    for (int i = 0; i < m_Calls.GetSize(); ++i) {
        auto& call = *m_Calls[i];
        if (call.m_Number < 0)
            call.m_Number = FindName(call.m_Name);
        if (call.m_Number >= 0 && call.m_Number < m_TableSize)
            call.m_Target = m_GroupTable[call.m_Number];
    }
    for (int i = 0; i < m_NamedBackrefs.GetSize(); ++i)
        m_NamedBackrefs[i]->m_Number = FindName(m_NamedBackrefs[i]->m_Name);
    for (int i = 0; i < m_NamedConditions.GetSize(); ++i) {
        auto& condition = *m_NamedConditions[i];
        const int number = FindName(condition.m_Name);
        if (number >= 0) {
            condition.m_Number = number;
            condition.m_Condition = nullptr;
        }
    }
}

// In order of appearance: a written number stays, a name that an earlier group has gets that
// group's number, all others the next one. A call of a number enters the first group that has it.
template <class Char>
void CBuilderT<Char>::NumberNamedGroups()
{
    if (m_NamedCount == 0)
        return;
    // Sorted by name, groups of one name side by side and the earliest of them first.
    CBufferT<int> order;
    for (int i = 0; i < m_NamedCount; ++i)
        order.Push(i);
    std::sort(&order[0], &order[0] + m_NamedCount, [this](int left, int right) {
        const auto& a = Bracket(m_NamedGroups[left], 0)->m_Name;
        const auto& b = Bracket(m_NamedGroups[right], 0)->m_Name;
        return ComesBefore(a, b) || (!ComesBefore(b, a) && left < right);
    });
    CBufferT<int> earliest;
    earliest.Prepare(m_NamedCount, 0);
    for (int i = 0; i < m_NamedCount; ++i) {
        const bool isSame = i > 0 && !ComesBefore(Bracket(m_NamedGroups[order[i - 1]], 0)->m_Name,
                                                  Bracket(m_NamedGroups[order[i]], 0)->m_Name);
        earliest[order[i]] = isSame ? earliest[order[i - 1]] : order[i];
    }

    for (int i = 0; i < m_NamedCount; ++i) {
        const auto* const group = m_NamedGroups[i];
        int number = Bracket(group, 0)->m_Number;
        if (number < 0)
            number =
                earliest[i] < i ? Bracket(m_NamedGroups[earliest[i]], 0)->m_Number : m_MaxGroup + 1;
        m_MaxGroup = std::max(m_MaxGroup, number);
        for (const int which : {0, 1})
            Bracket(group, which)->m_Number = number;
        if (number >= m_GroupTable.GetSize())
            m_GroupTable.Prepare(number + 1, nullptr);
        if (m_GroupTable[number] == nullptr)
            m_GroupTable[number] = m_NamedGroups[i];
    }

    CBufferT<CListElxT<0>*> sorted;
    for (int i = 0; i < m_NamedCount; ++i)
        if (earliest[order[i]] == order[i])
            sorted.Push(m_NamedGroups[order[i]]);
    m_NamedGroups = sorted;
}

// The number of the group of that name, -3 when there is none.
template <class Char>
int CBuilderT<Char>::FindName(const CBufferT<Char>& name) const
{
    constexpr int Unknown = -3;
    CListElxT<0>* const* const end = m_NamedGroups.GetBuffer() + m_NamedGroups.GetSize();
    const auto found = std::lower_bound(m_NamedGroups.GetBuffer(), end, name,
                                        [](const CListElxT<0>* group, const CBufferT<Char>& text) {
                                            return ComesBefore(Bracket(group, 0)->m_Name, text);
                                        });
    if (found == end || ComesBefore(name, Bracket(*found, 0)->m_Name))
        return Unknown;
    return Bracket(*found, 0)->m_Number;
}

// Names are compared without case.
template <class Char>
bool CBuilderT<Char>::ComesBefore(const CBufferT<Char>& left, const CBufferT<Char>& right)
{
    return std::lexicographical_compare(left.GetBuffer(), left.GetBuffer() + left.GetSize(),
                                        right.GetBuffer(), right.GetBuffer() + right.GetSize(),
                                        [](Char a, Char b) {
                                            return std::toupper(static_cast<unsigned char>(a)) <
                                                   std::toupper(static_cast<unsigned char>(b));
                                        });
}

// One of the two ends of a group.
template <class Char>
CBracketElxT<Char>* CBuilderT<Char>::Bracket(const CListElxT<0>* group, int which)
{
    return static_cast<CBracketElxT<Char>*>(group->m_Items[which == 0 ? 0 : 2]);
}

} // namespace Vorn::Regex
