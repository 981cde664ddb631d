#include "utl_CommandLine.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "thr_GlobalSingleton.h"

#include <algorithm>
#include <charconv>
#include <string_view>

static bool IsNameLetter(char letter)
{
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '_';
}

static std::string_view WithoutDashes(std::string_view argument)
{
    for (int dash = 0; dash < 2 && argument.starts_with('-'); ++dash) argument.remove_prefix(1);
    return argument;
}

utl_CommandLine& utl_CommandLine::OfProcess() { return thr_GlobalSingleton<utl_CommandLine>::Instance(); }

int utl_CommandLine::TakeArguments(int count, const char* const* arguments)
{
    int taken = 0;
    for (int i = 1; i < count; ++i)
    {
        const std::string_view option = WithoutDashes(arguments[i]);
        const std::size_t equals = option.find('=');
        if (equals == std::string_view::npos || equals == 0) continue;
        const std::string_view name = option.substr(0, equals);
        if (!std::all_of(name.begin(), name.end(), IsNameLetter)) continue;
        m_Values[std::string(name)] = option.substr(equals + 1);
        ++taken;
    }
    return taken;
}

void utl_CommandLine::Set(const cow_String& name, const cow_String& value)
{
    m_Values[std::string(name.View())] = value.View();
}

bool utl_CommandLine::IsMember(const cow_String& name) const { return m_Values.contains(name.View()); }

int utl_CommandLine::ConstGetValueAsInt(const cow_String& name) const
{
    const auto found = m_Values.find(name.View());
    if (found == m_Values.end()) return 0;
    const std::string& text = found->second;
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        nex_ThrowText(
            atr_Message("*** ERROR: Option %s must be a whole number, not \"%s\".", name, cow_String(text)));
    return value;
}
