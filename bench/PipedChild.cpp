#include "PipedChild.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace bench
{

namespace
{

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::array<int, 2> NewPipe()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) Fail("pipe");
    return ends;
}

/// Starts a program whose standard input and output are these.
pid_t Start(std::vector<std::string>& words, int input, int output)
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process < 0) Fail("fork");
    if (process == 0)
    {
        ::dup2(input, STDIN_FILENO);
        ::dup2(output, STDOUT_FILENO);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    return process;
}

} // namespace

PipedChild::PipedChild(std::vector<std::string> words)
{
    const std::array<int, 2> in = NewPipe();
    const std::array<int, 2> out = NewPipe();
    m_Process = Start(words, in[0], out[1]);
    ::close(in[0]);
    ::close(out[1]);
    m_In = in[1];
    m_Out = out[0];
}

PipedChild::~PipedChild()
{
    ::close(m_In);
    ::close(m_Out);
    ::waitpid(m_Process, nullptr, 0);
}

void PipedChild::Write(const std::string& bytes) const
{
    if (::write(m_In, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) Fail("write");
}

void PipedChild::Read(char* target, std::size_t count) const
{
    while (count > 0)
    {
        const ssize_t got = ::read(m_Out, target, count);
        if (got == 0) throw std::runtime_error("a child ended early");
        if (got < 0) Fail("read");
        target += got;
        count -= static_cast<std::size_t>(got);
    }
}

std::string PipedChild::Read(std::size_t count) const
{
    std::string bytes(count, '\0');
    Read(bytes.data(), count);
    return bytes;
}

std::string PipedChild::ReadLine() const
{
    std::string line;
    for (char byte = 0;;)
    {
        Read(&byte, 1);
        if (byte == '\n') return line;
        line += byte;
    }
}

void RunToEnd(std::vector<std::string> words, const std::string& output)
{
    const std::string program = words.front();
    int target = STDOUT_FILENO;
    if (!output.empty()) target = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (target < 0) Fail(output);
    const pid_t process = Start(words, STDIN_FILENO, target);
    if (target != STDOUT_FILENO) ::close(target);
    int status = 0;
    if (::waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error(program + " has failed");
}

} // namespace bench
