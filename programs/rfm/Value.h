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

    constexpr Value() noexcept : m_Int(0) {}
    static constexpr Value OfInt(std::int64_t value) noexcept { return Value(value); }
    static constexpr Value OfFloat(float value) noexcept { return {Kind::Float, value}; }
    static constexpr Value OfDouble(double value) noexcept { return {Kind::Double, value}; }
    static constexpr Value OfText(std::string_view value) noexcept { return Value(value); }

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
    constexpr explicit Value(std::int64_t value) noexcept : m_Kind(Kind::Int), m_Int(value) {}
    constexpr explicit Value(std::string_view value) noexcept : m_Kind(Kind::Text), m_Text(value) {}
    constexpr Value(Kind kind, double value) noexcept : m_Kind(kind), m_Double(value) {}

    // Millions of them pass on their way to a listing, so that they share their bytes.
    Kind m_Kind = Kind::Absent;
    union
    {
        std::int64_t m_Int;
        double m_Double;
        std::string_view m_Text;
    };
};
} // namespace rfm_tool
