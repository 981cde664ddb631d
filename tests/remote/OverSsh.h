#pragma once

// The library and the programs together, over the system's own sshd.

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "OwnSshd.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rds.h"

#include <optional>

// Ends a client as its owner has to.
inline void End(rds_Client* client)
{
    client->Reap(0);
    const std::unique_ptr<utl_TempFile> errors(client->StdErrFile());
    delete client;
}

class OverSsh : public FarEnd
{
protected:
    void SetUp() override
    {
        FarEnd::SetUp();
        for (const char* name : {"home", "far", "temp", "mrl/External/qlnsrv"})
            std::filesystem::create_directories(Path(name));
        std::filesystem::create_symlink(Program("qlnsrv"), Path("mrl/External/qlnsrv/qlnsrv"));
        MakeEchoService();
        m_Sshd.emplace(Path("sshd"), Path("far"));
        // The plain remote shell: the same words, the same login.
        std::filesystem::create_symlink(m_Sshd->Path("ssh"), Path("mrl/rsh"));
        for (const auto& [name, value] : {std::pair{"PATH", Path("mrl") + ":/usr/bin:/bin"},
                                          {"MRL_PATH", Path("mrl")},
                                          {"HOME", Path("home")},
                                          {"TMPDIR", Path("temp")}})
            m_Variables.push_back(std::make_unique<EnvironmentVariable>(name, value.c_str()));
        for (const char* name : {"HOMEDRIVE", "HOMEPATH", "nrdx_debug", "SSH_AUTH_SOCK"})
            m_Variables.push_back(std::make_unique<EnvironmentVariable>(name, nullptr));
        m_DescriptorsBefore = OpenDescriptorCount();
    }
    void TearDown() override
    {
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        m_Sshd.reset();
        FarEnd::TearDown();
    }

    rds_RemoteConnection
    Connection(int port = 0, rds_RemoteLoginMechanismEnm login = rds_RemoteLoginMechanismEnm::SSH) const
    {
        return {"box1", "127.0.0.1", "/", Driver(), login, cow_String(m_Sshd->Path("ssh")),
                600,    port,        0,   true};
    }
    // A server with a password, started there by hand; this side has only its port.
    rds_RemoteConnection WithPassword(const std::string& password)
    {
        const ChildResult result = Marlek({"-port", "auto_assigned", "-timeout", "600"}, password);
        EXPECT_EQ(result.code, 0) << result.out;
        return {"box1",
                "127.0.0.1",
                "/",
                Driver(),
                rds_RemoteLoginMechanismEnm::SSH,
                cow_String(m_Sshd->Path("ssh")),
                600,
                0,
                std::stoi(result.out),
                false};
    }
    cow_String Driver() const { return cow_String(Program("marlek")); }
    const OwnSshd& Sshd() const { return *m_Sshd; }
    OwnSshd& Sshd() { return *m_Sshd; }

    // A service sends back what it is sent.
    static void ExpectEcho(const rds_Client& client)
    {
        const std::string sent = "over there and back";
        ASSERT_EQ(::write(client.SinkDescriptor(), sent.data(), sent.size()),
                  static_cast<ssize_t>(sent.size()));
        std::string got;
        char byte = '\0';
        while (got.size() < sent.size() && ::read(client.SourceDescriptor(), &byte, 1) == 1) got += byte;
        EXPECT_EQ(got, sent);
    }
    static void ExpectService(rds_RemoteConnection& connection)
    {
        rds_Client* client = connection.RunRemoteFileService(kBrowsing);
        EXPECT_EQ(connection.RemoteConnectionStatus(), rds_RemoteConnectionStatusEnm::CONNECTED);
        ExpectEcho(*client);
        End(client);
    }
    template <class Action> static std::string Failure(Action action)
    {
        return Thrown<nex_TextException>(action);
    }
    static std::string StartFailure(rds_RemoteConnection& connection)
    {
        return Failure([&] { connection.StartRemoteFileServer(); });
    }
    static std::string RunFailure(rds_RemoteConnection& connection)
    {
        return Failure([&] { End(connection.RunRemoteFileService(kBrowsing)); });
    }
    // All that was started for this test, but for sshd itself, goes by itself.
    bool NothingRuns() const
    {
        return Eventually(
            [this]
            {
                ReapOthers();
                const auto all = Descendants();
                return all.size() == 1 && all.front().process == m_Sshd->Process();
            });
    }

private:
    // Those that lost their parent are this process's to ask for.
    void ReapOthers() const
    {
        for (const SeenProcess& each : Descendants())
            if (each.state == 'Z' && each.parent == ::getpid() && each.process != m_Sshd->Process())
                ::waitpid(each.process, nullptr, WNOHANG);
    }
    void MakeEchoService() const
    {
        std::filesystem::remove(Program(kBrowsing));
        std::ofstream(Program(kBrowsing)) << "#!/bin/sh\nexec '" << Program(kAssistant) << "' echo\n";
        std::filesystem::permissions(Program(kBrowsing), std::filesystem::perms(0700));
    }

    std::optional<OwnSshd> m_Sshd;
    std::vector<std::unique_ptr<EnvironmentVariable>> m_Variables;
    int m_DescriptorsBefore = 0;
};
