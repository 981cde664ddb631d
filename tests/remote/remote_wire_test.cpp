#include "FarEnd.h"

#include <future>
#include <thread>

using namespace farend;

namespace
{
// Listens on a port of its own.
class OwnPort
{
public:
    OwnPort() : m_Socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const auto address = FindAddresses("127.0.0.1", "0", AI_NUMERICHOST);
        sockaddr_in bound = {};
        socklen_t bytes = sizeof bound;
        if (::bind(m_Socket.Get(), address->ai_addr, address->ai_addrlen) != 0 ||
            ::listen(m_Socket.Get(), 8) != 0 ||
            ::getsockname(m_Socket.Get(), reinterpret_cast<sockaddr*>(&bound), &bytes) != 0)
            throw std::runtime_error("listen");
        m_Port = ntohs(bound.sin_port);
    }
    int Port() const { return m_Port; }
    // The next connection; none when nobody comes.
    Descriptor Accept() const
    {
        pollfd readable = {m_Socket.Get(), POLLIN, 0};
        ::poll(&readable, 1, 20000);
        return Descriptor(::accept4(m_Socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    }

private:
    Descriptor m_Socket;
    int m_Port = 0;
};

// Stands between a relay and the daemon for one connection, and keeps all bytes that pass.
class RecordingProxy
{
public:
    // `spoil` may change what the daemon says first.
    explicit RecordingProxy(int daemonPort, std::function<void(std::string&)> spoil = {})
        : m_DaemonPort(daemonPort),
          m_Spoil(std::move(spoil)),
          m_Thread([this] { Carry(); })
    {
    }
    RecordingProxy(const RecordingProxy&) = delete;
    RecordingProxy& operator=(const RecordingProxy&) = delete;
    ~RecordingProxy() { Finish(); }

    int Port() const { return m_Port.Port(); }
    void Finish()
    {
        if (m_Thread.joinable()) m_Thread.join();
    }
    // After Finish().
    const std::string& FromRelay() const { return m_FromRelay; }
    const std::string& FromDaemon() const { return m_FromDaemon; }

private:
    void Carry()
    {
        const Descriptor relay = m_Port.Accept();
        const Descriptor daemon = ConnectTo(m_DaemonPort);
        std::string hello = Received(daemon, kHelloBytes);
        if (m_Spoil) m_Spoil(hello);
        m_FromDaemon = hello;
        ::send(relay.Get(), hello.data(), hello.size(), MSG_NOSIGNAL);
        pollfd ends[] = {{relay.Get(), POLLIN, 0}, {daemon.Get(), POLLIN, 0}};
        while (ends[0].fd >= 0 || ends[1].fd >= 0)
        {
            if (::poll(ends, 2, 20000) == 0) return;
            if (ends[0].revents != 0) Pass(ends[0].fd, daemon.Get(), m_FromRelay);
            if (ends[1].revents != 0) Pass(ends[1].fd, relay.Get(), m_FromDaemon);
        }
    }
    static void Pass(int& from, int to, std::string& record)
    {
        char bytes[65536];
        const ssize_t got = ::recv(from, bytes, sizeof bytes, MSG_DONTWAIT);
        if (got <= 0)
        {
            ::shutdown(to, SHUT_WR);
            from = -1;
            return;
        }
        record.append(bytes, static_cast<std::size_t>(got));
        for (ssize_t sent = 0; sent < got;)
        {
            pollfd writable = {to, POLLOUT, 0};
            if (::poll(&writable, 1, 20000) <= 0) return;
            const ssize_t put = ::send(to, bytes + sent, static_cast<std::size_t>(got - sent), MSG_NOSIGNAL);
            if (put < 0 && errno != EAGAIN) return;
            if (put > 0) sent += put;
        }
    }

    OwnPort m_Port;
    int m_DaemonPort;
    std::function<void(std::string&)> m_Spoil;
    std::string m_FromRelay;
    std::string m_FromDaemon;
    std::thread m_Thread;
};

// Every run of eight bytes of `secret`, so that no piece of it is overlooked.
bool HoldsPieceOf(const std::string& secret, const std::string& record)
{
    for (std::size_t i = 0; i + 8 <= secret.size(); ++i)
        if (record.find(secret.substr(i, 8)) != std::string::npos) return true;
    return false;
}
} // namespace

class RemoteWire : public FarEnd
{
protected:
    ChildResult RelayThrough(const RecordingProxy& proxy, const Words& words, const std::string& input = "")
    {
        return BoundedChild(RelayWords(words, proxy.Port())).Finish(KeyMessage(m_Key) + input);
    }
    static char StateOf(pid_t process)
    {
        for (const SeenProcess& each : AllProcesses())
            if (each.process == process) return each.state;
        return '?';
    }
    // What the relay says about a daemon that says `bytes`.
    std::string WordsAbout(const std::string& bytes)
    {
        const OwnPort port;
        std::thread daemon(
            [&]
            {
                const Descriptor relay = port.Accept();
                ::send(relay.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            });
        const ChildResult result = BoundedChild(RelayWords({"-ping"}, port.Port())).Finish(KeyMessage(m_Key));
        daemon.join();
        EXPECT_NE(result.code, 0);
        return result.err;
    }
};

TEST_F(RemoteWire, AfterTheHelloNoByteOfKeyOrContentIsInTheClear)
{
    Start();
    const std::string content = "a content that everyone could read, in pieces or whole";
    RecordingProxy proxy(m_Port);
    const ChildResult result =
        RelayThrough(proxy, {kAssistant, "echo", "an argument of the service"}, content);
    proxy.Finish();
    ASSERT_EQ(result.out, KeyMessage(m_Key) + content);
    ASSERT_GT(proxy.FromRelay().size(), content.size());
    ASSERT_GT(proxy.FromDaemon().size(), content.size());
    EXPECT_EQ(proxy.FromDaemon().substr(0, 8), "qlnsrvd\x01");
    std::string rawKey;
    for (std::size_t i = 0; i < m_Key.size(); i += 2)
        rawKey += static_cast<char>(std::stoi(m_Key.substr(i, 2), nullptr, 16));
    for (const std::string& record : {proxy.FromRelay(), proxy.FromDaemon().substr(kHelloBytes)})
        for (const std::string& secret :
             {m_Key, rawKey, content, std::string(kAssistant), std::string("an argument of the service")})
            EXPECT_FALSE(HoldsPieceOf(secret, record)) << secret;
}

TEST_F(RemoteWire, WithoutAStandardErrorWhatTheServiceSaysThereIsNotInTheClearEither)
{
    Start();
    RecordingProxy proxy(m_Port);
    const ChildResult result =
        BoundedChild(
            Redirected("2>&-", RelayWords({kAssistant, "complain", "a secret of the service"}, proxy.Port())))
            .Finish(KeyMessage(m_Key));
    proxy.Finish();
    EXPECT_EQ(result.code, 1);
    EXPECT_FALSE(HoldsPieceOf("a secret of the service", proxy.FromRelay()));
}

TEST_F(RemoteWire, APasswordIsNotInTheClearEither)
{
    StartDaemon({}, "a person's password");
    RecordingProxy proxy(m_Port);
    EXPECT_EQ(RelayThrough(proxy, {"-ping"}).code, 0);
    proxy.Finish();
    EXPECT_FALSE(HoldsPieceOf(m_Key, proxy.FromRelay()));
    EXPECT_FALSE(HoldsPieceOf(m_Key, proxy.FromDaemon()));
}

TEST_F(RemoteWire, TwoConnectionsWithOneKeyHaveNothingInCommon)
{
    Start();
    RecordingProxy first(m_Port);
    EXPECT_EQ(RelayThrough(first, {kBrowsing, "echo"}, "the same").code, 0);
    RecordingProxy second(m_Port);
    EXPECT_EQ(RelayThrough(second, {kBrowsing, "echo"}, "the same").code, 0);
    first.Finish();
    second.Finish();
    // Behind the handshake's first flight of fixed forms: the last 40 bytes are ciphertext.
    EXPECT_NE(first.FromRelay().substr(first.FromRelay().size() - 40),
              second.FromRelay().substr(second.FromRelay().size() - 40));
}

TEST_F(RemoteWire, AConnectionThatIsPlayedAgainIsRefused)
{
    Start();
    RecordingProxy proxy(m_Port);
    EXPECT_EQ(RelayThrough(proxy, {"-ping"}).code, 0);
    proxy.Finish();
    const Descriptor again = ConnectTo(m_Port);
    EXPECT_EQ(Received(again, kHelloBytes), proxy.FromDaemon().substr(0, kHelloBytes));
    ::send(again.Get(), proxy.FromRelay().data(), proxy.FromRelay().size(), MSG_NOSIGNAL);
    ::shutdown(again.Get(), SHUT_WR);
    const std::string answer = Received(again, 1 << 20);
    EXPECT_LT(answer.size(),
              proxy.FromDaemon().size() - kHelloBytes); // the handshake began, and ended in an alarm
    EXPECT_TRUE(DaemonAnswers());
}

TEST_F(RemoteWire, AHelloThatWasChangedOnTheWayIsNoticed)
{
    Start();
    const auto wordsWith = [this](std::size_t offset, int byte)
    {
        RecordingProxy proxy(m_Port, [=](std::string& hello) { hello[offset] = static_cast<char>(byte); });
        return RelayThrough(proxy, {"-ping"}).err;
    };
    const std::string otherSecret = "qlnsrv, the key is not the one of the qlnsrvd there\n";
    EXPECT_EQ(wordsWith(9, 14),
              "qlnsrv, qlnsrvd there asks for a password hash that is too weak or too costly\n");
    EXPECT_EQ(wordsWith(9, 16), otherSecret); // though a key that marlek made isn't hashed
    for (std::size_t offset = kHelloBytes - kSaltBytes; offset < kHelloBytes; offset += 5)
    {
        const int changed = DecodeHello(Received(ConnectTo(m_Port), kHelloBytes)).salt[offset - 12] ^ 1;
        EXPECT_EQ(wordsWith(offset, changed), otherSecret) << offset;
        EXPECT_TRUE(DaemonAnswers()); // clears the count of wrong keys
    }
}

TEST_F(RemoteWire, WhatAnswersButIsNoDaemonIsTold)
{
    m_Key = std::string(64, 'a');
    const std::string noDaemon = "qlnsrv, what answers there is no qlnsrvd\n";
    EXPECT_EQ(WordsAbout(""), noDaemon);
    EXPECT_EQ(WordsAbout("SSH-2.0-somebody else's program\r\n"), noDaemon);
    EXPECT_EQ(WordsAbout("qlnsrvd\x01"), noDaemon);
    EXPECT_EQ(WordsAbout(EncodeHello(Hello())), "qlnsrv, qlnsrvd there has ended the connection\n");
    EXPECT_EQ(WordsAbout(EncodeHello(Hello()) + std::string(1000, 'x')),
              "qlnsrv, the key is not the one of the qlnsrvd there\n");
}

// It is all there when the relay goes on, and does not fit into its pipe: it finds the end while it still has to write.
TEST_F(RemoteWire, WhatCameBeforeTheConnectionWasLostArrives)
{
    m_Key = std::string(64, 'a');
    const OwnPort port;
    const std::string bytes(360000, 'x');
    std::promise<void> relayStands;
    std::thread daemon(
        [&]
        {
            Descriptor socket = port.Accept();
            const std::string hello = EncodeHello(Hello());
            ::send(socket.Get(), hello.data(), hello.size(), MSG_NOSIGNAL);
            const SharedSecret secret{Key(m_Key), Hello()};
            const ProvingTls tls(ProvingTls::End::Daemon, secret);
            Channel channel(tls, std::move(socket));
            EXPECT_EQ(channel.Prove(Soon()), Channel::Proof::Given);
            EXPECT_TRUE(channel.NextBy(Soon()));
            channel.Send(FrameType::Answer, EncodeAnswer({AnswerStatus::RelayTells, ""}));
            EXPECT_TRUE(channel.FlushBy(Soon()));
            relayStands.get_future().wait();
            channel.SendAll(FrameType::Data, bytes);
            EXPECT_TRUE(channel.FlushBy(Soon()));
        });
    const auto relay = OpenRelay({kBrowsing}, port.Port());
    ::kill(relay->Process(), SIGSTOP);
    EXPECT_TRUE(Eventually([&] { return StateOf(relay->Process()) == 'T'; }));
    relayStands.set_value();
    daemon.join();
    ::kill(relay->Process(), SIGCONT);
    EXPECT_TRUE(Eventually([&] { return StateOf(relay->Process()) == 'S'; }));
    EXPECT_TRUE(relay->Read(bytes.size()) == bytes);
    const ChildResult result = relay->Finish();
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "qlnsrv, the connection was lost\n");
    EXPECT_NE(result.code, 0);
}

TEST_F(RemoteWire, NoCommandLineAndNoEnvironmentHoldsTheKey)
{
    Start();
    const auto relay = OpenRelay({kBrowsing, "echo"});
    std::string commandLines;
    std::string environments;
    for (const SeenProcess& each : Descendants())
    {
        const std::string process = "/proc/" + std::to_string(each.process);
        commandLines += FileText(process + "/cmdline") + "\n";
        environments += FileText(process + "/environ") + "\n"; // empty where the system shows it to nobody
    }
    for (const std::string& program : {Program("qlnsrv"), Program("qlnsrvd"), std::string(kBrowsing)})
        EXPECT_NE(commandLines.find(program + '\0'), std::string::npos) << program;
    EXPECT_FALSE(environments.empty());
    EXPECT_FALSE(HoldsPieceOf(m_Key, commandLines));
    EXPECT_FALSE(HoldsPieceOf(m_Key, environments));
}

// A daemon that only looks at itself and its parent, and at what it is given.
TEST_F(RemoteWire, TheDriverHandsTheKeyOnByPipeAlone)
{
    std::filesystem::remove(Program("qlnsrvd"));
    PutBytes(cow_String(Program("qlnsrvd")), "#!/bin/sh\n"
                                             "cat /proc/$$/cmdline /proc/$PPID/cmdline >$0.lines\n"
                                             "cat /proc/$$/environ /proc/$PPID/environ >$0.environments\n"
                                             "cat >$0.input\n"
                                             "echo listening 4711 $$\n");
    std::filesystem::permissions(Program("qlnsrvd"), std::filesystem::perms(0700));
    const ChildResult result = Marlek({"-port", "auto_assigned", "-timeout", "60", "-automaticServer"});
    const std::string key = result.out.substr(result.out.find(':') + 1, 64);
    EXPECT_EQ(result.out, "4711\n64\nqlnsrvd-key:" + key + "\n");
    EXPECT_EQ(FileText(Program("qlnsrvd.input")), KeyMessage(key));
    std::string lines = FileText(Program("qlnsrvd.lines"));
    std::replace(lines.begin(), lines.end(), '\0', ' ');
    EXPECT_EQ(lines, "/bin/sh " + Program("qlnsrvd") + " -port auto_assigned -timeout 60 " +
                         Program("marlek") +
                         " networkDBConnector -port auto_assigned -timeout 60 -automaticServer ");
    EXPECT_FALSE(FileText(Program("qlnsrvd.environments")).empty());
    EXPECT_FALSE(HoldsPieceOf(key, FileText(Program("qlnsrvd.environments"))));
}
