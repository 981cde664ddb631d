#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ctime>
#include <numeric>
#include <vector>

namespace rfm_tool
{
namespace
{
template <class T> std::string Shortest(T value)
{
    char text[64];
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
    return {text, end.ptr};
}

template <class T> void AppendShortest(std::string& target, T value)
{
    char text[64];
    const char* const end = std::to_chars(text, text + sizeof text, value).ptr;
    target.append(text, static_cast<std::size_t>(end - text));
}

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// Bytes of the UTF-8 sequence at the start of `text`, 0 when there is none. Overlong forms, surrogates and what lies
// behind U+10FFFF are none.
std::size_t Utf8Sequence(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) return 1;
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if (!IsContinuation(text[i])) return 0;
    const unsigned second = byte(1);
    const bool refused = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
                         (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F);
    return refused ? 0 : length;
}

bool IsUtf8(std::string_view text)
{
    while (!text.empty())
    {
        const std::size_t length = Utf8Sequence(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

// The C1 controls, U+0080 to U+009F: some terminals obey them.
bool IsControl(std::string_view sequence)
{
    const unsigned char first = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
    return sequence.size() == 2 && first == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

// Escaped is what must be: quotes, backslashes and control characters below the space.
std::string JsonString(std::string_view text)
{
    std::string quoted = "\"";
    for (const char byte : text) switch (byte)
        {
        case '"': quoted += "\\\""; break;
        case '\\': quoted += "\\\\"; break;
        case '\b': quoted += "\\b"; break;
        case '\f': quoted += "\\f"; break;
        case '\n': quoted += "\\n"; break;
        case '\r': quoted += "\\r"; break;
        case '\t': quoted += "\\t"; break;
        default:
            if (static_cast<unsigned char>(byte) < 0x20)
                quoted += fmt::format("\\u{:04x}", static_cast<unsigned char>(byte));
            else
                quoted += byte;
        }
    return quoted + '"';
}

std::string Escaped(std::string_view bytes)
{
    if (bytes == "\t") return "\\t";
    if (bytes == "\n") return "\\n";
    if (bytes == "\r") return "\\r";
    std::string text;
    for (const char byte : bytes) text += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
    return text;
}
} // namespace

std::string NumberText(std::int64_t value) { return Shortest(value); }
std::string NumberText(float value) { return Shortest(value); }
std::string NumberText(double value) { return Shortest(value); }
void AppendNumber(std::string& target, std::int64_t value) { AppendShortest(target, value); }
void AppendNumber(std::string& target, float value) { AppendShortest(target, value); }
void AppendNumber(std::string& target, double value) { AppendShortest(target, value); }

std::string NumberJson(double value)
{
    if (std::isnan(value)) return "\"NaN\"";
    if (std::isinf(value)) return value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
    return Shortest(value);
}

std::string OneLine(std::string_view text)
{
    std::string line;
    line.reserve(text.size());
    AppendOneLine(line, text);
    return line;
}

void AppendOneLine(std::string& line, std::string_view text)
{
    const auto isPlain = [](char byte) { return byte >= ' ' && byte <= '~' && byte != '\\'; };
    const std::size_t plain =
        static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
    line.append(text.substr(0, plain));
    text.remove_prefix(plain);
    while (!text.empty())
    {
        const std::size_t length = Utf8Sequence(text);
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || IsControl(sequence))
            line += Escaped(sequence);
        else if (sequence == "\\")
            line += "\\\\";
        else
            line += sequence;
        text.remove_prefix(sequence.size());
    }
}

std::string CsvCell(std::string_view text)
{
    std::string cell;
    AppendCsvCell(cell, text);
    return cell;
}

void AppendCsvCell(std::string& target, std::string_view text)
{
    const bool isPlain = !text.empty() && text.find_first_of(",\"\r\n") == std::string_view::npos;
    if (isPlain)
    {
        target += text;
        return;
    }
    target += '"';
    for (const char byte : text)
    {
        if (byte == '"') target += '"';
        target += byte;
    }
    target += '"';
}

std::string XmlText(std::string_view text)
{
    std::string escaped;
    for (const char byte : OneLine(text)) switch (byte)
        {
        case '&': escaped += "&amp;"; break;
        case '<': escaped += "&lt;"; break;
        case '>': escaped += "&gt;"; break;
        case '"': escaped += "&quot;"; break;
        default: escaped += byte;
        }
    return escaped;
}

std::string TextJson(std::string_view text)
{
    if (IsUtf8(text)) return JsonString(text);
    std::string hex = "{\"hex\":\"";
    for (const char byte : text) hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return hex + "\"}";
}

std::size_t DisplayWidth(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char byte) { return !IsContinuation(byte); }));
}

std::string_view CutToWidth(std::string_view text, std::size_t columns)
{
    std::size_t end = 0;
    for (; end < text.size(); ++end)
    {
        if (IsContinuation(text[end])) continue;
        if (columns == 0) break;
        --columns;
    }
    return text.substr(0, end);
}

std::vector<std::string> Split(std::string_view text, char separator)
{
    std::vector<std::string> pieces;
    for (;;)
    {
        const std::size_t end = text.find(separator);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

std::string Counted(std::int64_t count, std::string_view one, std::string_view many)
{
    return fmt::format("{} {}", count, count == 1 || count == -1 ? one : many);
}

std::string UtcTime(std::int64_t seconds)
{
    const std::time_t time = seconds;
    std::tm parts{};
    char text[80];
    if (::gmtime_r(&time, &parts) == nullptr) return Counted(seconds, "second", "seconds");
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts)};
}

std::string PlainMessage(std::string_view message)
{
    while (!message.empty() && message.front() == '*') message.remove_prefix(1);
    std::string words;
    for (const char byte : message)
    {
        const bool isBlank = byte == ' ' || byte == '\n' || byte == '\t' || byte == '\r';
        if (!isBlank)
            words += byte;
        else if (!words.empty() && words.back() != ' ')
            words += ' ';
    }
    for (const std::string mark : {"ERROR: ", "Error: "})
        if (words.starts_with(mark)) words.erase(0, mark.size());
    while (!words.empty() && (words.back() == ' ' || words.back() == '.')) words.pop_back();
    return OneLine(words);
}

// Levenshtein's, one row of the table at a time; two letters swapped are two slips.
std::size_t EditDistance(std::string_view left, std::string_view right)
{
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i)
    {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < right.size(); ++j)
        {
            const std::size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}
} // namespace rfm_tool
