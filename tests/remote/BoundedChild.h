#pragma once

// A child process on pipes, every wait for which ends: what takes longer than its time is a failure of the test.

#include "Deadline.h"
#include "Descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// What a child left.
struct ChildResult
{
    int code = -1; // exit code; 128 and the signal's number when one killed it
    std::string out;
    std::string err;
    std::chrono::microseconds processorTime{};
};

class BoundedChild
{
public:
    using Words = std::vector<std::string>;
    static constexpr std::chrono::seconds kMostTime{30};

    explicit BoundedChild(Words words, const std::string& outputFile = "")
    {
        farend::Pipe in;
        farend::Pipe out;
        farend::Pipe err;
        if (!outputFile.empty())
            out.write = farend::Descriptor(::open(outputFile.c_str(), O_WRONLY | O_CLOEXEC));
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        m_Process = ::fork();
        if (m_Process == 0)
        {
            ::dup2(in.read.Get(), STDIN_FILENO);
            ::dup2(out.write.Get(), STDOUT_FILENO);
            ::dup2(err.write.Get(), STDERR_FILENO);
            ::execv(arguments[0], arguments.data());
            ::_exit(126);
        }
        m_In = std::move(in.write);
        m_Out = std::move(out.read);
        m_Err = std::move(err.read);
        for (const int end : {m_In.Get(), m_Out.Get(), m_Err.Get()}) ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
    BoundedChild(const BoundedChild&) = delete;
    BoundedChild& operator=(const BoundedChild&) = delete;
    ~BoundedChild()
    {
        if (m_Process < 0) return;
        ::kill(m_Process, SIGKILL);
        ::waitpid(m_Process, nullptr, 0);
    }

    pid_t Process() const { return m_Process; }
    void CloseInput() { m_In.Close(); }
    void CloseOutput() { m_Out.Close(); }

    void Write(std::string_view bytes)
    {
        Turn([&] { return bytes.empty(); }, bytes);
    }
    /// The next `count` bytes of its output; fewer at the end.
    std::string Read(std::size_t count)
    {
        std::string_view nothing;
        Turn([&] { return m_Result.out.size() >= count || !m_Out.IsOpen(); }, nothing);
        std::string read = m_Result.out.substr(0, count);
        m_Result.out.erase(0, count);
        return read;
    }
    /// Writes `input` while it reads, ends the input, and waits for the end of output, error and child.
    ChildResult Finish(std::string_view input = {})
    {
        const auto isOut = [&]
        {
            if (input.empty()) m_In.Close();
            return !m_In.IsOpen() && !m_Out.IsOpen() && !m_Err.IsOpen();
        };
        Turn(isOut, input);
        return Reap();
    }
    /// Waits for the child alone.
    ChildResult Reap()
    {
        int status = 0;
        rusage usage = {};
        const auto deadline = farend::Deadline::In(kMostTime);
        while (::wait4(m_Process, &status, WNOHANG, &usage) == 0)
        {
            if (deadline.HasPassed()) throw std::runtime_error("the child does not end");
            ::poll(nullptr, 0, 2);
        }
        m_Process = -1;
        m_Result.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        for (const timeval& time : {usage.ru_utime, usage.ru_stime})
            m_Result.processorTime +=
                std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
        return std::move(m_Result);
    }

private:
    // Moves bytes until `isDone`.
    template <class Done> void Turn(Done isDone, std::string_view& input)
    {
        const auto deadline = farend::Deadline::In(kMostTime);
        while (!isDone())
        {
            pollfd ends[] = {{input.empty() ? -1 : m_In.Get(), POLLOUT, 0},
                             {m_Out.Get(), POLLIN, 0},
                             {m_Err.Get(), POLLIN, 0}};
            if (deadline.HasPassed()) throw std::runtime_error("the child does not go on");
            ::poll(ends, 3, deadline.MillisecondsLeft());
            if (ends[0].revents != 0) WriteSome(input);
            if (ends[1].revents != 0) ReadSome(m_Out, m_Result.out);
            if (ends[2].revents != 0) ReadSome(m_Err, m_Result.err);
        }
    }
    // A child that ended before it took its input is the test's to judge, by what it said.
    void WriteSome(std::string_view& input)
    {
        const ssize_t put = ::write(m_In.Get(), input.data(), input.size());
        if (put > 0)
            input.remove_prefix(static_cast<std::size_t>(put));
        else if (put < 0 && errno == EPIPE)
            input = {};
    }
    static void ReadSome(farend::Descriptor& end, std::string& text)
    {
        char bytes[65536];
        const ssize_t got = ::read(end.Get(), bytes, sizeof bytes);
        if (got > 0)
            text.append(bytes, static_cast<std::size_t>(got));
        else if (got == 0 || errno != EAGAIN)
            end.Close();
    }

    pid_t m_Process = -1;
    farend::Descriptor m_In;
    farend::Descriptor m_Out;
    farend::Descriptor m_Err;
    ChildResult m_Result;
};
