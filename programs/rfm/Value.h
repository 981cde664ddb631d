#pragma once

#include <cstdint>
#include <string_view>

namespace rfm_tool
{
/// One value of a row. It owns nothing: a text is that of whoever gave the value, and lives as long as they say.
class Value
{
public:
    enum class Kind
    {
        Absent,
        Int, // handles and row numbers too
        Float,
        Double,
        Text,
    };

    constexpr Value() noexcept = default;
    static constexpr Value OfInt(std::int64_t value) noexcept
    {
        Value result;
        result.m_Kind = Kind::Int;
        result.m_Int = value;
        return result;
    }
    static constexpr Value OfFloat(float value) noexcept
    {
        Value result;
        result.m_Kind = Kind::Float;
        result.m_Double = value;
        return result;
    }
    static constexpr Value OfDouble(double value) noexcept
    {
        Value result;
        result.m_Kind = Kind::Double;
        result.m_Double = value;
        return result;
    }
    static constexpr Value OfText(std::string_view value) noexcept
    {
        Value result;
        result.m_Kind = Kind::Text;
        result.m_Text = value;
        return result;
    }

    constexpr Kind GetKind() const noexcept { return m_Kind; }
    constexpr bool IsAbsent() const noexcept { return m_Kind == Kind::Absent; }
    constexpr bool IsText() const noexcept { return m_Kind == Kind::Text; }
    constexpr bool IsNumber() const noexcept { return !IsAbsent() && !IsText(); }
    /// Of an Int.
    constexpr std::int64_t Int() const noexcept { return m_Int; }
    /// Of any number: all that a database holds are exact as a double.
    constexpr double Number() const noexcept
    {
        return m_Kind == Kind::Int ? static_cast<double>(m_Int) : m_Double;
    }
    /// Of a Text.
    constexpr std::string_view Text() const noexcept { return m_Text; }

private:
    Kind m_Kind = Kind::Absent;
    std::int64_t m_Int = 0;
    double m_Double = 0;
    std::string_view m_Text;
};
} // namespace rfm_tool
