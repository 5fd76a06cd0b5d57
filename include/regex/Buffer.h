// The engine's storage: views and growing arrays of plain elements.
//
// Counts and capacities are in elements and fit 31 bits. Storage comes from realloc(3) and is never
// shrunk. Elements are neither constructed nor destroyed: T is a plain type. Where memory ends, or
// a count would not fit, std::bad_alloc is thrown and the buffer stays as it was; nothing else in
// the engine throws. Thread-safety: none for one buffer; several threads may read one.
#pragma once

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include <regex/Export.h>

namespace Vorn::Regex {

// A view on a run of elements; frees nothing.
template <class T>
class VORN_REGEX_EXPORT CBufferRefT
{
public:
    CBufferRefT() = default;
    // The elements stay the caller's and must outlive the view.
    CBufferRefT(const T* elements, int count) : m_Elements(const_cast<T*>(elements)), m_Count(count)
    {}
    CBufferRefT(const CBufferRefT&) = default;
    CBufferRefT& operator=(const CBufferRefT&) = default;
    virtual ~CBufferRefT() = default;

    // The elements, or a zero element where there are none, so that reading a terminating zero
    // from an empty buffer is always safe. The zero element is shared and not to be written.
    const T* GetBuffer() const { return m_Elements != nullptr ? m_Elements : &_def; }
    int GetSize() const { return m_Count; }
    // For a range-based for; null where there are none.
    T* begin() const { return m_Elements; }
    T* end() const { return m_Elements + m_Count; }
    // index: from 0 to below GetSize(), not checked.
    const T& operator[](int index) const { return m_Elements[index]; }

    // Compares the view's characters with as many of s after toupper(3) on both sides. 0: equal, as
    // an empty view is to anything; otherwise the difference of the first two that differ, as they
    // stand and as signed characters.
    template <class Char = T>
    int nCompareNoCase(const Char* s) const
    {
        static_assert(std::is_same_v<T, char>, "a comparison of text");
        for (int i = 0; i < m_Count; ++i)
            if (m_Elements[i] != s[i] && std::toupper(static_cast<unsigned char>(m_Elements[i])) !=
                                             std::toupper(static_cast<unsigned char>(s[i])))
                return static_cast<signed char>(m_Elements[i]) - static_cast<signed char>(s[i]);
        return 0;
    }

    static const T _def;

protected:
    friend struct CLayoutCheck; // Src/Layout.cpp
    T* m_Elements = nullptr;
    int m_Count = 0;
};

template <class T>
const T CBufferRefT<T>::_def{};

// A growing array that owns its elements' storage.
template <class T>
class VORN_REGEX_EXPORT CBufferT : public CBufferRefT<T>
{
    static_assert(std::is_trivially_copyable_v<T>, "elements are moved by realloc");

public:
    CBufferT() = default;
    // Copies the elements and puts a zero element behind them that does not count.
    CBufferT(const T* elements, int count)
    {
        if (count == INT_MAX)
            throw std::bad_alloc();
        Reserve(count + 1);
        if (count > 0)
            std::memcpy(m_Elements, elements, Bytes(count));
        m_Elements[count] = T{};
        m_Count = count;
    }
    CBufferT(const CBufferT& other) : CBufferRefT<T>() { Assign(other); }
    CBufferT(CBufferT&& other) noexcept : CBufferRefT<T>() { Swap(other); }
    CBufferT& operator=(const CBufferT& other)
    {
        if (this != &other)
            Assign(other);
        return *this;
    }
    CBufferT& operator=(CBufferT&& other) noexcept
    {
        Swap(other);
        return *this;
    }
    ~CBufferT() override { std::free(m_Elements); }

    using CBufferRefT<T>::GetBuffer;
    using CBufferRefT<T>::operator[];
    T& operator[](int index) { return m_Elements[index]; }
    int GetCapacity() const { return m_Capacity; }

    void Push(T element)
    {
        if (m_Count == m_Capacity)
            GrowToHold(m_Count, 1);
        m_Elements[m_Count++] = element;
    }

    // Appends several elements at once, growing as repeated Push does.
    template <class... Rest>
    void Push(T first, Rest... rest)
    {
        constexpr int Count = 1 + static_cast<int>(sizeof...(rest));
        if (m_Capacity - m_Count < Count)
            GrowToHold(m_Count, Count);
        T* at = m_Elements + m_Count;
        *at = first;
        ((*++at = rest), ...);
        m_Count += Count;
    }

    // The last element, taken away; 0 and nothing from an empty buffer.
    T Pop() { return m_Count > 0 ? m_Elements[--m_Count] : T{}; }

    // The last element; the buffer must not be empty.
    T& Top() { return m_Elements[m_Count - 1]; }

    // Sets the count. New elements hold whatever the storage held.
    void Restore(int count)
    {
        if (count > m_Capacity)
            GrowTo(count);
        m_Count = count;
    }

    // Makes the capacity at least that, and no more.
    void Reserve(int capacity)
    {
        if (capacity > m_Capacity)
            Resize(capacity);
    }

    // Sets the count and fills the elements from the old one on.
    void Prepare(int count, T fill)
    {
        const int old = m_Count;
        Restore(count);
        for (int i = old; i < count; ++i)
            m_Elements[i] = fill;
    }

    // Opens a gap of zero elements at index.
    VORN_REGEX_APART void Insert(int index, int count)
    {
        if (m_Capacity - m_Count < count)
            GrowToHold(m_Count, count);
        std::memmove(m_Elements + index + count, m_Elements + index, Bytes(m_Count - index));
        std::memset(m_Elements + index, 0, Bytes(count));
        m_Count += count;
    }

protected:
    using CBufferRefT<T>::m_Elements;
    using CBufferRefT<T>::m_Count;

    // Where elements are pointers, the size of a pointer is meant.
    static constexpr std::size_t Size = sizeof(T); // NOLINT(bugprone-sizeof-expression)
    static std::size_t Bytes(int count) { return static_cast<std::size_t>(count) * Size; }

    // The growth of Restore and Prepare: at least twice, in multiples of eight beyond that.
    VORN_REGEX_APART void GrowTo(int count)
    {
        long long capacity = 2LL * m_Capacity;
        if (m_Capacity < 8)
            capacity = count <= 8 ? 8 : 16;
        if (count > capacity)
            capacity = (count + 11LL) / 8 * 8;
        Resize(capacity);
    }

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    // The growth of Push, out of line: twice, at least eight.
    VORN_REGEX_APART void GrowToHold(int count, int more)
    {
        if (count > INT_MAX - more)
            throw std::bad_alloc();
        long long capacity = m_Capacity;
        while (capacity < count + more)
            capacity = capacity < 4 ? 8 : 2 * capacity;
        Resize(capacity);
    }

    void Resize(long long capacity)
    {
        if (capacity > INT_MAX)
            capacity = INT_MAX;
        if (static_cast<unsigned long long>(capacity) > PTRDIFF_MAX / Size)
            throw std::bad_alloc();
        void* const storage = std::realloc(m_Elements, Bytes(static_cast<int>(capacity)));
        if (storage == nullptr)
            throw std::bad_alloc();
        m_Elements = static_cast<T*>(storage);
        m_Capacity = static_cast<int>(capacity);
    }

    void Assign(const CBufferT& other)
    {
        Restore(other.m_Count);
        if (m_Count > 0)
            std::memcpy(m_Elements, other.m_Elements, Bytes(m_Count));
    }

    void Swap(CBufferT& other) noexcept
    {
        std::swap(m_Elements, other.m_Elements);
        std::swap(m_Count, other.m_Count);
        std::swap(m_Capacity, other.m_Capacity);
    }

    int m_Capacity = 0;
};

// An array kept in the order of a comparison function.
template <class T>
class VORN_REGEX_EXPORT CSortedBufferT : public CBufferT<T>
{
public:
    using Comparison = int (*)(const void*, const void*);

    // appendUnsorted: Add appends without looking for the place.
    explicit CSortedBufferT(Comparison comparison = compareT, int appendUnsorted = 0)
        : m_Comparison(comparison), m_AppendUnsorted(appendUnsorted)
    {}

    // Puts the element in its place, before an equal one that the search meets; duplicates stay.
    void Add(const T& element)
    {
        const T value = element; // it may lie in this buffer
        const int count = this->m_Count;
        if (m_AppendUnsorted != 0) {
            this->Push(value);
            return;
        }
        const int place = Find(value);
        this->Restore(count + 1);
        std::memmove(this->m_Elements + place + 1, this->m_Elements + place,
                     this->Bytes(count - place));
        this->m_Elements[place] = value;
    }

    // For qsort(3), bsearch(3) and the constructor: ascending and descending order.
    static int compareT(const void* left, const void* right)
    {
        const T& a = *static_cast<const T*>(left);
        const T& b = *static_cast<const T*>(right);
        return a < b ? -1 : (b < a ? 1 : 0);
    }
    static int compareReverseT(const void* left, const void* right)
    {
        return compareT(right, left);
    }

private:
    friend struct CLayoutCheck; // Src/Layout.cpp
    int Find(const T& value) const
    {
        int low = 0;
        int high = this->m_Count - 1;
        int probe = this->m_Count / 2;
        while (low <= high) {
            const int order = m_Comparison(&value, &this->m_Elements[probe]);
            if (order == 0)
                break;
            if (order > 0)
                low = probe + 1;
            else
                high = probe - 1;
            probe = (low + high + 1) / 2;
        }
        return probe;
    }

    Comparison m_Comparison;
    int m_AppendUnsorted;
};

extern template class CBufferRefT<char>;
extern template class CBufferRefT<int>;
extern template class CBufferT<char>;
extern template class CBufferT<int>;
extern template class CSortedBufferT<int>;

} // namespace Vorn::Regex
