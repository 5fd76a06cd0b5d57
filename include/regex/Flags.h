// How a pattern is compiled.
#pragma once

namespace Vorn::Regex {

// Combined with | into an int.
enum CompileFlags
{
    NoFlags = 0,
    DotMatchesNewline = 1, // "." also matches "\n"
    MultiLine = 2,         // "^" and "$" match at line starts and line ends
    Global = 4,       // "\G" is honoured; without this flag it matches the empty string anywhere
    IgnoreCase = 8,   // literal text, back-references and bracket classes
    RightToLeft = 16, // the pattern runs backwards, the search goes from the text's end
    Extended = 32     // blanks outside classes are skipped, "#" comments run to the line's end
};

} // namespace Vorn::Regex
