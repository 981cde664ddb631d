#include "utl_CommandLine.h"

#include "Thrown.h"
#include "nex_Exception.h"
#include "thr_GlobalSingleton.h"

#include <gtest/gtest.h>
#include <iterator>

namespace
{
template <std::size_t N> int Take(utl_CommandLine& options, const char* const (&arguments)[N])
{
    return options.TakeArguments(static_cast<int>(N), arguments);
}
} // namespace

TEST(utl_CommandLine, AnOptionThatNobodyGaveIsNoMemberAndZero)
{
    const utl_CommandLine options;
    EXPECT_FALSE(options.IsMember("nrdx_page_size"));
    EXPECT_EQ(options.ConstGetValueAsInt("nrdx_page_size"), 0);
}

TEST(utl_CommandLine, AnOptionHasTheValueThatItWasGivenLast)
{
    utl_CommandLine options;
    options.Set("nrdx_page_size", "512");
    EXPECT_TRUE(options.IsMember("nrdx_page_size"));
    EXPECT_FALSE(options.IsMember("nrdx_page"));
    EXPECT_EQ(options.ConstGetValueAsInt("nrdx_page_size"), 512);
    options.Set("nrdx_page_size", "-7");
    EXPECT_EQ(options.ConstGetValueAsInt("nrdx_page_size"), -7);
}

TEST(utl_CommandLine, ArgumentsOfTheFormNameEqualsValueAreTakenAndTheRestLeft)
{
    utl_CommandLine options;
    EXPECT_EQ(Take(options, {"program=1", "a=1", "-b=2", "--c=3", "---d=4", "e", "-f", "=5", "-=6", "g h=7",
                             "/i=8", "nrdx_x2=", "a=9"}),
              5);
    EXPECT_EQ(options.ConstGetValueAsInt("a"), 9);
    EXPECT_EQ(options.ConstGetValueAsInt("b"), 2);
    EXPECT_EQ(options.ConstGetValueAsInt("c"), 3);
    EXPECT_TRUE(options.IsMember("nrdx_x2"));
    for (const char* left : {"program", "d", "-d", "e", "f", "", "g h", "/i"})
        EXPECT_FALSE(options.IsMember(left)) << left;
}

TEST(utl_CommandLine, AProgramWithoutArgumentsHasNoOptions)
{
    utl_CommandLine options;
    EXPECT_EQ(options.TakeArguments(0, nullptr), 0);
}

TEST(utl_CommandLine, AValueThatIsNoWholeNumberIsRefused)
{
    utl_CommandLine options;
    for (const char* value : {"", "x", "1x", "1.5", " 1", "+1", "2147483648", "99999999999999999999"})
    {
        options.Set("size", value);
        EXPECT_EQ(Thrown<nex_TextException>([&] { options.ConstGetValueAsInt("size"); }),
                  std::string("*** ERROR: Option size must be a whole number, not \"") + value + "\".");
    }
    options.Set("size", "2147483647");
    EXPECT_EQ(options.ConstGetValueAsInt("size"), 2147483647);
}

TEST(utl_CommandLine, TheProcessHasOne)
{
    EXPECT_EQ(&utl_CommandLine::OfProcess(), &thr_GlobalSingleton<utl_CommandLine>::Instance());
}
