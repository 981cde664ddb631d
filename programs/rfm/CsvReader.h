#pragma once

#include "TextFile.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Lines of cells as RFC 4180 has them: cells between separators, in quotes where they hold separators, quotes or
// line ends; a quote inside is two. A line ends with CR LF, LF or CR, the last one with the file, too. A mark of
// UTF-8 in front of the first line is no part of it.

namespace rfm_tool
{
struct CsvCellView
{
    std::string_view text;
    bool isQuoted = false; // an empty text in quotes is a text, without them it is nothing
};

/// The cells of a file, line by line. Its memory is that of the longest line.
class CsvReader
{
public:
    CsvReader(TextFile& file, char separator);

    /// Goes to the next line; false at the end.
    /// Throws: Failure for quotes that stand where none may be, or are not closed.
    bool Next();
    /// Of the current line; they live until the next.
    const std::vector<CsvCellView>& Cells() const noexcept { return m_Cells; }
    /// Where the current line begins, from 1: a cell in quotes may hold several.
    std::int64_t Line() const noexcept { return m_Line; }
    /// Bytes of the file that were taken.
    std::int64_t Taken() const noexcept { return m_TakenBefore + static_cast<std::int64_t>(m_Place); }

private:
    struct Piece // of m_Text
    {
        std::size_t begin;
        std::size_t end;
        bool isQuoted;
    };
    static constexpr int kEnd = -1;

    int Peek();
    int Get();
    void SkipMark();
    void ReadCell();
    void ReadQuoted();
    // Past the end of a line, whose first byte was taken.
    void EndLine(int byte);
    bool EndsCell(int byte) const
    {
        return byte == kEnd || byte == '\r' || byte == '\n' || byte == m_Separator;
    }
    [[noreturn]] void Refuse(std::int64_t line, const std::string& why, const std::string& remedy) const;

    TextFile& m_File;
    int m_Separator;
    std::vector<char> m_Bytes; // of the file, m_Place on are not taken yet
    std::size_t m_Size = 0;
    std::size_t m_Place = 0;
    std::int64_t m_TakenBefore = 0;
    std::int64_t m_Line = 0;
    std::int64_t m_NextLine = 1;
    std::string m_Text; // of the cells of the line, one behind the other
    std::vector<Piece> m_Pieces;
    std::vector<CsvCellView> m_Cells;
};
} // namespace rfm_tool
