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

} // namespace

PipedChild::PipedChild(std::vector<std::string> words)
{
    const std::array<int, 2> in = NewPipe();
    const std::array<int, 2> out = NewPipe();
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    m_Process = ::fork();
    if (m_Process < 0) Fail("fork");
    if (m_Process == 0)
    {
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
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

void RunToEnd(std::vector<std::string> words)
{
    const std::string program = words.front();
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t process = ::fork();
    if (process < 0) Fail("fork");
    if (process == 0)
    {
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
    int status = 0;
    if (::waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error(program + " has failed");
}

} // namespace bench
