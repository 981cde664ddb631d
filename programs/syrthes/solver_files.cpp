#include "solver_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <iterator>
#include <system_error>

namespace solver
{

namespace
{

// No line of these files is longer than a few hundred characters. Past this it is no such file, and waiting
// for the end of the line would only gather memory.
constexpr std::size_t kLongestLine = 4096;

// Enough for several blocks of a large mesh, so that a recorder that starts late catches up in few steps.
constexpr std::size_t kLargestPiece = std::size_t{4} << 20;

constexpr std::string_view kBlanks = " \t\r";

std::string_view Trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
    {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Cuts the next word off the front of `text`; empty at the end.
std::string_view TakeWord(std::string_view& text)
{
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos)
    {
        text = {};
        return {};
    }
    const auto end = std::min(text.find_first_of(kBlanks, first), text.size());
    const std::string_view word = text.substr(first, end - first);
    text.remove_prefix(end);
    return word;
}

// Numbers are refused through the splitter, which knows file and line.
template <class T> T NumberFrom(std::string_view word, const LineSplitter& lines)
{
    T value{};
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc{} || end != word.data() + word.size())
    {
        lines.Refuse("expected a number, found \"" + Utf8FromLatin1(word) + "\"");
    }
    if constexpr (std::is_floating_point_v<T>)
    {
        if (!std::isfinite(value))
        {
            lines.Refuse("expected a finite number, found \"" + Utf8FromLatin1(word) + "\"");
        }
    }
    return value;
}

template <class T> T TakeNumber(std::string_view& text, const LineSplitter& lines)
{
    const std::string_view word = TakeWord(text);
    if (word.empty())
    {
        lines.Refuse("the line ends where a number should be");
    }
    return NumberFrom<T>(word, lines);
}

void ExpectEndOfLine(std::string_view rest, const LineSplitter& lines)
{
    if (!Trimmed(rest).empty())
    {
        lines.Refuse("expected the end of the line, found \"" + Utf8FromLatin1(Trimmed(rest)) + "\"");
    }
}

// The text behind `key` in a line like "***NTSYR=  25  ***TEMPS= 1.25e+03"; its first word is the value.
std::string_view WordBehind(std::string_view line, std::string_view key, const LineSplitter& lines)
{
    const auto at = line.find(key);
    if (at == std::string_view::npos)
    {
        lines.Refuse("\"" + std::string(key) + "\" is missing");
    }
    std::string_view rest = line.substr(at + key.size());
    return TakeWord(rest);
}

std::string WholeFile(const std::string& fileName)
{
    std::ifstream file(fileName, std::ios::binary);
    if (!file)
    {
        throw std::system_error(errno, std::generic_category(), fileName);
    }
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.empty() || text.back() != '\n')
    {
        text += '\n';
    }
    return text;
}

// A mesh file is a head of comments with the counts, then three sections, each opened by its own comment.
class MeshReader
{
public:
    explicit MeshReader(const std::string& fileName) : m_Lines(fileName)
    {
        m_Lines.Feed(WholeFile(fileName));
    }

    Mesh Read()
    {
        std::string_view line;
        while (m_Lines.Next(line))
        {
            if (line.starts_with('C'))
            {
                TakeComment(line);
            }
            else if (!Trimmed(line).empty())
            {
                TakeRecord(line);
            }
        }
        ExpectCount("nodes", m_NodeCount, m_Mesh.nodes.size());
        ExpectCount("elements", m_ElementCount, m_Mesh.elements.size());
        ExpectCount("boundary elements", m_FaceCount, m_Mesh.faces.size());
        return std::move(m_Mesh);
    }

private:
    enum class Section
    {
        none,
        nodes,
        elements,
        faces
    };

    void TakeComment(std::string_view line)
    {
        const auto equals = line.find('=');
        if (equals == std::string_view::npos)
        {
            return;
        }
        const std::string_view key = Trimmed(line.substr(1, equals - 1));
        const std::string_view value = Trimmed(line.substr(equals + 1));
        if (key == "$ RUBRIQUE")
        {
            m_Section = SectionNamed(value);
        }
        else if (key == "DIMENSION" && NumberFrom<int>(value, m_Lines) != 3)
        {
            m_Lines.Refuse("the mesh is not three-dimensional");
        }
        else if (key == "NOMBRE DE NOEUDS PAR ELEMENT" && NumberFrom<int>(value, m_Lines) != 4)
        {
            m_Lines.Refuse("the elements are not tetrahedra with 4 nodes");
        }
        else if (key == "NOMBRE DE NOEUDS")
        {
            m_NodeCount = NumberFrom<int>(value, m_Lines);
        }
        else if (key == "NOMBRE D'ELEMENTS")
        {
            m_ElementCount = NumberFrom<int>(value, m_Lines);
        }
        else if (key == "NOMBRE D'ELEMENTS DE BORD")
        {
            m_FaceCount = NumberFrom<int>(value, m_Lines);
        }
    }

    Section SectionNamed(std::string_view name) const
    {
        if (name == "NOEUDS")
        {
            return Section::nodes;
        }
        if (name == "ELEMENTS")
        {
            return Section::elements;
        }
        if (name == "ELEMENTS DE BORD")
        {
            return Section::faces;
        }
        m_Lines.Refuse("unknown section \"" + Utf8FromLatin1(name) + "\"");
    }

    void TakeRecord(std::string_view line)
    {
        const int number = TakeNumber<int>(line, m_Lines);
        const int reference = TakeNumber<int>(line, m_Lines);
        switch (m_Section)
        {
        case Section::none: m_Lines.Refuse("a record before the first section");
        case Section::nodes:
            ExpectNumber(number, m_Mesh.nodes.size());
            m_Mesh.nodes.push_back(TakeNode(line, reference));
            break;
        case Section::elements:
            ExpectNumber(number, m_Mesh.elements.size());
            m_Mesh.elements.push_back({TakeCorners<4>(line), reference});
            break;
        case Section::faces:
            ExpectNumber(number, m_Mesh.faces.size());
            m_Mesh.faces.push_back({TakeCorners<3>(line), reference});
            break;
        }
        ExpectEndOfLine(line, m_Lines);
    }

    Node TakeNode(std::string_view& line, int reference)
    {
        Node node;
        node.x = TakeNumber<double>(line, m_Lines);
        node.y = TakeNumber<double>(line, m_Lines);
        node.z = TakeNumber<double>(line, m_Lines);
        node.reference = reference;
        return node;
    }

    template <std::size_t N> std::array<int, N> TakeCorners(std::string_view& line)
    {
        std::array<int, N> corners{};
        for (int& corner : corners)
        {
            corner = TakeNumber<int>(line, m_Lines);
            if (corner < 1 || static_cast<std::size_t>(corner) > m_Mesh.nodes.size())
            {
                m_Lines.Refuse("there is no node " + std::to_string(corner));
            }
        }
        return corners;
    }

    void ExpectNumber(int number, std::size_t takenCount) const
    {
        if (number < 1 || static_cast<std::size_t>(number) != takenCount + 1)
        {
            m_Lines.Refuse("expected number " + std::to_string(takenCount + 1) + ", found " +
                           std::to_string(number));
        }
    }

    void ExpectCount(const char* what, int promised, std::size_t found) const
    {
        if (promised < 1 || static_cast<std::size_t>(promised) != found)
        {
            m_Lines.Refuse("the file's head promises " + std::to_string(promised) + " " + what +
                           ", it holds " + std::to_string(found));
        }
    }

    LineSplitter m_Lines;
    Section m_Section = Section::none;
    int m_NodeCount = 0;
    int m_ElementCount = 0;
    int m_FaceCount = 0;
    Mesh m_Mesh;
};

} // namespace

FileError::FileError(const std::string& file, std::size_t line, const std::string& what)
    : std::runtime_error(file + ", line " + std::to_string(line) + ": " + what)
{
}

std::string Utf8FromLatin1(std::string_view latin1)
{
    std::string utf8;
    utf8.reserve(latin1.size());
    for (const char letter : latin1)
    {
        const auto code = static_cast<unsigned char>(letter);
        if (code < 0x80)
        {
            utf8 += letter;
        }
        else
        {
            utf8 += static_cast<char>(0xC0 | (code >> 6));
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return utf8;
}

void LineSplitter::Feed(std::string_view bytes)
{
    m_Pending.erase(0, m_Taken);
    m_Taken = 0;
    m_Pending += bytes;
}

bool LineSplitter::Next(std::string_view& line)
{
    const auto end = m_Pending.find('\n', m_Taken);
    if (end == std::string::npos)
    {
        if (m_Pending.size() - m_Taken > kLongestLine)
        {
            ++m_Line;
            Refuse("a line without end: this is no text file of the solver");
        }
        return false;
    }
    line = std::string_view(m_Pending).substr(m_Taken, end - m_Taken);
    m_Taken = end + 1;
    ++m_Line;
    return true;
}

void LineSplitter::Refuse(const std::string& what) const { throw FileError(m_FileName, m_Line, what); }

Case ReadCase(const std::string& fileName)
{
    LineSplitter lines(fileName);
    lines.Feed(WholeFile(fileName));
    Case result;
    std::string_view line;
    while (lines.Next(line))
    {
        const auto equals = line.find('=');
        if (line.starts_with('/') || equals == std::string_view::npos)
        {
            continue;
        }
        const std::string_view key = Trimmed(line.substr(0, equals));
        const std::string_view value = Trimmed(line.substr(equals + 1));
        if (key == "TITRE ETUDE")
        {
            result.title = Utf8FromLatin1(value);
        }
        else if (key == "MAILLAGE CONDUCTION")
        {
            result.meshFile = std::string(value);
        }
        else if (key == "PREFIXE DES FICHIERS RESULTATS")
        {
            result.resultPrefix = std::string(value);
        }
        else if (key == "NOMBRE DE PAS DE TEMPS SOLIDES")
        {
            result.stepCount = NumberFrom<int>(value, lines);
        }
        else if (key == "PAS DE TEMPS SOLIDE")
        {
            result.stepSize = NumberFrom<double>(value, lines);
        }
        else if (key == "PAS DES SORTIES CHRONO SOLIDE ITERATIONS")
        {
            result.outputPeriod = NumberFrom<int>(value, lines);
        }
    }
    if (result.meshFile.empty() || result.resultPrefix.empty())
    {
        lines.Refuse("the case names no mesh or no prefix for its results");
    }
    if (result.stepCount < 1 || result.outputPeriod < 1)
    {
        lines.Refuse("the case gives no number of steps, or no period for its output");
    }
    return result;
}

Mesh ReadMesh(const std::string& fileName) { return MeshReader(fileName).Read(); }

std::vector<Group> ReadGroups(const std::string& fileName)
{
    LineSplitter lines(fileName);
    lines.Feed(WholeFile(fileName));
    std::vector<Group> groups;
    std::string_view line;
    while (lines.Next(line))
    {
        const std::string_view kind = TakeWord(line);
        if (kind.empty())
        {
            continue;
        }
        if (kind != "group_of_faces" && kind != "group_of_volumes")
        {
            lines.Refuse("unknown kind of group \"" + Utf8FromLatin1(kind) + "\"");
        }
        Group group;
        group.kind = kind == "group_of_faces" ? GroupKind::faces : GroupKind::volumes;
        group.reference = TakeNumber<int>(line, lines);
        group.name = Utf8FromLatin1(Trimmed(line));
        if (group.name.empty())
        {
            lines.Refuse("a group without a name");
        }
        groups.push_back(std::move(group));
    }
    return groups;
}

bool ResultReader::Next(Field& field)
{
    std::string_view line;
    while (m_Lines.Next(line))
    {
        if (!m_InValues)
        {
            TakeHeaderLine(line);
            continue;
        }
        TakeValues(line);
        if (m_Field.values.size() == static_cast<std::size_t>(m_ValueCount))
        {
            m_InValues = false;
            ++m_BlockCount;
            field = m_Field;
            return true;
        }
    }
    return false;
}

void ResultReader::TakeHeaderLine(std::string_view line)
{
    if (!line.starts_with("***"))
    {
        m_Lines.Refuse("expected the head of block " + std::to_string(m_BlockCount + 1) + ", found \"" +
                       Utf8FromLatin1(line.substr(0, 40)) + "\"");
    }
    m_InHeader = true;
    if (line.starts_with("***NTSYR="))
    {
        TakeStep(line);
    }
    else if (line.starts_with("***VAR="))
    {
        TakeVariable(line);
    }
}

void ResultReader::TakeStep(std::string_view line)
{
    m_Field.step = NumberFrom<int>(WordBehind(line, "NTSYR=", m_Lines), m_Lines);
    m_Field.time = NumberFrom<double>(WordBehind(line, "TEMPS=", m_Lines), m_Lines);
    m_Field.stepSize = NumberFrom<double>(WordBehind(line, "DT=", m_Lines), m_Lines);
    m_HasStep = true;
}

void ResultReader::TakeVariable(std::string_view line)
{
    if (!m_HasStep)
    {
        m_Lines.Refuse("a variable before the first step");
    }
    const int count = NumberFrom<int>(WordBehind(line, "NB=", m_Lines), m_Lines);
    if (count != m_ValueCount)
    {
        m_Lines.Refuse("the block announces " + std::to_string(count) + " values, the mesh has " +
                       std::to_string(m_ValueCount) + " nodes");
    }
    m_Field.variable = Utf8FromLatin1(WordBehind(line, "VAR=", m_Lines));
    m_Field.values.clear();
    m_Field.values.reserve(static_cast<std::size_t>(m_ValueCount));
    m_InHeader = false;
    m_InValues = true;
}

void ResultReader::TakeValues(std::string_view line)
{
    for (std::string_view word = TakeWord(line); !word.empty(); word = TakeWord(line))
    {
        if (m_Field.values.size() == static_cast<std::size_t>(m_ValueCount))
        {
            m_Lines.Refuse("block " + std::to_string(m_BlockCount + 1) + " holds more than " +
                           std::to_string(m_ValueCount) + " values");
        }
        m_Field.values.push_back(NumberFrom<double>(word, m_Lines));
    }
}

bool ProbeReader::Next(ProbeSample& sample)
{
    std::string_view line;
    while (m_Lines.Next(line))
    {
        if (line.starts_with('#') || Trimmed(line).empty())
        {
            continue;
        }
        ProbeSample next;
        next.time = TakeNumber<double>(line, m_Lines);
        next.temperature = TakeNumber<double>(line, m_Lines);
        next.x = TakeNumber<double>(line, m_Lines);
        next.y = TakeNumber<double>(line, m_Lines);
        next.z = TakeNumber<double>(line, m_Lines);
        // Behind the place stand the numbers of node, reference and element: not recorded, but checked, since
        // a line that lacks them was put together from two writes of different runs.
        for (int column = 0; column < 3; ++column)
        {
            TakeNumber<int>(line, m_Lines);
        }
        ExpectEndOfLine(line, m_Lines);
        sample = next;
        return true;
    }
    return false;
}

GrowingFile::~GrowingFile()
{
    if (m_Descriptor >= 0)
    {
        ::close(m_Descriptor);
    }
}

std::string GrowingFile::ReadNews()
{
    if (m_Descriptor < 0 && !Open())
    {
        return {};
    }
    std::string news(SizeOfNews(), '\0');
    const ssize_t count = ::pread(m_Descriptor, news.data(), news.size(), m_Offset);
    if (count < 0)
    {
        throw std::system_error(errno, std::generic_category(), m_FileName);
    }
    news.resize(static_cast<std::size_t>(count));
    m_Offset += count;
    return news;
}

bool GrowingFile::Open()
{
    m_Descriptor = ::open(m_FileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_Descriptor < 0 && errno != ENOENT)
    {
        throw std::system_error(errno, std::generic_category(), m_FileName);
    }
    return m_Descriptor >= 0;
}

std::size_t GrowingFile::SizeOfNews() const
{
    struct stat state
    {
    };
    if (::fstat(m_Descriptor, &state) != 0)
    {
        throw std::system_error(errno, std::generic_category(), m_FileName);
    }
    if (state.st_size < m_Offset)
    {
        throw std::runtime_error(m_FileName + ": the file got shorter, the solver has started over");
    }
    return std::min(static_cast<std::size_t>(state.st_size - m_Offset), kLargestPiece);
}

} // namespace solver
