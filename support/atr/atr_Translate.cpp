#include "atr_Translate.h"

#include "nex_Exception.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace
{
// One piece of a format: plain text, or a placeholder with its number and its conversion without that number.
struct Piece
{
    std::string text; // as it stands, but for "%%"
    int position = 0; // 0 for plain text
    std::string conversion;
};

// Takes the next piece off `rest`. `next` is the number that an unnumbered placeholder gets.
Piece TakePiece(std::string_view& rest, int& next)
{
    Piece piece;
    if (rest[0] != '%' || rest.size() < 2)
    {
        const std::size_t end = rest.find('%', 1);
        piece.text = rest.substr(0, end);
        rest.remove_prefix(piece.text.size());
        return piece;
    }
    if (rest[1] == '%')
    {
        piece.text = "%";
        rest.remove_prefix(2);
        return piece;
    }
    const std::size_t end = rest.find_first_of("dsfuxgc", 1);
    if (end == std::string_view::npos)
    {
        piece.text = rest;
        rest = {};
        return piece;
    }
    std::string conversion(rest.substr(0, end + 1));
    piece.text = conversion;
    rest.remove_prefix(end + 1);
    const std::size_t dollar = conversion.find('$');
    if (dollar != std::string::npos)
    {
        piece.position = static_cast<int>(std::strtol(conversion.c_str() + 1, nullptr, 10));
        conversion = "%" + conversion.substr(dollar + 1);
    }
    else
    {
        piece.position = next++;
    }
    piece.conversion = conversion;
    return piece;
}
} // namespace

atr_StringBase atr_Translator::Conversion(int position) const
{
    int next = 1;
    for (std::string_view rest = m_Format.View(); !rest.empty();)
    {
        const Piece piece = TakePiece(rest, next);
        if (piece.position == position) return atr_StringBase(std::string_view(piece.conversion));
    }
    return {};
}

void atr_Translator::Fill(int position, const atr_StringBase& text)
{
    if (position < 1 || position > kMostValues) nex_ThrowAssert("position >= 1 && position <= kMostValues");
    m_Values[position - 1] = text;
    m_Filled[position - 1] = true;
}

atr_String atr_Translator::Result() const
{
    std::string result;
    int next = 1;
    for (std::string_view rest = m_Format.View(); !rest.empty();)
    {
        const Piece piece = TakePiece(rest, next);
        const bool filled =
            piece.position >= 1 && piece.position <= kMostValues && m_Filled[piece.position - 1];
        if (filled)
            result += m_Values[piece.position - 1].View();
        else
            result += piece.text;
    }
    return atr_String(std::string_view(result));
}

// The conversion comes out of a format of ours, never out of a file, and its letter is checked against the value.
template <class Value>
static atr_StringBase Format(const atr_StringBase& conversion, const char* fallback, const char* letters,
                             Value value)
{
    const std::string_view text = conversion.View();
    const bool fits = !text.empty() && std::string_view(letters).find(text.back()) != std::string_view::npos;
    char formatted[400];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length =
        std::snprintf(formatted, sizeof formatted, fits ? conversion.CString() : fallback, value);
#pragma GCC diagnostic pop
    return atr_StringBase(formatted, std::min(length, static_cast<int>(sizeof formatted) - 1));
}

void atr_SubstituteFormat(atr_Translator& translator, int position, int value)
{
    translator.Fill(position, Format(translator.Conversion(position), "%d", "dux", value));
}

void atr_SubstituteFormat(atr_Translator& translator, int position, double value)
{
    translator.Fill(position, Format(translator.Conversion(position), "%f", "fg", value));
}

void atr_SubstituteFormat(atr_Translator& translator, int position, const char* value)
{
    translator.Fill(position, atr_StringBase(value));
}

void atr_SubstituteFormat(atr_Translator& translator, int position, const atr_StringBase& value)
{
    translator.Fill(position, value);
}
