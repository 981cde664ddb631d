#include "uti_Process.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "utl_SystemText.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" // the header of some versions of the C library does not say so itself
{
#include <sys/pidfd.h>
}

void uti_RefuseStart(const cow_String& program, int error)
{
    nex_ThrowText(
        atr_Message("*** ERROR: Can't start program:\n  %s, reason:\n  %s.", program, utl_SystemText(error)));
}

namespace
{
/// Texts in the form in which the system takes arguments and variables: a table of C strings with a null at its end.
class TextTable
{
public:
    explicit TextTable(const cow_String& program) : m_Program(program) {}

    // A NUL would silently cut the text that the child sees.
    void Add(const cow_String& text)
    {
        if (text.View().find('\0') != std::string_view::npos) uti_RefuseStart(m_Program, EINVAL);
        m_Texts.emplace_back(text.View());
    }

    char* const* Pointers()
    {
        m_Pointers.clear();
        for (std::string& text : m_Texts) m_Pointers.push_back(text.data());
        m_Pointers.push_back(nullptr);
        return m_Pointers.data();
    }

private:
    const cow_String& m_Program;
    std::vector<std::string> m_Texts;
    std::vector<char*> m_Pointers;
};

/// The steps of the child between its start and its program.
class Steps
{
public:
    Steps() { ::posix_spawn_file_actions_init(&m_Steps); }
    Steps(const Steps&) = delete;
    Steps& operator=(const Steps&) = delete;
    ~Steps() { ::posix_spawn_file_actions_destroy(&m_Steps); }

    int Put(int descriptor, int standard)
    {
        return descriptor < 0 ? 0 : ::posix_spawn_file_actions_adddup2(&m_Steps, descriptor, standard);
    }
    int PutEmptyInput()
    {
        return ::posix_spawn_file_actions_addopen(&m_Steps, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    // The host program may have opened files without close-on-exec, which are none of the child's business.
    int CloseOthers() { return ::posix_spawn_file_actions_addclosefrom_np(&m_Steps, STDERR_FILENO + 1); }
    const posix_spawn_file_actions_t* Get() const { return &m_Steps; }

private:
    posix_spawn_file_actions_t m_Steps{};
};

/// The child's signals.
class Attributes
{
public:
    Attributes()
    {
        ::posix_spawnattr_init(&m_Attributes);
        sigset_t none;
        sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&m_Attributes, &none);
        // An ignored signal stays ignored in a new program, and few expect that of these.
        sigset_t ownHandling;
        sigemptyset(&ownHandling);
        sigaddset(&ownHandling, SIGPIPE);
        sigaddset(&ownHandling, SIGCHLD);
        ::posix_spawnattr_setsigdefault(&m_Attributes, &ownHandling);
        ::posix_spawnattr_setflags(&m_Attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { ::posix_spawnattr_destroy(&m_Attributes); }
    const posix_spawnattr_t* Get() const { return &m_Attributes; }

private:
    posix_spawnattr_t m_Attributes{};
};

void AddEnvironment(const cow_String& program, const cow_Map<cow_String, cow_String>& changes,
                    TextTable& table)
{
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string_view text(*entry);
        if (!changes.IsMember(cow_String(text.substr(0, text.find('='))))) table.Add(cow_String(text));
    }
    for (const auto& [name, value] : changes)
    {
        if (name.IsEmpty() || name.View().find('=') != std::string_view::npos)
            uti_RefuseStart(program, EINVAL);
        table.Add(name + "=" + value);
    }
}

pid_t Spawn(const cow_String& program, TextTable& arguments, char* const* environment,
            const uti_StandardStreams& streams)
{
    Steps steps;
    int error = streams.input < 0 ? steps.PutEmptyInput() : steps.Put(streams.input, STDIN_FILENO);
    if (error == 0) error = steps.Put(streams.output, STDOUT_FILENO);
    if (error == 0) error = steps.Put(streams.error, STDERR_FILENO);
    if (error == 0) error = steps.CloseOthers();
    const Attributes attributes;
    pid_t child = 0;
    if (error == 0)
        error = ::posix_spawn(&child, program.CString(), steps.Get(), attributes.Get(), arguments.Pointers(),
                              environment);
    if (error != 0) uti_RefuseStart(program, error);
    return child;
}

// None for a child that has ended and that nobody can ask about any more.
utl_Descriptor DescriptorOf(pid_t child, const cow_String& program)
{
    utl_Descriptor process(::pidfd_open(child, 0));
    const int error = errno;
    // Somebody else has heard of its end already, so the number is no longer the child's to be killed by.
    if (process.IsOpen() || error == ESRCH) return process;
    ::kill(child, SIGKILL);
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR)
    {
    }
    uti_RefuseStart(program, error);
}
} // namespace

utl_Descriptor uti_Start(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                         const cow_Map<cow_String, cow_String>& environment,
                         const uti_StandardStreams& streams)
{
    TextTable words(program);
    words.Add(program);
    for (const cow_String& argument : arguments) words.Add(argument);
    TextTable variables(program);
    if (!environment.IsEmpty()) AddEnvironment(program, environment, variables);
    const pid_t child =
        Spawn(program, words, environment.IsEmpty() ? environ : variables.Pointers(), streams);
    return DescriptorOf(child, program);
}

std::optional<int> uti_Ended(int process) noexcept
{
    siginfo_t ended{};
    int result = 0;
    do result = ::waitid(P_PIDFD, static_cast<id_t>(process), &ended, WEXITED | WNOHANG);
    while (result != 0 && errno == EINTR);
    // Not ours to ask about any more: the host program waits for all children, or ignores SIGCHLD, or this is a fork
    // of the process that started the child.
    if (result != 0) return uti_StatusUnknown;
    if (ended.si_pid == 0) return std::nullopt;
    return ended.si_code == CLD_EXITED ? ended.si_status : 128 + ended.si_status;
}

void uti_Signal(int process, int signal) noexcept { ::pidfd_send_signal(process, signal, nullptr, 0); }
