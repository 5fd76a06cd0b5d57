// What a pattern is compiled to, for people.
#pragma once

#include <string>

#include <regex/Regexp.h>

namespace Vorn::Regex {

// The tree of elements, one a line, the inner ones indented by two blanks; empty for a null
// pattern. For learning and debugging: the texts are not an interface. Throws std::bad_alloc.
VORN_REGEX_EXPORT std::string Explain(const CRegexpT<char>& regexp);

} // namespace Vorn::Regex
