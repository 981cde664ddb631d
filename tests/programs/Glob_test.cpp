// Globs: each of their signs, and what they can't be made to cost.
#include "Glob.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
using rfm_tool::MatchesGlob;

TEST(Glob, EachSignFitsWhatItStandsFor)
{
    const std::pair<const char*, const char*> kFitting[] = {
        {"", ""},          {"abc", "abc"},      {"*", ""},
        {"*", "abc"},      {"a*c", "ac"},       {"a*c", "abcbc"},
        {"?b?", "abc"},    {"[a-c]x", "bx"},    {"[!a-c]x", "dx"},
        {"[]a]", "]"},     {"[a-]", "-"},       {"[a", "[a"},
        {"**b", "aab"},    {"a?", "a\xc3\xb6"}, {"[\xc3\xa4-\xc3\xbc]", "\xc3\xb6"},
        {"*.x*", "n.x.y"}, {"[!]]", "a"},
    };
    for (const auto& [pattern, text] : kFitting)
        EXPECT_TRUE(MatchesGlob(pattern, text)) << pattern << ' ' << text;
}

TEST(Glob, TheWholeTextHasToFit)
{
    const std::pair<const char*, const char*> kOther[] = {
        {"", "a"},      {"a", ""},        {"abc", "abcd"}, {"bc", "abc"},  {"?", ""},     {"?", "ab"},
        {"a*c", "abx"}, {"[a-c]x", "dx"}, {"[!a-c]", "b"}, {"ABC", "abc"}, {"[!]]", "]"}, {"[c-a]", "b"},
    };
    for (const auto& [pattern, text] : kOther)
        EXPECT_FALSE(MatchesGlob(pattern, text)) << pattern << ' ' << text;
}

TEST(Glob, ManyStarsDontMultiplyTheWork)
{
    std::string pattern;
    for (int i = 0; i < 50; ++i) pattern += "a*";
    EXPECT_FALSE(MatchesGlob(pattern + "b", std::string(10000, 'a')));
}
} // namespace
