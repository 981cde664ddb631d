// A service for the tests of the relay and the daemon. Its first argument says how it behaves, the rest is for that.

#include <dirent.h>
#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

namespace
{
using Arguments = std::map<int, std::string>;

void Say(int descriptor, const std::string& text)
{
    if (::write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) ::_exit(120);
}

// Reads all its input; answers how much.
long CountInput()
{
    long count = 0;
    char bytes[65536];
    for (ssize_t got = ::read(0, bytes, sizeof bytes); got > 0; got = ::read(0, bytes, sizeof bytes))
        count += got;
    return count;
}

int Echo()
{
    char bytes[65536];
    for (ssize_t got = ::read(0, bytes, sizeof bytes); got > 0; got = ::read(0, bytes, sizeof bytes))
        Say(1, {bytes, static_cast<std::size_t>(got)});
    return 0;
}

// Ends only when it is killed, with a child that does the same.
int Stubborn()
{
    std::signal(SIGTERM, SIG_IGN);
    if (::fork() > 0) Say(1, "ready");
    for (;;) ::poll(nullptr, 0, -1);
}

// Waits for nobody, with a child that keeps the output open.
int LeaveChild()
{
    if (::fork() == 0)
        for (;;) ::poll(nullptr, 0, -1);
    Say(1, "left");
    return 0;
}

int ListDescriptors()
{
    DIR* folder = ::opendir("/proc/self/fd");
    if (folder == nullptr) return 121;
    const std::string own = std::to_string(::dirfd(folder));
    std::map<std::string, int> names;
    for (const dirent* entry = ::readdir(folder); entry != nullptr; entry = ::readdir(folder))
        if (const std::string name = entry->d_name; name != own && name[0] != '.') names[name] = 0;
    std::string all;
    for (const auto& [name, unused] : names) all += name + " ";
    Say(1, all);
    ::closedir(folder);
    return 0;
}

int Behave(const std::string& how, const std::string& value, const Arguments& arguments)
{
    if (how == "echo") return Echo();
    if (how == "count") Say(1, std::to_string(CountInput()));
    if (how == "deaf") // reads nothing, and says so
    {
        ::close(0);
        Say(1, "deaf");
        for (char byte = 0; ::write(1, &byte, 1) == 1;) ::poll(nullptr, 0, 10);
    }
    if (how == "late") ::poll(nullptr, 0, std::stoi(value));
    if (how == "late") Say(1, "late");
    if (how == "exit") return std::stoi(value);
    if (how == "complain") Say(2, "assistant, " + value + "\n");
    if (how == "complain") return 5;
    if (how == "chatter") Say(2, std::string(std::stoul(value), 'c'));
    if (how == "raise") std::raise(std::stoi(value));
    if (how == "stubborn") return Stubborn();
    if (how == "leave") return LeaveChild();
    if (how == "descriptors") return ListDescriptors();
    if (how == "arguments")
        for (const auto& [index, argument] : arguments) Say(1, "[" + argument + "]");
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    Arguments arguments;
    for (int i = 0; i < argc; ++i) arguments[i] = argv[i];
    return argc > 1 ? Behave(argv[1], argc > 2 ? argv[2] : "", arguments) : 0;
}
