#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
/// The shortest text that reads back as the same number.
std::string NumberText(std::int64_t value);
std::string NumberText(float value);
std::string NumberText(double value);
/// The same behind what `target` holds already.
void AppendNumber(std::string& target, std::int64_t value);
void AppendNumber(std::string& target, float value);
void AppendNumber(std::string& target, double value);
/// The same for JSON, which has no word for what is not finite: "NaN", "Infinity" and "-Infinity" as strings.
std::string NumberJson(double value);

/// A text on one line and in one cell: control characters, backslashes and bytes that are not UTF-8 as \t \n \r \\ \xNN.
std::string OneLine(std::string_view text);
void AppendOneLine(std::string& target, std::string_view text);
/// A cell of a CSV line (RFC 4180): quoted when it has to be, and when it is empty, since absent values are bare.
std::string CsvCell(std::string_view text);
void AppendCsvCell(std::string& target, std::string_view text);
/// Text between tags or in an attribute of XML; what XML can't hold at all as OneLine has it.
std::string XmlText(std::string_view text);
/// A JSON string; text that is not UTF-8 as {"hex": "..."}.
std::string TextJson(std::string_view text);
/// Characters, as a terminal counts them for the usual scripts.
std::size_t DisplayWidth(std::string_view text);
/// The longest start of `text` that is at most `columns` wide.
std::string_view CutToWidth(std::string_view text, std::size_t columns);

/// The pieces between the separators, empty ones too.
std::vector<std::string> Split(std::string_view text, char separator);

/// "15472 bytes", "1 byte".
std::string Counted(std::int64_t count, std::string_view one, std::string_view many);
/// "2026-11-21 07:30:00 UTC".
std::string UtcTime(std::int64_t seconds);
/// A message of the library on one line, without its marks.
std::string PlainMessage(std::string_view message);

/// The candidate that `word` was probably meant to be; empty when none is near.
template <class Names> std::string_view NearestName(std::string_view word, const Names& names);
std::size_t EditDistance(std::string_view left, std::string_view right);

template <class Names> std::string_view NearestName(std::string_view word, const Names& names)
{
    std::string_view nearest;
    std::size_t least = 3; // two slips; in a short word one
    if (word.size() < 4) least = 2;
    for (const std::string_view name : names)
    {
        const std::size_t distance = EditDistance(word, name);
        if (distance >= least) continue;
        least = distance;
        nearest = name;
    }
    return nearest;
}
} // namespace rfm_tool
