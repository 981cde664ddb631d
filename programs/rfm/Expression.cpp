#include "Expression.h"

#include "Failure.h"
#include "Glob.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <compare>
#include <limits>
#include <optional>

namespace rfm_tool
{
namespace
{
// Larger ones have no use, and would be the end of the stack: both parsing and asking go as deep as the tree.
constexpr int kDeepest = 200;
constexpr std::size_t kMostNodes = 1000;

bool IsDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool StartsName(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' ||
           static_cast<unsigned char>(byte) >= 0x80;
}
bool ContinuesName(char byte) { return StartsName(byte) || IsDigit(byte) || byte == '.'; }

std::optional<int> HexDigit(char byte)
{
    if (IsDigit(byte)) return byte - '0';
    if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
    return {};
}

bool HoldsFor(std::partial_ordering order, bool less, bool equal, bool greater)
{
    if (order == std::partial_ordering::less) return less;
    if (order == std::partial_ordering::greater) return greater;
    return order == std::partial_ordering::equivalent && equal;
}
} // namespace

// ---- Parsing ----

/// Goes through the text once, from left to right; each step of the grammar is a function, and gives the node that it made.
class ExpressionParser
{
public:
    ExpressionParser(std::string_view option, std::string_view text,
                     const std::vector<ExpressionField>& fields, Expression& target)
        : m_Option(option),
          m_Text(text),
          m_Fields(fields),
          m_Nodes(target.m_Nodes)
    {
    }

    int Parse()
    {
        TakeToken();
        const Part whole = ParseOr();
        if (m_Token.kind != Token::Kind::End) ThrowAt(m_Token.place, "expected and, or, or the end");
        return Truth(whole);
    }

private:
    using Operation = Expression::Operation;
    enum class Type
    {
        Truth,
        Number,
        Text,
        Any,
    };
    struct Part
    {
        int node;
        Type type;
        std::size_t place; // in the text
    };
    struct Token
    {
        enum class Kind
        {
            Name,    // a field or a word of the grammar
            Bracket, // a field
            Number,
            Text,
            Sign,
            End,
        } kind = Kind::End;
        std::size_t place = 0;
        std::string text;
        double number = 0;
    };

    void TakeToken();
    void TakeName();
    void TakeBracket();
    void TakeNumber();
    void TakeText();
    void TakeEscape();
    void TakeSign();
    bool TakeIf(Token::Kind kind, std::string_view text);
    bool TakeSignIf(std::string_view sign) { return TakeIf(Token::Kind::Sign, sign); }
    bool TakeWordIf(std::string_view word) { return TakeIf(Token::Kind::Name, word); }
    void RequireSign(std::string_view sign);

    Part ParseOr();
    Part ParseAnd();
    Part ParseNot();
    Part ParseComparison();
    Part ParseSum();
    Part ParseProduct();
    Part ParseFactor();
    Part ParsePresent(std::size_t place);
    Part ParseParentheses(std::size_t place);
    const ExpressionField& TakeField();
    int IndexOf(const ExpressionField& field) const
    {
        return field.index >= 0 ? field.index : static_cast<int>(&field - m_Fields.data());
    }

    int Add(Operation operation, int left = -1, int right = -1);
    Part Calculation(Operation operation, const Part& left, const Part& right);
    Part Comparison(Operation operation, const Part& left, const Part& right);
    void RequireComparable(Operation operation, const Part& left, const Part& right) const;
    int Truth(const Part& part) const;
    void RequireNumber(const Part& part) const;
    [[noreturn]] void ThrowAt(std::size_t place, const std::string& why,
                              const std::string& remedy = "docs/cli.md tells what can be asked") const;
    [[noreturn]] void ThrowUnknownField(std::size_t place, std::string_view name) const;

    std::string_view m_Option;
    std::string_view m_Text;
    const std::vector<ExpressionField>& m_Fields;
    std::vector<Expression::Node>& m_Nodes;
    std::size_t m_Next = 0; // in the text, behind the token
    Token m_Token;
    int m_Depth = 0;
};

void ExpressionParser::ThrowAt(std::size_t place, const std::string& why, const std::string& remedy) const
{
    const std::string_view rest = m_Text.substr(std::min(place, m_Text.size()));
    const std::string where =
        rest.empty() ? "at its end" : fmt::format("at {}, before {}", place + 1, OneLine(rest));
    throw Failure(ExitUsage, fmt::format("{} '{}'", m_Option, OneLine(m_Text)), where + ": " + why, remedy);
}

void ExpressionParser::ThrowUnknownField(std::size_t place, std::string_view name) const
{
    std::vector<std::string_view> names;
    for (const ExpressionField& field : m_Fields) names.push_back(field.name);
    const std::string_view near = NearestName(name, names);
    std::string remedy = fmt::format("did you mean {}?", OneLine(near));
    if (near.empty())
    {
        remedy = "row";
        for (const std::string_view each : names)
        {
            if (remedy.size() > 60) break;
            remedy += ", " + OneLine(each);
        }
        remedy = "there are " + remedy + (remedy.size() > 60 ? ", ..." : "");
    }
    throw Failure(ExitMissing, fmt::format("{} '{}'", m_Option, OneLine(m_Text)),
                  fmt::format("at {}: there is no field {}", place + 1, OneLine(name)), remedy);
}

void ExpressionParser::TakeToken()
{
    while (m_Next < m_Text.size() &&
           (m_Text[m_Next] == ' ' || m_Text[m_Next] == '\t' || m_Text[m_Next] == '\n'))
        ++m_Next;
    m_Token = Token{};
    m_Token.place = m_Next;
    if (m_Next == m_Text.size()) return;
    const char first = m_Text[m_Next];
    const bool isPoint = first == '.' && m_Next + 1 < m_Text.size() && IsDigit(m_Text[m_Next + 1]);
    if (StartsName(first))
        TakeName();
    else if (IsDigit(first) || isPoint)
        TakeNumber();
    else if (first == '\'' || first == '"')
        TakeText();
    else if (first == '[')
        TakeBracket();
    else
        TakeSign();
}

void ExpressionParser::TakeName()
{
    m_Token.kind = Token::Kind::Name;
    while (m_Next < m_Text.size() && ContinuesName(m_Text[m_Next])) m_Token.text += m_Text[m_Next++];
}

void ExpressionParser::TakeBracket()
{
    m_Token.kind = Token::Kind::Bracket;
    const std::size_t end = m_Text.find(']', m_Next);
    if (end == std::string_view::npos) ThrowAt(m_Next, "expected ] behind the name of a field");
    m_Token.text = m_Text.substr(m_Next + 1, end - m_Next - 1);
    m_Next = end + 1;
}

void ExpressionParser::TakeNumber()
{
    m_Token.kind = Token::Kind::Number;
    const char* begin = m_Text.data() + m_Next;
    const std::from_chars_result end = std::from_chars(begin, m_Text.data() + m_Text.size(), m_Token.number);
    if (end.ec != std::errc()) ThrowAt(m_Next, "the number is too large or too small");
    m_Next += static_cast<std::size_t>(end.ptr - begin);
    if (m_Next < m_Text.size() && ContinuesName(m_Text[m_Next]))
        ThrowAt(m_Token.place, "that is no number, and names that begin with a digit stand in [ ]");
}

void ExpressionParser::TakeText()
{
    m_Token.kind = Token::Kind::Text;
    const char quote = m_Text[m_Next++];
    for (;; ++m_Next)
    {
        if (m_Next >= m_Text.size()) ThrowAt(m_Token.place, "the text is not closed");
        if (m_Text[m_Next] == quote) break;
        if (m_Text[m_Next] == '\\')
            TakeEscape();
        else
            m_Token.text += m_Text[m_Next];
    }
    ++m_Next;
}

// Leaves the place on the last character of the escape.
void ExpressionParser::TakeEscape()
{
    if (++m_Next >= m_Text.size()) ThrowAt(m_Token.place, "the text is not closed");
    const char kind = m_Text[m_Next];
    if (kind == 'x')
    {
        const std::optional<int> high =
            m_Next + 1 < m_Text.size() ? HexDigit(m_Text[m_Next + 1]) : std::nullopt;
        const std::optional<int> low =
            m_Next + 2 < m_Text.size() ? HexDigit(m_Text[m_Next + 2]) : std::nullopt;
        if (!high || !low) ThrowAt(m_Next - 1, "expected two hexadecimal digits behind \\x");
        m_Token.text += static_cast<char>(*high * 16 + *low);
        m_Next += 2;
    }
    else
        m_Token.text += kind == 't' ? '\t' : kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind;
}

void ExpressionParser::TakeSign()
{
    m_Token.kind = Token::Kind::Sign;
    const std::string_view two = m_Text.substr(m_Next, 2);
    const bool isLong = two == "==" || two == "!=" || two == "<=" || two == ">=";
    m_Token.text = isLong ? two : two.substr(0, 1);
    m_Next += m_Token.text.size();
}

bool ExpressionParser::TakeIf(Token::Kind kind, std::string_view text)
{
    if (m_Token.kind != kind || m_Token.text != text) return false;
    TakeToken();
    return true;
}

void ExpressionParser::RequireSign(std::string_view sign)
{
    if (!TakeSignIf(sign)) ThrowAt(m_Token.place, fmt::format("expected {}", sign));
}

ExpressionParser::Part ExpressionParser::ParseOr()
{
    Part left = ParseAnd();
    while (TakeWordIf("or"))
    {
        const Part right = ParseAnd();
        left = {Add(Operation::Or, Truth(left), Truth(right)), Type::Truth, left.place};
    }
    return left;
}

ExpressionParser::Part ExpressionParser::ParseAnd()
{
    Part left = ParseNot();
    while (TakeWordIf("and"))
    {
        const Part right = ParseNot();
        left = {Add(Operation::And, Truth(left), Truth(right)), Type::Truth, left.place};
    }
    return left;
}

ExpressionParser::Part ExpressionParser::ParseNot()
{
    const std::size_t place = m_Token.place;
    bool isNot = false;
    bool hasNot = false;
    while (TakeWordIf("not"))
    {
        isNot = !isNot;
        hasNot = true;
    }
    const Part part = ParseComparison();
    if (!hasNot) return part;
    const int truth = Truth(part);
    return {isNot ? Add(Operation::Not, truth) : truth, Type::Truth, place};
}

ExpressionParser::Part ExpressionParser::ParseComparison()
{
    static constexpr std::pair<std::string_view, Operation> kComparisons[] = {
        {"==", Operation::Equal},       {"=", Operation::Equal}, {"!=", Operation::NotEqual},
        {"<=", Operation::LessOrEqual}, {"<", Operation::Less},  {">=", Operation::GreaterOrEqual},
        {">", Operation::Greater},      {"~", Operation::Fits},
    };
    const Part left = ParseSum();
    for (const auto& [sign, operation] : kComparisons)
        if (TakeSignIf(sign)) return Comparison(operation, left, ParseSum());
    return left;
}

ExpressionParser::Part ExpressionParser::ParseSum()
{
    Part left = ParseProduct();
    for (;;)
    {
        if (TakeSignIf("+"))
            left = Calculation(Operation::Add, left, ParseProduct());
        else if (TakeSignIf("-"))
            left = Calculation(Operation::Subtract, left, ParseProduct());
        else
            return left;
    }
}

ExpressionParser::Part ExpressionParser::ParseProduct()
{
    Part left = ParseFactor();
    for (;;)
    {
        if (TakeSignIf("*"))
            left = Calculation(Operation::Multiply, left, ParseFactor());
        else if (TakeSignIf("/"))
            left = Calculation(Operation::Divide, left, ParseFactor());
        else if (TakeSignIf("%"))
            left = Calculation(Operation::Remainder, left, ParseFactor());
        else
            return left;
    }
}

ExpressionParser::Part ExpressionParser::ParseFactor()
{
    const std::size_t place = m_Token.place;
    bool isNegative = false;
    bool hasSign = false;
    while (TakeSignIf("-"))
    {
        isNegative = !isNegative;
        hasSign = true;
    }
    if (hasSign)
    {
        const Part part = ParseFactor();
        RequireNumber(part);
        Expression::Node& node = m_Nodes[static_cast<std::size_t>(part.node)];
        // A number with its sign is one number: it has to be seen as such beside a float.
        if (isNegative && node.operation == Operation::Number)
            node.number = -node.number;
        else if (isNegative)
            return {Add(Operation::Negate, part.node), Type::Number, place};
        return {part.node, Type::Number, place};
    }
    if (TakeSignIf("(")) return ParseParentheses(place);
    if (TakeWordIf("present")) return ParsePresent(place);
    if (TakeWordIf("row")) return {Add(Operation::RowNumber), Type::Number, place};
    if (m_Token.kind == Token::Kind::Number)
    {
        const int node = Add(Operation::Number);
        m_Nodes.back().number = m_Token.number;
        TakeToken();
        return {node, Type::Number, place};
    }
    if (m_Token.kind == Token::Kind::Text)
    {
        const int node = Add(Operation::Text);
        m_Nodes.back().text = m_Token.text;
        TakeToken();
        return {node, Type::Text, place};
    }
    const ExpressionField& field = TakeField();
    const int node = Add(Operation::Field, IndexOf(field));
    switch (field.type)
    {
    case ExpressionField::Type::Text: return {node, Type::Text, place};
    case ExpressionField::Type::Any: return {node, Type::Any, place};
    case ExpressionField::Type::Number: break;
    }
    return {node, Type::Number, place};
}

ExpressionParser::Part ExpressionParser::ParseParentheses(std::size_t place)
{
    if (++m_Depth > kDeepest) ThrowAt(place, "too many parentheses in each other");
    Part part = ParseOr();
    --m_Depth;
    RequireSign(")");
    part.place = place;
    return part;
}

ExpressionParser::Part ExpressionParser::ParsePresent(std::size_t place)
{
    RequireSign("(");
    const int field = IndexOf(TakeField());
    RequireSign(")");
    return {Add(Operation::Present, field), Type::Truth, place};
}

const ExpressionField& ExpressionParser::TakeField()
{
    static constexpr std::string_view kWords[] = {"and", "or", "not", "present", "row"};
    const bool isWord = m_Token.kind == Token::Kind::Name &&
                        std::find(std::begin(kWords), std::end(kWords), m_Token.text) != std::end(kWords);
    if ((m_Token.kind != Token::Kind::Name && m_Token.kind != Token::Kind::Bracket) || isWord)
        ThrowAt(m_Token.place, "expected a field, a number or a text");
    const auto found = std::find_if(m_Fields.begin(), m_Fields.end(),
                                    [&](const ExpressionField& each) { return each.name == m_Token.text; });
    if (found == m_Fields.end()) ThrowUnknownField(m_Token.place, m_Token.text);
    TakeToken();
    return *found;
}

int ExpressionParser::Add(Operation operation, int left, int right)
{
    if (m_Nodes.size() >= kMostNodes) ThrowAt(m_Token.place, "the expression is too long");
    Expression::Node node;
    node.operation = operation;
    node.left = left;
    node.right = right;
    m_Nodes.push_back(std::move(node));
    return static_cast<int>(m_Nodes.size()) - 1;
}

void ExpressionParser::RequireNumber(const Part& part) const
{
    if (part.type == Type::Truth) ThrowAt(part.place, "expected a number, found a comparison");
    if (part.type == Type::Text) ThrowAt(part.place, "expected a number, found a text");
}

int ExpressionParser::Truth(const Part& part) const
{
    if (part.type != Type::Truth) ThrowAt(part.place, "expected a comparison, such as x > 0, or present(x)");
    return part.node;
}

ExpressionParser::Part ExpressionParser::Calculation(Operation operation, const Part& left, const Part& right)
{
    RequireNumber(left);
    RequireNumber(right);
    return {Add(operation, left.node, right.node), Type::Number, left.place};
}

void ExpressionParser::RequireComparable(Operation operation, const Part& left, const Part& right) const
{
    if (operation == Operation::Fits)
        for (const Part* part : {&left, &right})
            if (part->type != Type::Text && part->type != Type::Any)
                ThrowAt(part->place, "~ takes a text and a glob");
    for (const Part* part : {&left, &right})
        if (part->type == Type::Truth)
            ThrowAt(part->place, "expected a value, found a comparison; and, or and not join comparisons");
    if (left.type == Type::Any || right.type == Type::Any) return;
    if ((left.type == Type::Text) != (right.type == Type::Text))
        ThrowAt(right.place, "a text can't be compared with a number");
}

ExpressionParser::Part ExpressionParser::Comparison(Operation operation, const Part& left, const Part& right)
{
    RequireComparable(operation, left, right);
    return {Add(operation, left.node, right.node), Type::Truth, left.place};
}

// ---- Asking ----

Expression::Expression(std::string_view option, std::string_view text,
                       const std::vector<ExpressionField>& fields)
    : m_Root(ExpressionParser(option, text, fields, *this).Parse())
{
}

bool Expression::IsTrue(int index, const ExpressionRow& row) const
{
    const Node& node = m_Nodes[static_cast<std::size_t>(index)];
    switch (node.operation)
    {
    case Operation::Or: return IsTrue(node.left, row) || IsTrue(node.right, row);
    case Operation::And: return IsTrue(node.left, row) && IsTrue(node.right, row);
    case Operation::Not: return !IsTrue(node.left, row);
    case Operation::Present: return !row.ValueOf(node.left).IsAbsent();
    default: return Compares(node, row);
    }
}

// What is shown of a float are the digits that find it among floats: a number as written has to be one, too.
Value Expression::RoundedAs(const Value& other, int index, const Value& value) const
{
    const bool isLiteral = m_Nodes[static_cast<std::size_t>(index)].operation == Operation::Number;
    const bool fits = std::abs(value.Number()) <= static_cast<double>(std::numeric_limits<float>::max());
    if (other.GetKind() != Value::Kind::Float || !isLiteral || !fits) return value;
    return Value::OfFloat(static_cast<float>(value.Number()));
}

bool Expression::Compares(const Node& node, const ExpressionRow& row) const
{
    const Value leftValue = ValueOf(node.left, row);
    const Value rightValue = ValueOf(node.right, row);
    const Value left = RoundedAs(rightValue, node.left, leftValue);
    const Value right = RoundedAs(leftValue, node.right, rightValue);
    if (left.IsAbsent() || right.IsAbsent() || left.IsText() != right.IsText()) return false;
    if (node.operation == Operation::Fits) return left.IsText() && MatchesGlob(right.Text(), left.Text());
    const std::partial_ordering order = left.IsText()
                                            ? std::partial_ordering(left.Text().compare(right.Text()) <=> 0)
                                            : left.Number() <=> right.Number();
    switch (node.operation)
    {
    case Operation::Equal: return HoldsFor(order, false, true, false);
    case Operation::Less: return HoldsFor(order, true, false, false);
    case Operation::LessOrEqual: return HoldsFor(order, true, true, false);
    case Operation::Greater: return HoldsFor(order, false, false, true);
    case Operation::GreaterOrEqual: return HoldsFor(order, false, true, true);
    default: return order != std::partial_ordering::equivalent; // what is no number differs from everything
    }
}

Value Expression::ValueOf(int index, const ExpressionRow& row) const
{
    const Node& node = m_Nodes[static_cast<std::size_t>(index)];
    switch (node.operation)
    {
    case Operation::Number: return Value::OfDouble(node.number);
    case Operation::Text: return Value::OfText(node.text);
    case Operation::Field: return row.ValueOf(node.left);
    case Operation::RowNumber: return Value::OfInt(row.Number());
    default: return Calculated(node, row);
    }
}

// A text in a sum, which only the values of a stream can be, is as absent there.
Value Expression::Calculated(const Node& node, const ExpressionRow& row) const
{
    const Value left = ValueOf(node.left, row);
    if (!left.IsNumber()) return {};
    if (node.operation == Operation::Negate) return Value::OfDouble(-left.Number());
    const Value right = ValueOf(node.right, row);
    if (!right.IsNumber()) return {};
    switch (node.operation)
    {
    case Operation::Add: return Value::OfDouble(left.Number() + right.Number());
    case Operation::Subtract: return Value::OfDouble(left.Number() - right.Number());
    case Operation::Multiply: return Value::OfDouble(left.Number() * right.Number());
    case Operation::Divide: return Value::OfDouble(left.Number() / right.Number());
    default: return Value::OfDouble(std::fmod(left.Number(), right.Number()));
    }
}
} // namespace rfm_tool
