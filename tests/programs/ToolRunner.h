#pragma once

// Starts the command-line tool as a person or a script does, and gives back all that can be seen of it.

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// What a run left.
struct ToolResult
{
    int code = -1; // exit code; 128 and the signal's number when one killed it
    std::string out;
    std::string err;
};

/// A running tool. `out` and `err` are its standard output and error; destroyed, it is killed.
class Tool
{
public:
    using Words = std::vector<std::string>;

    explicit Tool(Words words, const std::string& outputFile = "", bool isRead = true)
        : m_Words(std::move(words))
    {
        int in[2];
        int out[2];
        int err[2];
        MakePipe(in);
        MakePipe(out);
        MakePipe(err);
        if (!isRead) CloseEnd(out[0]);
        m_Process = ::fork();
        if (m_Process == 0)
        {
            ::dup2(in[0], STDIN_FILENO);
            ::dup2(outputFile.empty() ? out[1] : ::open(outputFile.c_str(), O_WRONLY), STDOUT_FILENO);
            ::dup2(err[1], STDERR_FILENO);
            Become();
        }
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        m_In = in[1];
        m_Out = out[0];
        m_Err = err[0];
    }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;
    ~Tool()
    {
        if (m_Process > 0)
        {
            ::kill(m_Process, SIGKILL);
            ::waitpid(m_Process, nullptr, 0);
        }
        for (const int end : {m_In, m_Out, m_Err})
            if (end >= 0) ::close(end);
    }

    void Answer(const std::string& text)
    {
        if (::write(m_In, text.data(), text.size()) < 0) throw std::runtime_error("write to the tool");
    }
    /// The next line of standard output, without its end; what is there when the output ends.
    std::string Line()
    {
        std::string line;
        for (char byte = 0; ::read(m_Out, &byte, 1) == 1 && byte != '\n';) line += byte;
        return line;
    }
    void CloseOutput() { CloseEnd(m_Out); }
    pid_t Process() const { return m_Process; }
    void Signal(int number) const { ::kill(m_Process, number); }
    /// Ends its input, and waits for it.
    ToolResult Finish()
    {
        CloseEnd(m_In);
        ToolResult result;
        pollfd ends[2] = {{m_Out, POLLIN, 0}, {m_Err, POLLIN, 0}};
        while (ends[0].fd >= 0 || ends[1].fd >= 0)
        {
            ::poll(ends, 2, -1);
            for (pollfd& end : ends)
                if (end.fd >= 0 && end.revents != 0 &&
                    !Append(end.fd, &end == ends ? result.out : result.err))
                    end.fd = -1;
        }
        result.code = Wait();
        return result;
    }

    /// One whole run.
    static ToolResult Run(Words words, const std::string& input = "", const std::string& outputFile = "")
    {
        Tool tool(std::move(words), outputFile);
        tool.Answer(input);
        return tool.Finish();
    }
    /// One whole run whose output nobody reads: each write to it fails.
    static ToolResult RunUnread(Words words)
    {
        Tool tool(std::move(words), "", false);
        return tool.Finish();
    }
    /// One run on a terminal of the given size: output and error come together, with the terminal's line ends. Without
    /// colours and a pager, unless they are given.
    static ToolResult RunOnTerminal(Words words, unsigned short lines, unsigned short columns,
                                    const std::vector<std::pair<const char*, const char*>>& environment = {
                                        {"NO_COLOR", "1"}, {"PAGER", "cat"}})
    {
        winsize size{};
        size.ws_row = lines;
        size.ws_col = columns;
        int terminal = -1;
        Tool tool(std::move(words), Terminal{});
        tool.m_Process = ::forkpty(&terminal, nullptr, nullptr, &size);
        if (tool.m_Process == 0)
        {
            for (const auto& [name, value] : environment) ::setenv(name, value, 1);
            tool.Become();
        }
        ToolResult result;
        while (Append(terminal, result.out)) continue; // ends with an error when the other side is gone
        ::close(terminal);
        result.code = tool.Wait();
        return result;
    }

    /// The same, but a signal ends it once its output holds `text`.
    static ToolResult RunOnTerminalUntil(Words words, const std::string& text, int signal)
    {
        int terminal = -1;
        Tool tool(std::move(words), Terminal{});
        tool.m_Process = ::forkpty(&terminal, nullptr, nullptr, nullptr);
        if (tool.m_Process == 0) tool.Become();
        ToolResult result;
        while (result.out.find(text) == std::string::npos && Append(terminal, result.out)) continue;
        tool.Signal(signal);
        while (Append(terminal, result.out)) continue;
        ::close(terminal);
        result.code = tool.Wait();
        return result;
    }

private:
    struct Terminal
    {
    };
    Tool(Words words, Terminal) : m_Words(std::move(words)) {}

    static void MakePipe(int (&ends)[2])
    {
        if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    }
    static void CloseEnd(int& end)
    {
        if (end >= 0) ::close(end);
        end = -1;
    }
    static bool Append(int end, std::string& text)
    {
        char bytes[4096];
        const ssize_t read = ::read(end, bytes, sizeof bytes);
        if (read > 0) text.append(bytes, static_cast<std::size_t>(read));
        return read > 0;
    }
    [[noreturn]] void Become()
    {
        std::string program = RFM_TOOL;
        std::vector<char*> arguments{program.data()};
        for (std::string& word : m_Words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        ::execv(program.c_str(), arguments.data());
        ::_exit(126);
    }
    int Wait()
    {
        int status = 0;
        ::waitpid(m_Process, &status, 0);
        m_Process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    Words m_Words;
    pid_t m_Process = -1;
    int m_In = -1;
    int m_Out = -1;
    int m_Err = -1;
};
