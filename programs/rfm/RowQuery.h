#pragma once

#include "RowSource.h"
#include "Selection.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rfm_tool
{
class Options;

/// What a command line says of the rows that it wants.
struct RowQuery
{
    std::string object; // a word as Selection.h has it, for one object
    std::string where;  // empty: all
    std::string fields; // empty: those that `object` names, or all

    /// The argument OBJECT and the options --where and --fields.
    void Declare(Options& options);
};

/// The rows that a query chooses, as they come.
class QueriedRows
{
public:
    /// Throws: Failure for an object, fields or an expression that can't be found or understood.
    QueriedRows(DatabaseFile& file, const RowQuery& query);
    /// The same of an object that was chosen already; the query's own word for one is left aside.
    QueriedRows(DatabaseFile& file, Selected selected, const RowQuery& query);

    const rfm_tool::Object& Object() const noexcept { return m_Selected.object; }
    RowSource& Source() noexcept { return *m_Source; }
    /// Whether every row is wanted, so that their number is that of the source.
    bool IsWhole() const noexcept { return !m_Where; }
    /// Columns of the source that are wanted, by index.
    const std::vector<int>& Fields() const noexcept { return m_Fields; }
    /// The number of the row, and the wanted columns behind it.
    std::vector<Column> Columns() const;
    void Seek(std::int64_t row) { m_Source->Seek(row); }
    /// Goes to the next row that is wanted; false at the end.
    bool Next();
    /// What `Columns` says of the current row; as RowSource::ValueOf, the texts live until the next row.
    const std::vector<Value>& Values();

private:
    Selected m_Selected;
    std::unique_ptr<RowSource> m_Source;
    std::vector<int> m_Fields;
    std::optional<Expression> m_Where;
    std::vector<Value> m_Values;
};

/// Runs a step over rows; what the library throws on the way becomes a failure that names the row.
/// Throws: Failure with ExitUnreadable.
void ReadRows(const DatabaseFile& file, QueriedRows& rows, const std::function<void()>& step);
} // namespace rfm_tool
