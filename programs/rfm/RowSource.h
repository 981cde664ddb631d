#pragma once

#include "DatabaseFile.h"
#include "Expression.h"
#include "Listing.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rfm_tool
{
/// The rows of one object, whatever its kind: those of a table, of an array, the items of a stream, the texts of the
/// pool of strings, the fields of all layouts, the bytes of a space. It stands in front of row 0 first.
///
///               Next, while there are rows               Next at the end
///   (in front) --------------------------> (on a row) --------------------> (at the end)
///       ^                                      |                                 |
///       +----------------- Seek ---------------+---------------------------------+
///
/// Must go before its database does. What a damaged row makes the library throw comes through.
class RowSource : public ExpressionRow
{
public:
    RowSource() = default;
    RowSource(const RowSource&) = delete;
    RowSource& operator=(const RowSource&) = delete;

    /// What ValueOf answers, by index: of tables and arrays their fields, as FieldsOf gives them.
    const std::vector<Column>& Columns() const noexcept { return m_Columns; }
    /// The name of what tells rows apart: "row", or "offset" where that is the way to refer to them.
    virtual const char* NumberName() const { return "row"; }
    /// How many rows there are, where this is known without reading them.
    virtual std::optional<std::int64_t> Length() const { return {}; }
    /// Goes in front of a row; the next one is that, or the end. Rows without a known length are walked from the start.
    virtual void Seek(std::int64_t row) = 0;
    virtual bool Next() = 0;
    /// The place of the current row, from 0: also of one that `Next` could not read.
    std::int64_t Row() const noexcept { return m_Row; }
    /// The current row's number: its place, or its offset. `ValueOf` gives its values: a text lives until the next row,
    /// or the next question for the same field.
    std::int64_t Number() const override { return m_Row; }

protected:
    std::vector<Column> m_Columns;
    std::int64_t m_Row = -1;
};

std::unique_ptr<RowSource> OpenRows(DatabaseFile& file, const Object& object);
/// The names that an expression over these rows may use. The one element of an array's rows is `value`, too.
std::vector<ExpressionField> ExpressionFieldsOf(const RowSource& rows);
} // namespace rfm_tool
