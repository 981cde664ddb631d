#include "atr_String.h"

#include "atr_Translate.h"
#include "mem_Alloc.h"
#include "nex_Exception.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

static int CheckedLength(std::size_t length)
{
    // One byte less than an int holds: room for the NUL.
    if (length > INT_MAX - 1)
        nex_ThrowText(atr_Message("***ERROR: A text of 2 GiB or more can't be held in a string."));
    return static_cast<int>(length);
}

atr_StringBase::Rep* atr_StringBase::MakeRep(int length)
{
    char* block = static_cast<char*>(mem_Malloc(sizeof(Rep) + static_cast<std::size_t>(length) + 1));
    Rep* rep = reinterpret_cast<Rep*>(block);
    rep->count = 1;
    rep->length = length;
    rep->text = block + sizeof(Rep);
    rep->text[length] = '\0';
    return rep;
}

void atr_StringBase::FreeRep(Rep* rep) noexcept
{
    if (rep->text != reinterpret_cast<char*>(rep + 1)) mem_Free(rep->text);
    mem_Free(rep);
}

atr_StringBase::atr_StringBase(std::string_view text)
{
    if (text.empty()) return;
    m_Rep = MakeRep(CheckedLength(text.size()));
    std::memcpy(m_Rep->text, text.data(), text.size());
}

atr_StringBase::atr_StringBase(const char* text)
    : atr_StringBase(text != nullptr ? std::string_view(text) : std::string_view())
{
}

atr_StringBase::atr_StringBase(const char* text, int length)
    : atr_StringBase(text != nullptr && length > 0 ? std::string_view(text, static_cast<std::size_t>(length))
                                                   : std::string_view())
{
}

atr_StringBase::atr_StringBase(int number)
{
    char digits[16];
    const int length = std::snprintf(digits, sizeof digits, "%d", number);
    *this = atr_StringBase(digits, length);
}

atr_StringBase atr_StringBase::Adopt(char* block, int length)
{
    Rep* rep = nullptr;
    try
    {
        rep = static_cast<Rep*>(mem_Malloc(sizeof(Rep)));
    }
    catch (...)
    {
        mem_Free(block);
        throw;
    }
    *rep = Rep{1, length, block};
    block[length] = '\0';
    return atr_StringBase(rep);
}

int atr_StringBase::Find(const atr_StringBase& text, int start) const
{
    if (start < 0) start = 0;
    if (start > Length()) return Length();
    const std::size_t found = View().find(text.View(), static_cast<std::size_t>(start));
    return found == std::string_view::npos ? Length() : static_cast<int>(found);
}

int atr_StringBase::rfind(const atr_StringBase& text, int start, int count) const
{
    if (start < 0) start = 0;
    if (start > Length() || count < 0) return Length();
    const std::string_view part =
        View().substr(static_cast<std::size_t>(start), static_cast<std::size_t>(count));
    const std::size_t found = part.rfind(text.View());
    return found == std::string_view::npos ? Length() : start + static_cast<int>(found);
}

atr_StringBase atr_StringBase::Substr(int start, int count) const
{
    if (start < 0) start = 0;
    if (start >= Length() || count <= 0) return {};
    if (start == 0 && count >= Length()) return *this;
    return atr_StringBase(View().substr(static_cast<std::size_t>(start), static_cast<std::size_t>(count)));
}

atr_StringBase& atr_StringBase::append(const char* text, int length)
{
    if (text == nullptr || length <= 0) return *this;
    // A new text, never the old one grown: `text` may point into it, and other copies may share it.
    const int oldLength = Length();
    Rep* joined =
        MakeRep(CheckedLength(static_cast<std::size_t>(oldLength) + static_cast<std::size_t>(length)));
    std::memcpy(joined->text, CString(), static_cast<std::size_t>(oldLength));
    std::memcpy(joined->text + oldLength, text, static_cast<std::size_t>(length));
    Release();
    m_Rep = joined;
    return *this;
}

atr_StringBase& atr_StringBase::append(const atr_StringBase& text)
{
    if (IsEmpty()) return *this = text;
    return append(text.CString(), text.Length());
}

void atr_StringBase::Erase(int start, int count)
{
    if (start < 0) start = 0;
    if (start >= Length() || count <= 0) return;
    const int end = count > Length() - start ? Length() : start + count;
    atr_StringBase kept = Substr(0, start);
    kept.append(CString() + end, Length() - end);
    *this = kept;
}

int atr_StringBase::Substitute(const atr_StringBase& what, const atr_StringBase& with, int count)
{
    if (what.IsEmpty()) return 0;
    atr_StringBase result;
    int replaced = 0;
    int start = 0;
    for (int found = Find(what, start); replaced < count && found < Length(); found = Find(what, start))
    {
        result.append(CString() + start, found - start);
        result.append(with);
        start = found + what.Length();
        ++replaced;
    }
    if (replaced == 0) return 0;
    result.append(CString() + start, Length() - start);
    *this = result;
    return replaced;
}

static int s_NaturalOrder = 0;

int atr_getNaturalOrder() noexcept { return s_NaturalOrder; }
void atr_setNaturalOrder(int on) noexcept { s_NaturalOrder = on; }

int atr_Compare(const atr_StringBase& left, const atr_StringBase& right) noexcept
{
    if (s_NaturalOrder != 0) return strnatcmp(left.CString(), right.CString());
    return std::strcmp(left.CString(), right.CString());
}

static bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Compares the runs of digits at both pointers as numbers of any length, and moves behind them. Equal numbers with
// another count of leading zeros are told apart by it, so that the order stays total.
static int CompareNumbers(const char*& left, const char*& right)
{
    const char* const leftStart = left;
    const char* const rightStart = right;
    while (*left == '0') ++left;
    while (*right == '0') ++right;
    const std::ptrdiff_t zeros = (left - leftStart) - (right - rightStart);
    const char* const leftDigits = left;
    const char* const rightDigits = right;
    while (IsDigit(*left)) ++left;
    while (IsDigit(*right)) ++right;
    const std::ptrdiff_t leftLength = left - leftDigits;
    const std::ptrdiff_t rightLength = right - rightDigits;
    if (leftLength != rightLength) return leftLength < rightLength ? -1 : 1;
    const int order = std::memcmp(leftDigits, rightDigits, static_cast<std::size_t>(leftLength));
    if (order != 0) return order;
    return zeros < 0 ? -1 : zeros > 0 ? 1 : 0;
}

int strnatcmp(const char* left, const char* right) noexcept
{
    while (*left != '\0' && *right != '\0')
    {
        if (IsDigit(*left) && IsDigit(*right))
        {
            const int order = CompareNumbers(left, right);
            if (order != 0) return order;
        }
        else
        {
            if (*left != *right) break;
            ++left;
            ++right;
        }
    }
    return static_cast<int>(static_cast<unsigned char>(*left)) -
           static_cast<int>(static_cast<unsigned char>(*right));
}
