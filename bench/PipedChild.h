// A child process whose standard input and output are pipes of ours.
#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>
#include <vector>

namespace bench
{

class PipedChild
{
public:
    /// `words`: the path of the program and its arguments.
    explicit PipedChild(std::vector<std::string> words);
    PipedChild(const PipedChild&) = delete;
    PipedChild& operator=(const PipedChild&) = delete;
    /// Closes the pipes and waits for its end.
    ~PipedChild();

    void Write(const std::string& bytes) const;
    /// Exactly `count` bytes.
    void Read(char* target, std::size_t count) const;
    std::string Read(std::size_t count) const;
    /// Up to the end of the line, which is left out.
    std::string ReadLine() const;

private:
    pid_t m_Process = -1;
    int m_In = -1;
    int m_Out = -1;
};

/// Runs a program to its end; what it prints goes to a new file, if one is named.
void RunToEnd(std::vector<std::string> words, const std::string& output = {});

} // namespace bench
