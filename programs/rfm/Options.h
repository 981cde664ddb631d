#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace rfm_tool
{
/// An option or an argument of a command, and the variable that its value goes to.
struct Option
{
    /// A flag takes no value; a list takes any number, as an option one for each time that it is given.
    using Target = std::variant<bool*, std::string*, std::vector<std::string>*, std::int64_t*, double*>;
    /// What is wrong with a value; empty for nothing.
    using Judge = std::function<std::string(const std::string&)>;

    std::vector<std::string> names; // "-o" and "--out"; of an argument its word alone, such as "FILE"
    Target target;
    std::string help;
    std::string valueName = "TEXT"; // in the help
    bool isRequired = false;
    std::string excluded;             // an option that was declared before and can't be given too
    std::vector<std::string> choices; // what the value can be completed to
    Judge judge;

    Option& Required();
    Option& ValueName(std::string_view name);
    Option& Excludes(std::string_view name);
    /// Words for completion, which refuse nothing.
    Option& Choices(std::vector<std::string> words);
    Option& Check(Judge judgeOfValues);
    /// The name of a file to be made, which can't be that of standard output.
    Option& NamesNewFile();
    /// One of these words, and no other.
    Option& OneOf(std::vector<std::string> words);

    bool IsArgument() const { return !names.front().starts_with('-'); }
    bool IsFlag() const { return std::holds_alternative<bool*>(target); }
    bool IsList() const { return std::holds_alternative<std::vector<std::string>*>(target); }
    /// The one that messages use.
    const std::string& Name() const { return names.back(); }
};

/// What a command's line may hold. A description alone: OptionParser.h reads lines by it, Candidates.h completes them.
/// The two are apart because the parser's headers take longer to compile than a command does.
class Options
{
public:
    /// `names` are parted by commas, the long one last. The variable must outlive this.
    template <class Value> Option& Add(std::string_view names, Value& value, std::string_view help)
    {
        return AddOption(names, &value, help);
    }

    /// In the order in which they were declared, which is that of the help.
    const std::deque<Option>& All() const { return m_All; }
    /// Those that stand on the line without a name.
    std::vector<const Option*> Arguments() const;
    /// Every name of an option; --help is one that all commands have.
    std::vector<std::string> Names() const;
    /// Null when there is none of that name.
    const Option* Find(std::string_view name) const;

private:
    Option& AddOption(std::string_view names, Option::Target target, std::string_view help);

    std::deque<Option> m_All; // what Add answers stays where it is
};
} // namespace rfm_tool
