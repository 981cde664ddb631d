#pragma once

#include <string>
#include <vector>

namespace rfm_tool
{
/// The numbers between the least and the greatest that were added.
class Range
{
public:
    /// What is not finite has no place.
    void Add(double value) noexcept;
    bool IsEmpty() const noexcept { return !m_HasNumbers; }
    double Low() const noexcept { return m_Low; }
    double High() const noexcept { return m_High; }
    /// The same, or a wider one around it where it is too narrow to be divided.
    Range Drawable() const noexcept;
    /// Where a value lies: 0 at the low end, 1 at the high one.
    double PartOf(double value) const noexcept;

private:
    bool m_HasNumbers = false;
    double m_Low = 0;
    double m_High = 0;
};

struct Tick
{
    double place;
    std::string label;
};
/// Round numbers within a drawable range, 1, 2 or 5 times a power of ten apart: about `most` of them, and at most
/// that many and one.
std::vector<Tick> TicksIn(const Range& range, int most);
} // namespace rfm_tool
