#pragma once

#include "atr_String.h"

/// A message under construction: a format of the current language whose placeholders are filled by position.
/// `%d`, `%s`, `%f` and the like are numbered from 1 in their order; `%2$s` names its number itself.
class atr_Translator
{
public:
    explicit atr_Translator(const char* format) : m_Format(format) {}

    /// The conversion of placeholder `position`, such as "%d"; empty when the format has no such placeholder.
    atr_StringBase Conversion(int position) const;
    void Fill(int position, const atr_StringBase& text);
    /// The message. A placeholder that nobody filled stays as it stands.
    atr_String Result() const;

private:
    static constexpr int kMostValues = 8;
    atr_StringBase m_Format;
    atr_StringBase m_Values[kMostValues];
    bool m_Filled[kMostValues] = {};
};

/// Looks the format up in the current language. There is one language, so it stays as it stands.
inline atr_Translator atr_translate(const char* format) { return atr_Translator(format); }

void atr_SubstituteFormat(atr_Translator& translator, int position, int value);
void atr_SubstituteFormat(atr_Translator& translator, int position, double value);
void atr_SubstituteFormat(atr_Translator& translator, int position, const char* value);
void atr_SubstituteFormat(atr_Translator& translator, int position, const atr_StringBase& value);

/// The message of `format` with all its values, in order.
template <class... Values> atr_String atr_Message(const char* format, const Values&... values)
{
    atr_Translator translator = atr_translate(format);
    int position = 0;
    (atr_SubstituteFormat(translator, ++position, values), ...);
    return translator.Result();
}
