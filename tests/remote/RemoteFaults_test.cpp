// A session with a remote file in which somebody dies, stops or is cut off, at every point.

#include "RandomSeed.h"
#include "RemoteDatabaseScene.h"

#include <netinet/in.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>

using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
constexpr std::size_t kPage = 64 * 1024;
constexpr std::size_t kFileBytes = 40 * kPage + 1000; // more than all buffers on the way hold

class RemoteFaults : public RemoteDatabaseScene
{
protected:
    void SetUp() override
    {
        RemoteDatabaseScene::SetUp();
        m_Content = Put("some", Content(kFileBytes));
        StartServer();
    }

    /// Reads all, asks for the status, and reads all again. Answers "read", or what was thrown.
    std::string Session() const
    {
        try
        {
            rfm_FileReprRemote file(Url("some"));
            bool isRight = ReadAll(file) == m_Content;
            isRight = file.CheckStatus() == rfm_FileStatus::RfmFileUnchanged && isRight;
            return ReadAll(file) == m_Content && isRight ? "read" : "wrong bytes";
        }
        catch (const rfm_FileConnectExc& failure)
        {
            return failure.what();
        }
        catch (const rfm_FileFailExc& failure)
        {
            return failure.what();
        }
    }
    /// A session in which `act` has its turn while the reader stands at the gate.
    template <class Act> std::string SessionWith(const std::string& gate, Act act)
    {
        const std::future<void> done = AtGate(gate, act);
        const std::string outcome = Session();
        NoGate();
        return outcome;
    }

    /// Where a session can stand: within the version, the size, a page's head, a page, and between them.
    static std::vector<std::string> Points()
    {
        constexpr std::size_t kPageReply = 6 + kPage;
        std::vector<std::string> points;
        for (const std::size_t bytes :
             {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{7}, std::size_t{12},
              std::size_t{15}, 12 + kPageReply / 2, 12 + kPageReply, 12 + 3 * kPageReply + 1000})
            points.push_back("< " + std::to_string(bytes));
        // Behind the key, the answer to the version, and within a question for a page.
        for (const int bytes : {65, 71, 80}) points.push_back("> " + std::to_string(bytes));
        return points;
    }

    // While the handshake runs it is a matter of luck whether its last message still finds a reader.
    ::testing::Matcher<const std::string&> FailedAt(const std::string& point, const std::string& reason) const
    {
        const bool isInHandshake = point == "< 0" || point == "< 1" || point == "> 65";
        return AnyOf(Lost("some", reason),
                     isInHandshake ? CannotConnect("some", reason) : Lost("some", reason));
    }

    std::string m_Content;
};

/// The network between the relay and the daemon: a port of its own that leads to the daemon's, and can be cut at a byte.
class Network
{
public:
    explicit Network(int daemonPort)
        : m_DaemonPort(daemonPort),
          m_Listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t bytes = sizeof address;
        auto* const bound = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_Listener.Get(), bound, bytes) != 0 || ::listen(m_Listener.Get(), 8) != 0 ||
            ::getsockname(m_Listener.Get(), bound, &bytes) != 0)
            throw std::runtime_error("no port");
        m_Port = ntohs(address.sin_port);
        m_Thread = std::thread([this] { Serve(); });
    }
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    ~Network()
    {
        m_Ends = true;
        ConnectTo(m_Port);
        m_Thread.join();
    }

    int Port() const { return m_Port; }
    /// The next connection is cut when so many bytes have passed, of both directions together.
    void CutAt(std::size_t bytes) { m_Room = bytes; }
    /// How many passed since then.
    std::size_t Passed() const { return m_Passed; }

private:
    void Serve()
    {
        for (;;)
        {
            farend::Descriptor near(::accept4(m_Listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (m_Ends) return;
            farend::Descriptor far = ConnectTo(m_DaemonPort);
            m_Passed = 0;
            while (Carry(near.Get(), far.Get())) continue;
        }
    }
    // Answers false at the end of either, and at the cut.
    bool Carry(int near, int far)
    {
        pollfd ends[] = {{near, POLLIN, 0}, {far, POLLIN, 0}};
        ::poll(ends, 2, -1);
        if (ends[0].revents != 0 && !Pass(near, far)) return false;
        return ends[1].revents == 0 || Pass(far, near);
    }
    bool Pass(int from, int to)
    {
        char bytes[65536];
        const std::size_t room = m_Room - m_Passed;
        const ssize_t got = room > 0 ? ::recv(from, bytes, std::min(sizeof bytes, room), 0) : 0;
        if (got <= 0) return false;
        m_Passed += static_cast<std::size_t>(got);
        return ::send(to, bytes, static_cast<std::size_t>(got), MSG_NOSIGNAL) == got;
    }

    int m_DaemonPort;
    farend::Descriptor m_Listener;
    int m_Port = 0;
    std::atomic<bool> m_Ends = false;
    std::atomic<std::size_t> m_Room = SIZE_MAX;
    std::atomic<std::size_t> m_Passed = 0;
    std::thread m_Thread;
};
} // namespace

// ---- Somebody dies ----

TEST_F(RemoteFaults, ARelayThatIsKilledAtAnyPointIsALostConnectionWithoutAReason)
{
    for (const std::string& point : Points())
    {
        SCOPED_TRACE(point);
        EXPECT_THAT(SessionWith(point, [this] { ::kill(TheRelay(), SIGKILL); }),
                    FailedAt(point, "Can't be determined"));
        EXPECT_TRUE(ReaderIsGone());
    }
    EXPECT_EQ(Session(), "read");
    KillServer();
}

TEST_F(RemoteFaults, ADaemonsSessionThatIsKilledAtAnyPointIsTheRelaysReason)
{
    for (const std::string& point : Points())
    {
        SCOPED_TRACE(point);
        EXPECT_THAT(SessionWith(point, [this] { ::kill(TheSession(), SIGKILL); }),
                    FailedAt(point, "qlnsrv, the connection was lost\n"));
        EXPECT_TRUE(ReaderIsGone());
    }
    EXPECT_EQ(Session(), "read");
    KillServer();
}

TEST_F(RemoteFaults, AnAssistantThatIsKilledAtAnyPointIsTheDaemonsReason)
{
    for (const std::string& point : Points())
    {
        SCOPED_TRACE(point);
        EXPECT_THAT(SessionWith(point, [this] { ::kill(TheAssistant(), SIGKILL); }),
                    FailedAt(point, "qlnsrvd, the service rfmT_FileAssistant ended with signal 9\n"));
        EXPECT_TRUE(ReaderIsGone());
    }
    EXPECT_EQ(Session(), "read");
    KillServer();
}

TEST_F(RemoteFaults, ADaemonThatIsKilledTakesItsReadersAlongAndNobodyElseConnects)
{
    EXPECT_EQ(SessionWith("< 12", [this] { ::kill(m_Daemon, SIGKILL); }),
              Lost("some", "qlnsrv, the connection was lost\n"));
    EXPECT_EQ(Session(), CannotConnect("some", "qlnsrv, cannot connect to 127.0.0.1 port " +
                                                   std::to_string(m_Port) + ": Connection refused\n"));
    EXPECT_TRUE(NothingRuns());
}

TEST_F(RemoteFaults, ADaemonThatIsToldToEndTakesItsReadersAlong)
{
    EXPECT_EQ(SessionWith("< 70000", [this] { ::kill(m_Daemon, SIGTERM); }),
              Lost("some", "qlnsrv, the connection was lost\n"));
    EXPECT_TRUE(NothingRuns());
}

TEST_F(RemoteFaults, ARelayThatIsKilledBeforeTheVersionIsAFailureToConnect)
{
    // The key has not gone whole, so nothing has come back.
    EXPECT_EQ(SessionWith("> 64", [this] { ::kill(TheRelay(), SIGKILL); }),
              CannotConnect("some", "Can't be determined"));
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteFaults, WhoeverDiesWhileNothingIsAskedIsSeenAtTheNextRequestOrNotAtAll)
{
    const std::vector<std::pair<std::function<pid_t()>, std::string>> victims = {
        {[this] { return TheRelay(); }, "Can't be determined"},
        {[this] { return TheSession(); }, "qlnsrv, the connection was lost\n"},
        {[this] { return TheAssistant(); }, "qlnsrvd, the service rfmT_FileAssistant ended with signal 9\n"},
    };
    for (const auto& [who, reason] : victims)
    {
        for (const bool asks : {true, false})
        {
            rfm_FileReprRemote file(Url("some"));
            char bytes[10];
            EXPECT_EQ(file.Read(bytes, 10), 10);
            ::kill(who(), SIGKILL);
            ASSERT_TRUE(ReaderIsGone());
            EXPECT_EQ(file.Read(bytes, 10), 10) << "the page is here";
            if (!asks) continue; // it is closed
            EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { file.CheckStatus(); }), Lost("some", reason));
            file.Seek(5 * kPage);
            EXPECT_EQ(Thrown<rfm_FileFailExc>([&] { file.Read(bytes, 10); }), Lost("some", reason));
        }
    }
    KillServer();
}

// ---- Somebody stops, as when the network is gone ----

TEST_F(RemoteFaults, WhoeverStopsForAWhileHoldsTheReaderUpAndNothingIsLost)
{
    for (const std::string& point : Points())
        for (const int who : {0, 1, 2})
        {
            SCOPED_TRACE(point + " " + std::to_string(who));
            pid_t stopped = -1;
            std::future<void> goesOn;
            const auto stop = [&]
            {
                stopped = who == 0 ? TheRelay() : who == 1 ? TheSession() : TheAssistant();
                Stop(stopped);
                goesOn = std::async(std::launch::async, [&] { ::kill(stopped, SIGCONT); });
            };
            EXPECT_EQ(SessionWith(point, stop), "read");
        }
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteFaults, AReaderOfAStoppedAssistantIsFreedWhenTheRelayIsEnded)
{
    const auto act = [this]
    {
        Stop(TheAssistant());
        ::kill(TheRelay(), SIGTERM);
    };
    EXPECT_EQ(SessionWith("< 70000", act), Lost("some", "Can't be determined"));
    EXPECT_TRUE(ReaderIsGone()) << "the daemon ends the stopped one";
    KillServer();
}

TEST_F(RemoteFaults, ACloseWaitsForAStoppedAssistantAndThenLeavesNothing)
{
    std::future<void> goesOn;
    {
        rfm_FileReprRemote file(Url("some"));
        EXPECT_TRUE(ReadAll(file) == m_Content);
        const pid_t assistant = TheAssistant();
        Stop(assistant);
        goesOn = std::async(std::launch::async, [assistant] { ::kill(assistant, SIGCONT); });
    }
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteFaults, ADaemonThatStandsStillIsGivenUpByTheRelay)
{
    Stop(m_Daemon);
    EXPECT_EQ(Session(), CannotConnect("some", "qlnsrv, nothing answers there\n"));
    ::kill(m_Daemon, SIGCONT);
    EXPECT_EQ(Session(), "read");
    KillServer();
}

// ---- The network is cut ----

// RFM_CUTS asks for more of them.
TEST_F(RemoteFaults, ANetworkThatIsCutAtAnyByteEndsInAnException)
{
    m_Content = Put("some", Content(3 * kPage));
    const std::string key = Connections().Get("box1").QlnsrvdKey();
    Network network(m_Port);
    rds_RemoteConnection connection("box2", "127.0.0.1", "/", Driver(), rds_RemoteLoginMechanismEnm::SSH, "",
                                    600, 0, network.Port(), true);
    connection.SetqlnsrvdKey(cow_String(key));
    Connections().Insert("box2", connection);
    const int daemonPort = std::exchange(m_Port, network.Port());
    ASSERT_EQ(Session(), "read");
    ASSERT_TRUE(ReaderIsGone());
    const std::size_t whole = network.Passed();
    ASSERT_GT(whole, 3 * kPage);

    const char* asked = std::getenv("RFM_CUTS");
    const int cuts = asked != nullptr ? std::stoi(asked) : 40;
    std::mt19937 random(RandomSeed());
    for (int i = 0; i < cuts; ++i)
    {
        // Every other time before the first page, where most messages are; not in what is said when all is done.
        const std::size_t cut = random() % (i % 2 == 0 ? 2500 : 3 * kPage);
        SCOPED_TRACE(cut);
        network.CutAt(cut);
        EXPECT_THAT(Session(), AnyOf(StartsWith(CannotConnect("some", "qlnsrv, ")),
                                     StartsWith(Lost("some", "qlnsrv, "))));
        ASSERT_TRUE(ReaderIsGone());
    }
    network.CutAt(SIZE_MAX);
    EXPECT_EQ(Session(), "read");
    m_Port = daemonPort;
    KillServer();
}
