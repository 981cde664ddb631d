#pragma once

#include "Value.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace rfm_tool
{
/// What is told of many values: how many there are, and of the numbers among them least, greatest and mean. What is no
/// number (nan) counts as there and has no part in these.
class Extremes
{
public:
    void Add(const Value& value) noexcept
    {
        if (value.IsAbsent()) return;
        ++m_Present;
        const double number = value.IsNumber() ? value.Number() : std::nan("");
        if (std::isnan(number)) return;
        if (m_Numbers == 0) m_Kind = value.GetKind();
        if (m_Kind != value.GetKind()) m_Kind = Value::Kind::Double;
        ++m_Numbers;
        m_Minimum = std::min(m_Minimum, number);
        m_Maximum = std::max(m_Maximum, number);
        AddToSum(number);
    }
    std::int64_t Present() const noexcept { return m_Present; }
    bool HasNumbers() const noexcept { return m_Numbers > 0; }
    /// Of the kind of the numbers, where they are of one; absent without any.
    Value Minimum() const noexcept { return AsKind(m_Minimum); }
    Value Maximum() const noexcept { return AsKind(m_Maximum); }
    Value Mean() const noexcept
    {
        if (!HasNumbers()) return {};
        const double sum = std::isfinite(m_Sum) ? m_Sum + m_Rest : m_Sum;
        return Value::OfDouble(sum / static_cast<double>(m_Numbers));
    }

private:
    Value AsKind(double number) const noexcept
    {
        if (!HasNumbers()) return {};
        if (m_Kind == Value::Kind::Int) return Value::OfInt(static_cast<std::int64_t>(number));
        if (m_Kind == Value::Kind::Float) return Value::OfFloat(static_cast<float>(number));
        return Value::OfDouble(number);
    }
    // What each addition loses is summed up beside: the mean of 0.1 a million times is 0.1.
    void AddToSum(double number) noexcept
    {
        const double sum = m_Sum + number;
        m_Rest += std::abs(m_Sum) >= std::abs(number) ? (m_Sum - sum) + number : (number - sum) + m_Sum;
        m_Sum = sum;
    }

    std::int64_t m_Present = 0;
    std::int64_t m_Numbers = 0;
    Value::Kind m_Kind = Value::Kind::Absent;
    double m_Minimum = std::numeric_limits<double>::infinity();
    double m_Maximum = -std::numeric_limits<double>::infinity();
    double m_Sum = 0;
    double m_Rest = 0;
};
} // namespace rfm_tool
