// Stands between a reader of a remote file and the relay, as a program of its own: passes on what both say, logs it, and
// can be told to stop at a byte. It works in the folder RFM_TEST_FOLDER:
//
//   relay     the relay that it starts, with its own arguments
//   wire      a line for each run of bytes in one direction: "> 7" to the relay, "< 10" from it
//   gate      "> 5" or "< 20": so many bytes of that direction pass, and before the next one everything stops
//   reached   a FIFO into which it writes a byte then
//   go        a FIFO from which it takes a byte before it goes on

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

namespace
{
std::string InFolder(const char* name) { return std::string(std::getenv("RFM_TEST_FOLDER")) + "/" + name; }

// Opening waits for the other end.
void MeetAt(const char* name, int mode)
{
    char byte = 'x';
    const int fifo = ::open(InFolder(name).c_str(), mode | O_CLOEXEC);
    static_cast<void>(mode == O_WRONLY ? ::write(fifo, &byte, 1) : ::read(fifo, &byte, 1));
    ::close(fifo);
}

class Wire
{
public:
    Wire() : m_Log(::open(InFolder("wire").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600))
    {
        std::ifstream gate(InFolder("gate"));
        m_HasGate = static_cast<bool>(gate >> m_GateDirection >> m_GateBytes);
    }
    ~Wire() { LogRun(); }
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// How many of the bytes that wait may pass now; stops first, when the gate is reached.
    std::size_t Room(char direction, std::size_t most)
    {
        if (!m_HasGate || direction != m_GateDirection) return most;
        if (m_GateBytes == 0)
        {
            m_HasGate = false;
            MeetAt("reached", O_WRONLY);
            MeetAt("go", O_RDONLY);
            return most;
        }
        const std::size_t room = std::min(most, m_GateBytes);
        m_GateBytes -= room;
        return room;
    }
    /// Those that the room was given for and that did not come.
    void GiveBack(char direction, std::size_t bytes)
    {
        if (m_HasGate && direction == m_GateDirection) m_GateBytes += bytes;
    }
    void Passed(char direction, std::size_t bytes)
    {
        if (direction != m_Direction) LogRun();
        m_Direction = direction;
        m_Run += bytes;
    }

private:
    void LogRun()
    {
        if (m_Run == 0) return;
        const std::string line = std::string(1, m_Direction) + " " + std::to_string(m_Run) + "\n";
        if (::write(m_Log, line.data(), line.size()) != static_cast<ssize_t>(line.size())) ::_exit(120);
        m_Run = 0;
    }

    int m_Log;
    bool m_HasGate = false;
    char m_GateDirection = '<';
    std::size_t m_GateBytes = 0;
    char m_Direction = '>';
    std::size_t m_Run = 0;
};

// Answers false at the end of either side.
bool Pass(Wire& wire, char direction, int from, int to)
{
    static char s_Bytes[1 << 20];
    const std::size_t room = wire.Room(direction, sizeof s_Bytes);
    const ssize_t got = ::read(from, s_Bytes, room);
    if (got <= 0) return false;
    wire.GiveBack(direction, room - static_cast<std::size_t>(got));
    wire.Passed(direction, static_cast<std::size_t>(got));
    for (ssize_t done = 0; done < got;)
    {
        const ssize_t put = ::write(to, s_Bytes + done, static_cast<std::size_t>(got - done));
        if (put <= 0) return false;
        done += put;
    }
    return true;
}

struct Relay
{
    pid_t process;
    int in;
    int out;
};

Relay StartRelay(char** arguments)
{
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) ::_exit(121);
    const pid_t process = ::fork();
    if (process == 0)
    {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::execv(InFolder("relay").c_str(), arguments);
        ::_exit(122);
    }
    ::close(in[0]);
    ::close(out[1]);
    return {process, in[1], out[0]};
}
} // namespace

int main(int, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    Relay relay = StartRelay(argv);
    Wire wire;
    for (bool goesOn = true; goesOn;)
    {
        pollfd ends[] = {{relay.in >= 0 ? 0 : -1, POLLIN, 0}, {relay.out, POLLIN, 0}};
        ::poll(ends, 2, -1);
        if (ends[0].revents != 0 && !Pass(wire, '>', 0, relay.in))
        {
            ::close(relay.in);
            relay.in = -1;
        }
        if (ends[1].revents != 0) goesOn = Pass(wire, '<', relay.out, 1);
    }
    ::close(relay.out);
    int status = 0;
    ::waitpid(relay.process, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
