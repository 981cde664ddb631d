#include "utl_UrlParser.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace
{
constexpr std::string_view kScheme = "mrkrdb://";
constexpr std::size_t kMostPortDigits = 5;
constexpr int kMostPort = 65535;

struct Pieces
{
    std::string_view host;
    std::string_view port;
    std::string_view path;
};

bool IsPort(std::string_view text)
{
    const auto isDigit = [](char letter) { return letter >= '0' && letter <= '9'; };
    if (text.empty() || text.size() > kMostPortDigits || !std::all_of(text.begin(), text.end(), isDigit))
        return false;
    int number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number <= kMostPort;
}

// The pieces look into `url`, which must outlive them.
Pieces Take(const cow_String& url)
{
    Pieces pieces;
    if (!utl_UrlParser::IsUrl(url)) return pieces;
    const std::string_view rest = url.View().substr(kScheme.size());
    pieces.host = rest.substr(0, rest.find('/'));
    if (pieces.host.size() < rest.size()) pieces.path = rest.substr(pieces.host.size() + 1);
    const std::size_t colon = pieces.host.rfind(':');
    if (colon == std::string_view::npos || !IsPort(pieces.host.substr(colon + 1))) return pieces;
    pieces.port = pieces.host.substr(colon + 1);
    pieces.host = pieces.host.substr(0, colon);
    return pieces;
}
} // namespace

bool utl_UrlParser::IsUrl(const cow_String& text) { return text.View().starts_with(kScheme); }

bool utl_UrlParser::HasHost(const cow_String& url) { return !Take(url).host.empty(); }
bool utl_UrlParser::HasPort(const cow_String& url) { return !Take(url).port.empty(); }
bool utl_UrlParser::HasPath(const cow_String& url) { return !Take(url).path.empty(); }

cow_String utl_UrlParser::GetHost(const cow_String& url) { return cow_String(Take(url).host); }
cow_String utl_UrlParser::GetPort(const cow_String& url) { return cow_String(Take(url).port); }
cow_String utl_UrlParser::GetPath(const cow_String& url) { return cow_String(Take(url).path); }
