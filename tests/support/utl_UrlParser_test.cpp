#include "utl_UrlParser.h"

#include <gtest/gtest.h>
#include <ostream>
#include <string>

TEST(utl_UrlParser, AUrlIsToldByItsScheme)
{
    EXPECT_TRUE(utl_UrlParser::IsUrl("mrkrdb://host:1/x"));
    EXPECT_TRUE(utl_UrlParser::IsUrl("mrkrdb://"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("mrkrdb:/host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("MRKRDB://host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("./mrkrdb://host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("job.rdx"));
    EXPECT_FALSE(utl_UrlParser::IsUrl(""));
}

namespace
{
// An empty text: the URL has no such thing.
struct Url
{
    const char* text;
    const char* host;
    const char* port;
    const char* path;
};

void PrintTo(const Url& url, std::ostream* out) { *out << url.text; }

class EveryUrl : public ::testing::TestWithParam<Url>
{
};
} // namespace

TEST_P(EveryUrl, HasWhatItsTextGives)
{
    const Url& url = GetParam();
    EXPECT_EQ(utl_UrlParser::GetHost(url.text).View(), url.host);
    EXPECT_EQ(utl_UrlParser::GetPort(url.text).View(), url.port);
    EXPECT_EQ(utl_UrlParser::GetPath(url.text).View(), url.path);
    EXPECT_EQ(utl_UrlParser::HasHost(url.text), *url.host != '\0');
    EXPECT_EQ(utl_UrlParser::HasPort(url.text), *url.port != '\0');
    EXPECT_EQ(utl_UrlParser::HasPath(url.text), *url.path != '\0');
}

INSTANTIATE_TEST_SUITE_P(
    WellFormed, EveryUrl,
    ::testing::Values(
        Url{"mrkrdb://hpc7:40001//scratch/run/results/a.rdx", "hpc7", "40001", "/scratch/run/results/a.rdx"},
        Url{"mrkrdb://hpc7:40001//$SCRATCHDIR_RHOST/a.rdx", "hpc7", "40001", "/$SCRATCHDIR_RHOST/a.rdx"},
        Url{"mrkrdb://localhost//data/a.rdx", "localhost", "", "/data/a.rdx"},
        Url{"mrkrdb://localhost/a.rdx", "localhost", "", "a.rdx"}, Url{"mrkrdb://h:0/x", "h", "0", "x"},
        Url{"mrkrdb://h:65535/x", "h", "65535", "x"}, Url{"mrkrdb://h:1/a:2/b", "h", "1", "a:2/b"},
        Url{"mrkrdb://h:1/mrkrdb://g:2/y", "h", "1", "mrkrdb://g:2/y"},
        Url{"mrkrdb://h:1/a b?c#d%20", "h", "1", "a b?c#d%20"},
        Url{"mrkrdb://user@h:1/x", "user@h", "1", "x"}, Url{"mrkrdb://10.0.0.7:22/x", "10.0.0.7", "22", "x"},
        Url{"mrkrdb://[::1]:40001/x", "[::1]", "40001", "x"}, Url{"mrkrdb://[::1]/x", "[::1]", "", "x"}));

INSTANTIATE_TEST_SUITE_P(
    Malformed, EveryUrl,
    ::testing::Values(
        Url{"mrkrdb://", "", "", ""}, Url{"mrkrdb:///", "", "", ""}, Url{"mrkrdb:///x", "", "", "x"},
        Url{"mrkrdb://:40001/x", "", "40001", "x"}, Url{"mrkrdb://h", "h", "", ""},
        Url{"mrkrdb://h/", "h", "", ""}, Url{"mrkrdb://h:1", "h", "1", ""},
        Url{"mrkrdb://h:1/", "h", "1", ""},
        // What is no port stays with the host, so that neither "localhost" nor a connection's host is taken for it.
        Url{"mrkrdb://localhost:/x", "localhost:", "", "x"},
        Url{"mrkrdb://localhost:abc/x", "localhost:abc", "", "x"}, Url{"mrkrdb://h:1a/x", "h:1a", "", "x"},
        Url{"mrkrdb://h:-1/x", "h:-1", "", "x"}, Url{"mrkrdb://h:+1/x", "h:+1", "", "x"},
        Url{"mrkrdb://h: 1/x", "h: 1", "", "x"}, Url{"mrkrdb://h:65536/x", "h:65536", "", "x"},
        Url{"mrkrdb://h:99999/x", "h:99999", "", "x"}, Url{"mrkrdb://h:000001/x", "h:000001", "", "x"},
        Url{"mrkrdb://h:4294967297/x", "h:4294967297", "", "x"}, Url{"mrkrdb://h:1:2/x", "h:1", "2", "x"},
        Url{"mrkrdb://::/x", "::", "", "x"}, Url{"mrkrdb://-oProxy=x:1/x", "-oProxy=x", "1", "x"}));

INSTANTIATE_TEST_SUITE_P(None, EveryUrl,
                         ::testing::Values(Url{"", "", "", ""}, Url{"h:1/x", "", "", ""},
                                           Url{"mrkrdb:/h:1/x", "", "", ""},
                                           Url{"Mrkrdb://h:1/x", "", "", ""},
                                           Url{" mrkrdb://h:1/x", "", "", ""}, Url{"//h:1/x", "", "", ""}));

TEST(utl_UrlParser, ANulIsAByteLikeAnyOther)
{
    const cow_String url("mrkrdb://h\0g:1/x\0y", 18);
    EXPECT_EQ(utl_UrlParser::GetHost(url).View(), std::string_view("h\0g", 3));
    EXPECT_EQ(utl_UrlParser::GetPath(url).View(), std::string_view("x\0y", 3));
}
