// Stands in for the assistant beside a remote file, and for the relay to it, as a program of its own: it shares nothing
// with the library, so that both can't be wrong alike. It works in the folder RFM_TEST_FOLDER:
//
//   words      its arguments, [one] [behind] [the] [other]
//   script     what it is to do, a step a line; without a script it serves the file of its last argument but "-scratch"
//   taken      all bytes that it has taken by a script
//   log        what it was asked while it serves, a line a request
//   changed    page starts: the next reply says that they have changed
//   status     the status of all other replies

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{
std::string InFolder(const std::string& name)
{
    const char* folder = std::getenv("RFM_TEST_FOLDER");
    return std::string(folder != nullptr ? folder : ".") + "/" + name;
}

// Stays open: a log has tens of thousands of lines.
int FileToAppend(const std::string& name)
{
    static std::map<std::string, int> s_Files;
    const auto known = s_Files.find(name);
    if (known != s_Files.end()) return known->second;
    const int file = ::open(InFolder(name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    return s_Files[name] = file;
}

void AppendTo(const std::string& name, const std::string& text)
{
    if (::write(FileToAppend(name), text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        ::_exit(120);
}

// The file's text, which is gone then; nothing when there is none.
std::optional<std::string> Take(const std::string& name)
{
    const std::string taken = InFolder(name + ".taken");
    if (::rename(InFolder(name).c_str(), taken.c_str()) != 0) return std::nullopt;
    std::ostringstream text;
    text << std::ifstream(taken).rdbuf();
    return text.str();
}

// Ends the program when the input has ended.
std::string Get(std::size_t count)
{
    std::string bytes(count, '\0');
    for (std::size_t done = 0; done < count;)
    {
        const ssize_t moved = ::read(0, bytes.data() + done, count - done);
        if (moved <= 0) ::_exit(0);
        done += static_cast<std::size_t>(moved);
    }
    return bytes;
}

void Put(const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();)
    {
        const ssize_t moved = ::write(1, bytes.data() + done, bytes.size() - done);
        if (moved <= 0) ::_exit(0);
        done += static_cast<std::size_t>(moved);
    }
}

std::int64_t GetNumber(int bytes)
{
    std::uint64_t number = 0;
    for (const char byte : Get(static_cast<std::size_t>(bytes)))
        number = number << 8U | static_cast<unsigned char>(byte);
    return static_cast<std::int64_t>(number);
}

std::string Number(std::int64_t number, int bytes)
{
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(number >> (8 * i) & 0xFF);
    return text;
}

// --- by a script

std::string FromHex(const std::string& hex)
{
    std::string bytes;
    int digits = 0;
    int value = 0;
    for (const char letter : hex)
    {
        if (letter == ' ') continue;
        value = value * 16 + (letter <= '9' ? letter - '0' : letter - 'a' + 10);
        if (++digits % 2 == 0) bytes += static_cast<char>(value);
        if (digits % 2 == 0) value = 0;
    }
    return bytes;
}

void Step(const std::string& verb, const std::string& rest)
{
    if (verb == "take") AppendTo("taken", Get(std::stoul(rest)));
    if (verb == "send") Put(FromHex(rest));
    if (verb == "fill") Put(std::string(std::stoul(rest), 'f'));
    if (verb == "replay") Put(Take(rest).value_or(""));
    if (verb == "say") static_cast<void>(!::write(2, (rest + "\n").data(), rest.size() + 1));
    if (verb == "grow" && ::ftruncate(2, std::stol(rest)) != 0) ::_exit(121);
    if (verb == "mute") ::close(1);
    if (verb == "mark") AppendTo(rest, "x");
    if (verb == "leave") ::_exit(std::stoi(rest));
    char ignored = 0;
    while (verb == "swallow" && ::read(0, &ignored, 1) == 1)
    {
    }
    while (verb == "hang") ::pause();
    char errors[4096] = {};
    if (verb == "forget" && ::readlink("/proc/self/fd/2", errors, sizeof errors - 1) > 0) ::unlink(errors);
}

void Follow(std::istream& script)
{
    for (std::string line; std::getline(script, line);)
    {
        const std::size_t blank = line.find(' ');
        Step(line.substr(0, blank), blank < line.size() ? line.substr(blank + 1) : "");
    }
}

// --- as an assistant does

std::string ReplyHead()
{
    const std::optional<std::string> changed = Take("changed");
    if (!changed.has_value())
    {
        std::ifstream status(InFolder("status"));
        int value = 0;
        status >> value;
        return Number(0, 1) + Number(value, 1);
    }
    std::istringstream list(*changed);
    std::vector<std::int64_t> starts;
    for (std::int64_t start = 0; list >> start;) starts.push_back(start);
    std::string head = Number(0, 1) + Number(2, 1) + Number(static_cast<std::int64_t>(starts.size()), 4);
    for (const std::int64_t start : starts) head += Number(start, 8);
    return head;
}

std::string SizeOf(int file)
{
    struct stat status
    {
    };
    return ::fstat(file, &status) == 0 ? Number(status.st_size, 8) : "";
}

std::string Page(int file, std::string& log)
{
    log = " dropped";
    for (std::int64_t left = GetNumber(2); left > 0; --left) log += " " + std::to_string(GetNumber(8));
    const std::int64_t start = GetNumber(8);
    const std::int64_t bytes = GetNumber(4);
    log = "page " + std::to_string(start) + " of " + std::to_string(bytes) + log;
    std::string page(static_cast<std::size_t>(bytes), '\0');
    const ssize_t length = ::pread(file, page.data(), page.size(), start);
    page.resize(static_cast<std::size_t>(length));
    return Number(length, 4) + page;
}

void Serve(const std::string& name)
{
    AppendTo("log", "key " + Get(static_cast<std::size_t>(GetNumber(1))) + "\n");
    Put(Number(1, 2));
    const std::int64_t version = GetNumber(2);
    AppendTo("log", "version " + std::to_string(version) + " pages " + std::to_string(GetNumber(4)) + "\n");
    const int file = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    for (;;)
    {
        const std::int64_t request = GetNumber(1);
        std::string log = request == 1 ? "size" : "status";
        std::string reply = request == 1 ? SizeOf(file) : "";
        if (request == 2) reply = Page(file, log);
        AppendTo("log", log + "\n");
        Put(ReplyHead() + reply);
    }
}
} // namespace

int main(int argc, char** argv)
{
    std::string words;
    std::string file;
    for (int i = 1; i < argc; ++i)
    {
        words += (i > 1 ? " [" : "[") + std::string(argv[i]) + "]";
        if (std::string(argv[i]) != "-scratch") file = argv[i];
    }
    AppendTo("words", words);
    std::ifstream script(InFolder("script"));
    if (!script.is_open()) Serve(file);
    Follow(script);
    return 0;
}
