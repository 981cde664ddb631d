// The numbers along an axis.
#include "AxisTicks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace
{
using rfm_tool::Range;
using testing::ElementsAre;

Range RangeOf(std::initializer_list<double> values)
{
    Range range;
    for (const double value : values) range.Add(value);
    return range;
}

std::vector<std::string> Labels(double low, double high, int most)
{
    std::vector<std::string> labels;
    for (const rfm_tool::Tick& tick : rfm_tool::TicksIn(RangeOf({low, high}), most))
        labels.push_back(tick.label);
    return labels;
}

TEST(AxisTicks, AreOneTwoOrFiveTimesAPowerOfTenApart)
{
    EXPECT_THAT(Labels(0, 10, 5), ElementsAre("0", "2", "4", "6", "8", "10"));
    EXPECT_THAT(Labels(0, 7, 8), ElementsAre("0", "1", "2", "3", "4", "5", "6", "7"));
    EXPECT_THAT(Labels(-12, 21, 8), ElementsAre("-10", "-5", "0", "5", "10", "15", "20"));
    EXPECT_THAT(Labels(0.1, 0.7, 4), ElementsAre("0.2", "0.4", "0.6"));
    EXPECT_THAT(Labels(0, 0.05, 5), ElementsAre("0.00", "0.01", "0.02", "0.03", "0.04", "0.05"));
}

TEST(AxisTicks, StandAtTheNumberThatTheirLabelSays)
{
    const std::vector<rfm_tool::Tick> ticks = rfm_tool::TicksIn(RangeOf({0, 1}), 5);
    ASSERT_EQ(ticks.size(), 6U);
    EXPECT_EQ(ticks[3].label, "0.6");
    EXPECT_EQ(ticks[3].place, 0.6); // three times 0.2 is another number
}

TEST(AxisTicks, FarFromOneHaveAnExponent)
{
    EXPECT_THAT(Labels(0, 3e12, 3), ElementsAre("0", "1e+12", "2e+12", "3e+12"));
    EXPECT_THAT(Labels(0, 5e-9, 2), ElementsAre("0.000000", "5e-09"));
    EXPECT_THAT(Labels(-1.5e300, 1.5e300, 3), ElementsAre("-1e+300", "0", "1e+300"));
    EXPECT_THAT(Labels(100000, 300000, 2), ElementsAre("100000", "200000", "300000"));
}

TEST(AxisTicks, OfTheWidestRangeAreThereToo)
{
    const double greatest = std::numeric_limits<double>::max();
    EXPECT_THAT(Labels(-greatest, greatest, 4), ElementsAre("-1e+308", "0", "1e+308"));
}

TEST(AxisRange, HoldsWhatIsFiniteAndTellsParts)
{
    Range range;
    range.Add(std::numeric_limits<double>::quiet_NaN());
    range.Add(std::numeric_limits<double>::infinity());
    EXPECT_TRUE(range.IsEmpty());
    range.Add(-1);
    range.Add(3);
    EXPECT_FALSE(range.IsEmpty());
    EXPECT_EQ(range.PartOf(0), 0.25);
    EXPECT_EQ(range.PartOf(9), 1) << "what lies outside is at the end";
    const double greatest = std::numeric_limits<double>::max();
    EXPECT_EQ(RangeOf({-greatest, greatest}).PartOf(0), 0.5);
}

TEST(AxisRange, OfOneNumberIsWidenedAroundIt)
{
    EXPECT_EQ(RangeOf({50}).Drawable().Low(), 45);
    EXPECT_EQ(RangeOf({50}).Drawable().High(), 55);
    EXPECT_EQ(RangeOf({0}).Drawable().Low(), -1);
    EXPECT_EQ(RangeOf({1, 1 + 1e-15}).Drawable().High(), 1 + 1e-15 + (1 + 1e-15) / 10)
        << "nothing but rounding";
    EXPECT_EQ(RangeOf({2, 3}).Drawable().Low(), 2);
}
} // namespace
