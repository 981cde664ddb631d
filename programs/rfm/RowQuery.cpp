#include "RowQuery.h"

#include "Failure.h"
#include "Options.h"
#include "RemoteDoor.h"
#include "Text.h"

#include <fmt/format.h>

#include <numeric>

namespace rfm_tool
{
void RowQuery::Declare(Options& options)
{
    options.Add("OBJECT", object, "a handle, the name of a table, or TABLE.FIELD; with * ? [a-z]").Required();
    options.Add("--where", where, "only rows for which this holds: 'x > 0 and name ~ \"a*\"'")
        .ValueName("EXPR");
    options.Add("--fields", fields, "only these fields, in this order").ValueName("A,B");
}

QueriedRows::QueriedRows(DatabaseFile& file, const RowQuery& query)
    : QueriedRows(file, SelectOne(file, query.object), query)
{
}

QueriedRows::QueriedRows(DatabaseFile& file, Selected selected, const RowQuery& query)
    : m_Selected(std::move(selected)),
      m_Source(OpenRows(file, m_Selected.object))
{
    if (!query.fields.empty() && m_Selected.fields)
        throw Failure(ExitUsage, OneLine(query.object), "names fields, and --fields too", "give one of them");
    if (!query.fields.empty())
        m_Fields = SelectFields(file, m_Selected.object, query.fields);
    else if (m_Selected.fields)
        m_Fields = *m_Selected.fields;
    else
    {
        m_Fields.resize(m_Source->Columns().size());
        std::iota(m_Fields.begin(), m_Fields.end(), 0);
    }
    m_Values.resize(m_Fields.size() + 1);
    if (!query.where.empty()) m_Where.emplace("--where", query.where, ExpressionFieldsOf(*m_Source));
}

std::vector<Column> QueriedRows::Columns() const
{
    std::vector<Column> columns{{m_Source->NumberName(), "int", true}};
    for (const int field : m_Fields) columns.push_back(m_Source->Columns()[static_cast<std::size_t>(field)]);
    return columns;
}

bool QueriedRows::Next()
{
    while (m_Source->Next())
        if (!m_Where || m_Where->Holds(*m_Source)) return true;
    return false;
}

const std::vector<Value>& QueriedRows::Values()
{
    m_Values.front() = Value::OfInt(m_Source->Number());
    for (std::size_t i = 0; i < m_Fields.size(); ++i) m_Values[i + 1] = m_Source->ValueOf(m_Fields[i]);
    return m_Values;
}

// The row that can't be read is the current one; without any, the object could not even be opened.
void ReadRows(const DatabaseFile& file, QueriedRows& rows, const std::function<void()>& step)
{
    try
    {
        step();
    }
    catch (const nex_Exception& cause)
    {
        ThrowIfRemote(file.Path(), cause);
        throw Failure(ExitUnreadable,
                      fmt::format("{}: handle {}, row {}", OneLine(file.Path()), rows.Object().handle.Value(),
                                  std::max<std::int64_t>(rows.Source().Row(), 0)),
                      PlainMessage(cause.what()), "`rfm check` tells what is damaged");
    }
}
} // namespace rfm_tool
