#pragma once

#include "Failure.h"
#include "Listing.h"
#include "Options.h"
#include "Output.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
/// One command of the tool. A new one is a pair of files of its own, and a line in main.cpp.
class Command
{
public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    virtual std::string_view Name() const = 0;
    /// Another word for it; empty for none.
    virtual std::string_view OtherName() const { return {}; }
    /// What it does, in one line.
    virtual std::string_view Summary() const = 0;
    /// What more there is to say, and three examples.
    virtual std::string_view Help() const = 0;
    /// Names options and arguments; their values go to members of the command.
    virtual void Declare(Options& options) = 0;
    /// Data goes to `output`, notes to standard error.
    /// Throws: Failure.
    virtual int Run(Output& output) = 0;
};

/// How a command's output looks, as the options say: --json, and --csv where there are rows.
struct StyleOptions
{
    bool json = false;
    bool csv = false;

    void DeclareJson(Options& options);
    void DeclareAll(Options& options);
    Style Choose(const Output& output) const;
};

/// Keeps a listing to one screen on a terminal, or puts all of it into a pager when all was asked for. Elsewhere it does
/// nothing.
class Screenful
{
public:
    Screenful(Output& output, Style style, bool wantsAll);
    /// Whether the next line is still shown.
    bool Takes() noexcept { return ++m_Count <= m_Limit; }
    /// Behind the listing: a note when lines were left out.
    void TellTheRest() const;

private:
    Output& m_Output;
    std::int64_t m_Limit;
    std::int64_t m_Count = 0;
};

/// An option that takes a whole number from 0 up, one that takes any number from 0 up, and one that takes seconds,
/// parts of them too.
void DeclareCount(Options& options, const std::string& name, std::int64_t& value,
                  const std::string& valueName, const std::string& help);
void DeclareNumber(Options& options, const std::string& name, double& value, const std::string& valueName,
                   const std::string& help);
void DeclareSeconds(Options& options, const std::string& name, double& value, const std::string& help);

/// The argument FILE, which every command has first.
void DeclareFile(Options& options, std::string& file);
} // namespace rfm_tool
