#pragma once

#include "cow_String.h"

#include <cstring>

/// A name that is a literal of the program: it costs a pointer and lives to the end of the process.
class omn_FixedString
{
public:
    explicit constexpr omn_FixedString(const char* literal) noexcept : m_Text(literal) {}
    constexpr const char* CString() const noexcept { return m_Text; }
    operator cow_String() const { return cow_String(m_Text); }
    friend bool operator==(const omn_FixedString& left, const omn_FixedString& right) noexcept
    {
        return std::strcmp(left.m_Text, right.m_Text) == 0;
    }

private:
    const char* m_Text;
};
