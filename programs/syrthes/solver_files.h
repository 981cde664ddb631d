// What the demo's programs read of the solver's files: the case, the mesh, the names of its groups, and the
// two text files that grow while the solver runs.
//
// The growing files are fed in whatever pieces arrive. A piece may end anywhere, in the middle of a number
// too, so the readers take whole lines only and hand out whole blocks only: what is not complete waits for
// the next piece. Text in these files is Latin-1; what leaves here is UTF-8.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace solver
{

/// A file of the solver does not hold what it should. The text names the file, the line and what was found
/// there.
class FileError : public std::runtime_error
{
public:
    FileError(const std::string& file, std::size_t line, const std::string& what);
};

/// The settings of a run that its records depend on.
struct Case
{
    std::string title;
    std::string meshFile; ///< as written in the case: relative to the case's folder
    std::string resultPrefix;
    int stepCount = 0;
    double stepSize = 0;  ///< seconds
    int outputPeriod = 0; ///< steps between two blocks of results

    int IncrementCount() const { return stepCount / outputPeriod; }
};

struct Node
{
    double x = 0;
    double y = 0;
    double z = 0;
    int reference = 0; ///< 0: none
};

/// A tetrahedron; node numbers count from 1, as in the mesh file.
struct Element
{
    std::array<int, 4> nodes{};
    int reference = 0;
};

/// A triangle of the surface; node numbers count from 1.
struct Face
{
    std::array<int, 3> nodes{};
    int reference = 0;
};

struct Mesh
{
    std::vector<Node> nodes;
    std::vector<Element> elements;
    std::vector<Face> faces;
};

enum class GroupKind
{
    faces,
    volumes
};

/// The name that a reference number has in the mesh.
struct Group
{
    GroupKind kind = GroupKind::faces;
    int reference = 0;
    std::string name;
};

/// One variable at one output step.
struct Field
{
    int step = 0;
    double time = 0;     ///< seconds
    double stepSize = 0; ///< seconds
    std::string variable;
    std::vector<double> values; ///< one for each node
};

/// One probe at one step.
struct ProbeSample
{
    double time = 0;
    double temperature = 0;
    double x = 0;
    double y = 0;
    double z = 0;
};

std::string Utf8FromLatin1(std::string_view latin1);

Case ReadCase(const std::string& fileName);
Mesh ReadMesh(const std::string& fileName);
std::vector<Group> ReadGroups(const std::string& fileName);

/// Cuts what arrives into whole lines and counts them.
class LineSplitter
{
public:
    explicit LineSplitter(std::string fileName) : m_FileName(std::move(fileName)) {}

    void Feed(std::string_view bytes);

    /// Takes the next whole line, without its end. False: the rest has not arrived yet. The line stays valid
    /// until the next call here.
    bool Next(std::string_view& line);

    /// True when every byte fed so far belonged to a line that was taken.
    bool IsEmpty() const { return m_Taken == m_Pending.size(); }

    /// Throws FileError for the line taken last.
    [[noreturn]] void Refuse(const std::string& what) const;

private:
    std::string m_FileName;
    std::string m_Pending;
    std::size_t m_Taken = 0; // bytes at the front of m_Pending that were handed out
    std::size_t m_Line = 0;
};

/// Reads the file of results while it grows.
class ResultReader
{
public:
    /// `valueCount` is what every block must hold: the number of nodes.
    ResultReader(const std::string& fileName, int valueCount) : m_Lines(fileName), m_ValueCount(valueCount) {}

    void Feed(std::string_view bytes) { m_Lines.Feed(bytes); }

    /// Takes the next complete block. False: none is complete, `field` is as it was.
    bool Next(Field& field);

    /// True when the bytes fed so far end where a block ends.
    bool IsBetweenBlocks() const { return !m_InHeader && !m_InValues && m_Lines.IsEmpty(); }

private:
    void TakeHeaderLine(std::string_view line);
    void TakeStep(std::string_view line);
    void TakeVariable(std::string_view line);
    void TakeValues(std::string_view line);

    LineSplitter m_Lines;
    std::size_t m_BlockCount = 0;
    int m_ValueCount;
    bool m_HasStep = false;
    bool m_InHeader = false;
    bool m_InValues = false;
    Field m_Field;
};

/// Reads the file of probe histories while it grows.
class ProbeReader
{
public:
    explicit ProbeReader(const std::string& fileName) : m_Lines(fileName) {}

    void Feed(std::string_view bytes) { m_Lines.Feed(bytes); }

    /// Takes the next complete sample. False: none is complete.
    bool Next(ProbeSample& sample);

    bool IsBetweenSamples() const { return m_Lines.IsEmpty(); }

private:
    LineSplitter m_Lines;
};

/// A file that another process makes and appends to.
class GrowingFile
{
public:
    explicit GrowingFile(std::string fileName) : m_FileName(std::move(fileName)) {}
    ~GrowingFile();
    GrowingFile(const GrowingFile&) = delete;
    GrowingFile& operator=(const GrowingFile&) = delete;

    /// What was appended since the last call, at most some MiB of it; empty while there is nothing new or no
    /// file yet.
    std::string ReadNews();

private:
    bool Open();
    std::size_t SizeOfNews() const;

    std::string m_FileName;
    int m_Descriptor = -1;
    std::int64_t m_Offset = 0;
};

} // namespace solver
