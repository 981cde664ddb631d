#include "CsvReader.h"

#include "Failure.h"
#include "Text.h"

#include <fmt/format.h>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kPieceBytes = 1 << 18;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
} // namespace

CsvReader::CsvReader(TextFile& file, char separator)
    : m_File(file),
      m_Separator(static_cast<unsigned char>(separator)),
      m_Bytes(kPieceBytes)
{
    SkipMark();
}

void CsvReader::SkipMark()
{
    Peek();
    if (std::string_view(m_Bytes.data(), m_Size).starts_with(kUtf8Mark)) m_Place = kUtf8Mark.size();
}

int CsvReader::Peek()
{
    if (m_Place == m_Size)
    {
        m_TakenBefore += static_cast<std::int64_t>(m_Size);
        m_Size = m_File.Read(m_Bytes.data(), m_Bytes.size());
        m_Place = 0;
        if (m_Size == 0) return kEnd;
    }
    return static_cast<unsigned char>(m_Bytes[m_Place]);
}

int CsvReader::Get()
{
    const int byte = Peek();
    if (byte != kEnd) ++m_Place;
    return byte;
}

void CsvReader::Refuse(std::int64_t line, const std::string& why, const std::string& remedy) const
{
    throw Failure(ExitUnreadable,
                  fmt::format("{}, line {}, column {}", OneLine(m_File.Path()), line, m_Pieces.size() + 1),
                  why, remedy);
}

void CsvReader::EndLine(int byte)
{
    ++m_NextLine;
    if (byte == '\r' && Peek() == '\n') Get();
}

// The opening quote was taken.
void CsvReader::ReadQuoted()
{
    const std::int64_t opened = m_NextLine;
    const std::size_t begin = m_Text.size();
    for (;;)
    {
        const int byte = Get();
        if (byte == kEnd)
            Refuse(opened, "the quote that begins here is never closed", "close it, or double it inside");
        if (byte == '"' && Peek() != '"') break;
        if (byte == '"') Get();
        const bool endsLine = byte == '\n' || (byte == '\r' && Peek() != '\n');
        if (endsLine) ++m_NextLine;
        m_Text += static_cast<char>(byte);
    }
    if (!EndsCell(Peek()))
        Refuse(m_NextLine, "there is more behind the closing quote", "double a quote inside a cell");
    m_Pieces.push_back({begin, m_Text.size(), true});
}

void CsvReader::ReadCell()
{
    const std::size_t begin = m_Text.size();
    if (Peek() == '"')
    {
        Get();
        return ReadQuoted();
    }
    while (!EndsCell(Peek()))
    {
        const char byte = static_cast<char>(Get());
        if (byte == '"')
            Refuse(m_NextLine, "a quote in a cell without quotes",
                   "put the cell in quotes and double this one");
        m_Text += byte;
    }
    m_Pieces.push_back({begin, m_Text.size(), false});
}

bool CsvReader::Next()
{
    if (Peek() == kEnd) return false;
    m_Line = m_NextLine;
    m_Text.clear();
    m_Pieces.clear();
    for (ReadCell(); Peek() == m_Separator; ReadCell()) Get();
    EndLine(Get());
    m_Cells.clear();
    for (const Piece& piece : m_Pieces)
        m_Cells.push_back(
            {std::string_view(m_Text).substr(piece.begin, piece.end - piece.begin), piece.isQuoted});
    return true;
}
} // namespace rfm_tool
