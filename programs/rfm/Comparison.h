#pragma once

#include "DatabaseFile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What differs between two databases, as two runs of one analysis are compared: layouts by name, objects in pairs, the rows of
// a pair by number or by key, values with a tolerance.
//
// Pairs. An object has a sort: what it is, the layout of a table, the elements of an array. The objects of one file may be
// found in the other in two ways:
//
//   by handle   an object has its pair under its own handle, when that has the same sort
//   by order    the first of a sort has its pair in the first of that sort, the second in the second ...
//
// Handles are right for files of which one came from the other, or grew on; they shift when two runs let their objects grow in
// other turns, and then the order of making is what stays. So by handle when each object of the one file or of the other
// has its pair that way, otherwise by order, unless the user says which.

namespace rfm_tool
{
enum class Pairing
{
    Guessed,
    ByHandle,
    ByOrder,
};

struct ComparisonOptions
{
    std::vector<std::string> key;    // fields by whose values rows are found; none: row numbers
    std::vector<std::string> ignore; // names or globs of fields
    double relative = 0;             // of the larger of two numbers
    double absolute = 0;
    Pairing pairing = Pairing::Guessed;
};

/// A value that one side has at a place; or that it has none, of a row or a field that is absent there.
struct SideValue
{
    std::string text; // as a person reads it: a text in quotes, "no data"
    std::string json;
};

/// One difference within a pair of objects.
struct Difference
{
    std::string place; // "row 3, x"; "rows 3 to 9"; "item 2"; "bytes 0 to 3"
    SideValue a;
    SideValue b;
    std::optional<double> distance; // of two numbers
};

/// What became of one pair.
struct ObjectSummary
{
    Object a;
    Object b;
    std::int64_t differences = 0;
    std::optional<Difference> worst; // the numbers that are farthest apart
};

/// Hears of differences as they are found, in this order: Only, Layout, then for each pair Value ... Pair.
class ComparisonListener
{
public:
    ComparisonListener() = default;
    virtual ~ComparisonListener() = default;
    ComparisonListener(const ComparisonListener&) = delete;
    ComparisonListener& operator=(const ComparisonListener&) = delete;

    /// `isInA`: only there, otherwise only in B.
    virtual void Only(const Object& object, bool isInA) = 0;
    virtual void Layout(const std::string& layout, const std::string& what) = 0;
    virtual void BeginPair(const Object& a, const Object& b) = 0;
    virtual void Value(const ObjectSummary& pair, const Difference& difference) = 0;
    virtual void EndPair(const ObjectSummary& pair) = 0;
    /// Whether nobody wants to hear more.
    virtual bool IsGone() const = 0;
};

/// Compares. Memory: a few blocks of each file, and with a key some 60 bytes for each row of a table of B.
/// Throws: Failure when something can't be read, or no layout has a field of the key or of those to ignore.
void CompareDatabases(DatabaseFile& a, DatabaseFile& b, const ComparisonOptions& options,
                      ComparisonListener& listener);

/// "table NODES", "double array of 2", "stream": an object without its handle.
std::string SortText(const Object& object);
} // namespace rfm_tool
