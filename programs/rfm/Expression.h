#pragma once

#include "Value.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// What --where and --until ask of a row. The first lines of the grammar bind loosest.
//
//   expression   all { "or" all }
//   all          each { "and" each }
//   each         { "not" } comparison
//   comparison   sum [ ("==" | "=" | "!=" | "<" | "<=" | ">" | ">=" | "~") sum ]
//   sum          product { ("+" | "-") product }
//   product      factor { ("*" | "/" | "%") factor }
//   factor       "-" factor | NUMBER | TEXT | NAME | "row" | "present" "(" NAME ")" | "(" expression ")"
//
// A NAME is a field's: letters, digits, `_`, `.` and what is beyond ASCII, not beginning with a digit; any other name, that
// of an array's element or one of the words above stands in brackets: [0], [my field], [row]. A TEXT stands between ' or
// ", with \t \n \r \xNN and a \ before any character for itself. `row` is the number of the row, from 0. `~` asks whether
// a text fits a glob.
//
// An absent value makes a sum absent, and every comparison with it false, != too; present(NAME) tells. Texts are compared
// byte by byte. Numbers are compared as doubles, but a float with a number as written is compared as a float, so that what
// is shown as 0.1 is found by 0.1. Division by zero gives an infinity or no number, as in arithmetic of doubles.

namespace rfm_tool
{
/// What an expression is asked of.
class ExpressionRow
{
public:
    virtual ~ExpressionRow() = default;
    /// The row's number.
    virtual std::int64_t Number() const = 0;
    /// The value of a field. Its text has to live as long as the question.
    virtual Value ValueOf(int field) const = 0;
};

/// A name that an expression may use.
struct ExpressionField
{
    std::string name;
    enum class Type
    {
        Number,
        Text,
        Any, // known only with the value: the items of a stream
    } type = Type::Number;
    int index = -1; // what ExpressionRow::ValueOf is asked for; below 0 its place in the list
};

/// A question, parsed once and asked of many rows; asking allocates nothing.
class Expression
{
public:
    /// `option` is the word that failures name, such as "--where".
    /// Throws: Failure with ExitUsage, with the place in the text, for one that can't be understood or compares a text with a
    /// number; with ExitMissing for an unknown name.
    Expression(std::string_view option, std::string_view text, const std::vector<ExpressionField>& fields);

    bool Holds(const ExpressionRow& row) const { return IsTrue(m_Root, row); }

private:
    friend class ExpressionParser;
    enum class Operation
    {
        Or,
        And,
        Not,
        Present,
        Equal,
        NotEqual,
        Less,
        LessOrEqual,
        Greater,
        GreaterOrEqual,
        Fits,
        Add,
        Subtract,
        Multiply,
        Divide,
        Remainder,
        Negate,
        Number,
        Text,
        Field,
        RowNumber,
    };
    struct Node
    {
        Operation operation;
        int left = -1; // another node; of a Field and of Present its index
        int right = -1;
        double number = 0;
        std::string text;
    };

    bool IsTrue(int node, const ExpressionRow& row) const;
    bool Compares(const Node& node, const ExpressionRow& row) const;
    Value RoundedAs(const Value& other, int node, const Value& value) const;
    Value ValueOf(int node, const ExpressionRow& row) const;
    Value Calculated(const Node& node, const ExpressionRow& row) const;

    std::vector<Node> m_Nodes; // children before their parents
    int m_Root = -1;
};
} // namespace rfm_tool
