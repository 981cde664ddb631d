#include "AxisTicks.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace rfm_tool
{
namespace
{
// Closer than this, as a part of the larger, two numbers are one: between them there is nothing but rounding.
constexpr double kNearest = 1e-12;
constexpr double kSmallest = 1e-290;

// Digits times a power of ten, as a person writes it.
std::string DecimalText(std::int64_t number, int exponent)
{
    constexpr int kLongest = 9; // digits of a number without an exponent
    constexpr int kMostDecimals = 6;
    const std::string sign = number < 0 ? "-" : "";
    std::string digits = std::to_string(std::abs(number));
    if (number == 0) exponent = std::clamp(exponent, -kMostDecimals, 0);
    const int size = static_cast<int>(digits.size());
    if (exponent >= 0 && size + exponent <= kLongest)
        return sign + digits + std::string(static_cast<std::size_t>(exponent), '0');
    if (exponent < 0 && -exponent <= kMostDecimals)
    {
        if (size <= -exponent) digits.insert(0, static_cast<std::size_t>(1 - exponent - size), '0');
        digits.insert(digits.size() - static_cast<std::size_t>(-exponent), ".");
        return sign + digits;
    }
    const int power = exponent + size - 1;
    while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
    if (digits.size() > 1) digits.insert(1, ".");
    return fmt::format("{}{}e{:+03}", sign, digits, power);
}

double NumberOf(const std::string& text)
{
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}
} // namespace

void Range::Add(double value) noexcept
{
    if (!std::isfinite(value)) return;
    m_Low = m_HasNumbers ? std::min(m_Low, value) : value;
    m_High = m_HasNumbers ? std::max(m_High, value) : value;
    m_HasNumbers = true;
}

Range Range::Drawable() const noexcept
{
    const double size = std::max(std::abs(m_Low), std::abs(m_High));
    const bool isWide = m_High / 2 - m_Low / 2 > std::max(size * kNearest, kSmallest);
    if (isWide) return *this;
    const double margin = size > kSmallest * 10 ? size / 10 : 1;
    Range wider;
    wider.Add(std::max(m_Low - margin, std::numeric_limits<double>::lowest()));
    wider.Add(std::min(m_High + margin, std::numeric_limits<double>::max()));
    return wider;
}

// Halves, since the whole range may be larger than any number.
double Range::PartOf(double value) const noexcept
{
    return std::clamp((value / 2 - m_Low / 2) / (m_High / 2 - m_Low / 2), 0.0, 1.0);
}

std::vector<Tick> TicksIn(const Range& range, int most)
{
    const double least = range.High() / most - range.Low() / most;
    int exponent = static_cast<int>(std::floor(std::log10(least)));
    const double power = std::pow(10, exponent);
    int factor = 1;
    for (const int next : {2, 5, 10})
        if (factor * power < least) factor = next;
    const double step = factor * power;
    // What lies on an end belongs to it, although the division is rounded.
    constexpr double kSlack = 1e-9;
    const auto first = static_cast<std::int64_t>(std::ceil(range.Low() / step - kSlack));
    const auto last = static_cast<std::int64_t>(std::floor(range.High() / step + kSlack));
    if (factor == 10)
    {
        factor = 1;
        ++exponent;
    }
    std::vector<Tick> ticks;
    for (std::int64_t i = first; i <= last; ++i)
    {
        const std::string label = DecimalText(i * factor, exponent);
        ticks.push_back({NumberOf(label), label});
    }
    return ticks;
}
} // namespace rfm_tool
