#pragma once

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

/// How many descriptors this process has open.
inline int OpenDescriptorCount()
{
    // The walk itself has one open.
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                          std::filesystem::directory_iterator())) -
           1;
}

inline bool IsOpen(int descriptor) { return ::fcntl(descriptor, F_GETFD) != -1; }

/// No child of this process runs, and none that ended waits to be asked for.
inline bool HasNoChildren() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

/// A pipe, and each of its ends as long as nobody closes it.
class Pipe
{
public:
    Pipe()
    {
        if (::pipe2(m_Ends, O_CLOEXEC) != 0) m_Ends[0] = m_Ends[1] = -1;
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe()
    {
        CloseReadEnd();
        CloseWriteEnd();
    }
    int ReadEnd() const { return m_Ends[0]; }
    int WriteEnd() const { return m_Ends[1]; }
    void CloseReadEnd() { Close(m_Ends[0]); }
    void CloseWriteEnd() { Close(m_Ends[1]); }

private:
    static void Close(int& descriptor)
    {
        if (descriptor >= 0) ::close(descriptor);
        descriptor = -1;
    }
    int m_Ends[2];
};
