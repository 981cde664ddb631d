#pragma once

#include "rfm_Export.h"

#include <string_view>

/// Shared, counted 8-bit text: what `cow_String` and `atr_String` have in common. A copy shares the text and
/// raises a count; a change makes a private copy first. No representation at all is the empty string, so an
/// empty text costs nothing. Texts may hold NUL bytes: the length counts, `CString()` ends at the first one.
/// Positions and lengths are in bytes.
/// Threads: the count is plain, so copies that share a text belong to one thread at a time.
class RFM_EXPORT atr_StringBase
{
public:
    atr_StringBase() noexcept = default;
    /// The text up to its NUL; a null pointer gives the empty string.
    atr_StringBase(const char* text);
    /// `length` bytes, NUL bytes among them; a length below 1 gives the empty string.
    atr_StringBase(const char* text, int length);
    /// The number as decimal text.
    explicit atr_StringBase(int number);
    explicit atr_StringBase(std::string_view text);

    atr_StringBase(const atr_StringBase& source) noexcept : m_Rep(source.m_Rep)
    {
        if (m_Rep != nullptr) ++m_Rep->count;
    }
    atr_StringBase(atr_StringBase&& source) noexcept : m_Rep(source.m_Rep) { source.m_Rep = nullptr; }
    atr_StringBase& operator=(const atr_StringBase& source) noexcept
    {
        if (source.m_Rep != nullptr) ++source.m_Rep->count;
        Release();
        m_Rep = source.m_Rep;
        return *this;
    }
    atr_StringBase& operator=(atr_StringBase&& source) noexcept
    {
        Rep* taken = source.m_Rep;
        source.m_Rep = nullptr;
        Release();
        m_Rep = taken;
        return *this;
    }
    ~atr_StringBase() { Release(); }

    /// Takes over `block`, which came from `mem_Malloc` and holds `length` bytes and room for one more.
    static atr_StringBase Adopt(char* block, int length);

    int Length() const noexcept { return m_Rep != nullptr ? m_Rep->length : 0; }
    bool IsEmpty() const noexcept { return Length() == 0; }
    /// The text with a NUL behind it; it lives as long as this string is neither changed nor destroyed.
    const char* CString() const noexcept { return m_Rep != nullptr ? m_Rep->text : ""; }
    /// The whole text, with the NUL bytes that it may hold.
    std::string_view View() const noexcept { return {CString(), static_cast<std::size_t>(Length())}; }

    /// The first position of `text` at or after `start`; the string's own length when there is none.
    int Find(const atr_StringBase& text, int start = 0) const;
    /// The last position of `text` in the `count` bytes from `start`; the string's own length when there is none.
    int rfind(const atr_StringBase& text, int start = 0, int count = 2147483647) const;
    /// `count` bytes from `start`, fewer at the end; 2147483647 means all that follow.
    atr_StringBase Substr(int start, int count = 2147483647) const;

    atr_StringBase& append(const char* text, int length);
    atr_StringBase& append(const atr_StringBase& text);
    /// Takes out `count` bytes from `start` on, fewer at the end.
    void Erase(int start, int count = 2147483647);
    /// Replaces up to `count` occurrences of `what`, from the left, by `with`; answers how many it replaced.
    int Substitute(const atr_StringBase& what, const atr_StringBase& with, int count = 2147483647);

    /// Equal when length and all bytes are.
    friend bool operator==(const atr_StringBase& left, const atr_StringBase& right) noexcept
    {
        return left.m_Rep == right.m_Rep || left.View() == right.View();
    }

private:
    struct Rep
    {
        int count;
        int length;
        char* text; // behind this structure, or a block of its own that was adopted
    };
    explicit atr_StringBase(Rep* rep) noexcept : m_Rep(rep) {}
    static Rep* MakeRep(int length);
    static void FreeRep(Rep* rep) noexcept;
    void Release() noexcept
    {
        if (m_Rep != nullptr && --m_Rep->count == 0) FreeRep(m_Rep);
    }

    Rep* m_Rep = nullptr;
};

/// A text of the message layer; it converts to and from `cow_String` at the cost of a count.
class RFM_EXPORT atr_String : public atr_StringBase
{
public:
    using atr_StringBase::atr_StringBase;
    atr_String(const atr_StringBase& text) noexcept : atr_StringBase(text) {}
    atr_String(atr_StringBase&& text) noexcept : atr_StringBase(static_cast<atr_StringBase&&>(text)) {}
};

/// Not zero when names are ordered as people count ("a2" before "a10") instead of by bytes. Off unless the
/// program turns it on, for the whole process and before it opens anything: the order of a table's fields in
/// a file follows it, so writer and reader must agree.
RFM_EXPORT int atr_getNaturalOrder() noexcept;
RFM_EXPORT void atr_setNaturalOrder(int on) noexcept;

/// Order of two texts as C strings: by unsigned bytes up to the first difference or NUL, or in natural order
/// when that is on. Below 0, 0 or above 0.
RFM_EXPORT int atr_Compare(const atr_StringBase& left, const atr_StringBase& right) noexcept;

/// Natural order of two C strings: runs of digits compare as numbers, everything else by unsigned bytes.
RFM_EXPORT int strnatcmp(const char* left, const char* right) noexcept;
