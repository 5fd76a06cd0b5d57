// The engine, compiled once for char.
#include <regex/BuilderGrammar.h>
#include <regex/BuilderGroups.h>
#include <regex/BuilderTokens.h>
#include <regex/Search.h>

namespace Vorn::Regex {

template class CBufferRefT<char>;
template class CBufferRefT<int>;
template class CBufferRefT<ElxInterface*>;
template class CBufferRefT<CDelegateElxT<char>*>;
template class CBufferRefT<CListElxT<0>*>;
template class CBufferRefT<CGreedyElxT<0>*>;
template class CBufferRefT<CBackrefElxT<char>*>;
template class CBufferRefT<CConditionElxT<char>*>;
template class CBufferT<char>;
template class CBufferT<int>;
template class CBufferT<ElxInterface*>;
template class CBufferT<CDelegateElxT<char>*>;
template class CBufferT<CListElxT<0>*>;
template class CBufferT<CGreedyElxT<0>*>;
template class CBufferT<CBackrefElxT<char>*>;
template class CBufferT<CConditionElxT<char>*>;
template class CSortedBufferT<int>;
template class MatchResultT<0>;

template class CEmptyElxT<0>;
template class CGlobalElxT<0>;
template class CStringElxT<char>;
template class CRangeElxT<char>;
template class CPosixElxT<char>;
template class CBoundaryElxT<char>;
template class CBackrefElxT<char>;
template class CBracketElxT<char>;
template class CDelegateElxT<char>;
template class CListElxT<0>;
template class CAlternativeElxT<0>;
template class CRepeatElxT<0>;
template class CGreedyElxT<0>;
template class CReluctantElxT<0>;
template class CPossessiveElxT<0>;
template class CIndependentElxT<0>;
template class CAssertElxT<0>;
template class CConditionElxT<char>;

template class CBuilderT<char>;
template class CRegexpT<char>;

} // namespace Vorn::Regex
