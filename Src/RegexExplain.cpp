#include <regex/Explain.h>

namespace Vorn::Regex {

namespace {

constexpr const char* Boundaries[] = {
    "start of text", "end of text",  "end of text or before its last line break",
    "start of line", "end of line",  "start of word",
    "end of word",   "word boundary"};

void AppendCharacter(std::string& text, char character)
{
    static constexpr char Digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte < 0x7F) {
        if (std::strchr("\\\"[]-^", character) != nullptr)
            text += '\\';
        text += character;
        return;
    }
    text += "\\x";
    text += Digits[byte / 16];
    text += Digits[byte % 16];
}

std::string Quoted(const CBufferT<char>& characters)
{
    std::string text = "\"";
    for (int i = 0; i < characters.GetSize(); ++i)
        AppendCharacter(text, characters[i]);
    return text + '"';
}

std::string Number(int number)
{
    return std::to_string(number);
}

// Writes an element's line, then those of the elements in it.
class CExplainer
{
public:
    std::string m_Text;

    void Explain(const ElxInterface* element)
    {
        // In the order in which one class would hide another: the derived repetitions first.
        const bool isKnown = Try<CEmptyElxT<0>>(element) || Try<CGlobalElxT<0>>(element) ||
                             Try<CStringElxT<char>>(element) || Try<CRangeElxT<char>>(element) ||
                             Try<CPosixElxT<char>>(element) || Try<CBoundaryElxT<char>>(element) ||
                             Try<CBackrefElxT<char>>(element) || Try<CBracketElxT<char>>(element) ||
                             Try<CDelegateElxT<char>>(element) || Try<CListElxT<0>>(element) ||
                             Try<CAlternativeElxT<0>>(element) ||
                             Try<CPossessiveElxT<0>>(element) || Try<CGreedyElxT<0>>(element) ||
                             Try<CReluctantElxT<0>>(element) || Try<CRepeatElxT<0>>(element) ||
                             Try<CIndependentElxT<0>>(element) || Try<CAssertElxT<0>>(element) ||
                             Try<CConditionElxT<char>>(element);
        if (!isKnown)
            Line("unknown element");
    }

private:
    template <class Element>
    bool Try(const ElxInterface* element)
    {
        const auto* const known = dynamic_cast<const Element*>(element);
        if (known != nullptr)
            Show(*known);
        return known != nullptr;
    }

    void Line(const std::string& text, int rightToLeft = 0, int ignoreCase = 0)
    {
        m_Text.append(2 * static_cast<std::size_t>(m_Depth), ' ').append(text);
        if (ignoreCase != 0)
            m_Text += ", without case";
        if (rightToLeft != 0)
            m_Text += ", backwards";
        m_Text += '\n';
    }

    void Inner(const ElxInterface* element)
    {
        ++m_Depth;
        if (element != nullptr)
            Explain(element);
        --m_Depth;
    }

    void Branch(const char* name, const ElxInterface* element)
    {
        if (element == nullptr)
            return;
        ++m_Depth;
        Line(name);
        Inner(element);
        --m_Depth;
    }

    void Items(const CBufferT<ElxInterface*>& items)
    {
        for (int i = 0; i < items.GetSize(); ++i)
            Inner(items[i]);
    }

    static std::string Group(int number, const CBufferT<char>& name)
    {
        const std::string text = number < 0 ? "unknown" : Number(number);
        return name.GetSize() > 0 ? text + " " + Quoted(name) : text;
    }

    static std::string Times(int fixed, int variable)
    {
        const bool isOpen = fixed + variable == INT_MAX;
        return " {" + Number(fixed) + "," + (isOpen ? "" : Number(fixed + variable)) + "}";
    }

    void Show(const CEmptyElxT<0>& /*element*/) { Line("empty"); }
    void Show(const CGlobalElxT<0>& /*element*/) { Line("start of search"); }

    void Show(const CStringElxT<char>& element)
    {
        Line("string " + Quoted(element.m_Text), element.m_RightToLeft, element.m_IgnoreCase);
    }

    void Show(const CRangeElxT<char>& element)
    {
        std::string text = element.m_Positive != 0 ? "class [" : "class [^";
        for (int i = 0; i + 1 < element.m_Ranges.GetSize(); i += 2) {
            AppendCharacter(text, element.m_Ranges[i]);
            text += '-';
            AppendCharacter(text, element.m_Ranges[i + 1]);
        }
        for (int i = 0; i < element.m_Characters.GetSize(); ++i)
            AppendCharacter(text, element.m_Characters[i]);
        Line(text + "]", element.m_RightToLeft);
        Items(element.m_Elements);
    }

    void Show(const CPosixElxT<char>& element)
    {
        Line(std::string("class [:") + (element.m_Positive != 0 ? "" : "^") + element.Name() + "]",
             element.m_RightToLeft);
    }

    void Show(const CBoundaryElxT<char>& element)
    {
        const auto kind = static_cast<std::size_t>(element.m_Kind);
        const std::string text = kind < std::size(Boundaries) ? Boundaries[kind] : "nowhere";
        Line(element.m_Positive != 0 ? text : "not " + text);
    }

    void Show(const CBackrefElxT<char>& element)
    {
        Line("back-reference " + Group(element.m_Number, element.m_Name), element.m_RightToLeft,
             element.m_IgnoreCase);
    }

    void Show(const CBracketElxT<char>& element)
    {
        Line((element.m_Closing == 0 ? "open " : "close ") +
             Group(element.m_Number, element.m_Name));
    }

    void Show(const CDelegateElxT<char>& element)
    {
        Line("call " + Group(element.m_Number, element.m_Name) +
             (element.m_Target == nullptr ? ", unbound" : ""));
    }

    void Show(const CListElxT<0>& element)
    {
        Line("list", element.m_RightToLeft);
        Items(element.m_Items);
    }

    void Show(const CAlternativeElxT<0>& element)
    {
        Line("alternatives");
        Items(element.m_Branches);
    }

    void Show(const CRepeatElxT<0>& element)
    {
        Line("repeat {" + Number(element.m_Fixed) + "}");
        Inner(element.m_Element);
    }

    void Show(const CGreedyElxT<0>& element)
    {
        Line("greedy" + Times(element.m_Fixed, element.m_Variable));
        Inner(element.m_Element);
    }

    void Show(const CPossessiveElxT<0>& element)
    {
        Line("possessive" + Times(element.m_Fixed, element.m_Variable));
        Inner(element.m_Element);
    }

    void Show(const CReluctantElxT<0>& element)
    {
        Line("reluctant" + Times(element.m_Fixed, element.m_Variable));
        Inner(element.m_Element);
    }

    void Show(const CIndependentElxT<0>& element)
    {
        Line("atomic");
        Inner(element.m_Element);
    }

    void Show(const CAssertElxT<0>& element)
    {
        Line(element.m_Positive != 0 ? "assertion" : "negative assertion");
        Inner(element.m_Element);
    }

    void Show(const CConditionElxT<char>& element)
    {
        Line("condition" + (element.m_Number < 0 ? "" : " group " + Number(element.m_Number)));
        Branch("if", element.m_Condition);
        Branch("yes", element.m_Yes);
        Branch("no", element.m_No);
    }

    int m_Depth = 0;
};

} // namespace

std::string Explain(const CRegexpT<char>& regexp)
{
    CExplainer explainer;
    if (regexp.Top() != nullptr)
        explainer.Explain(regexp.Top());
    return std::move(explainer.m_Text);
}

} // namespace Vorn::Regex
