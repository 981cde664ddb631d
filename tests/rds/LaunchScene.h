#pragma once

// A host for the library's children to meet: programs of the test's own stand in for the remote shells and the relay.

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rds.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>

class LaunchScene : public ::testing::Test
{
protected:
    using Login = rds_RemoteLoginMechanismEnm;
    using Status = rds_RemoteConnectionStatusEnm;

    LaunchScene()
    {
        for (const char* name : {"bin", "home", "temp", "mrl/External/qlnsrv"})
            std::filesystem::create_directories(Path(name));
        // The report of a server with an assigned port.
        Put("report", "40001\n8\nqlnsrvd-key:abcdefgh\n");
    }
    // Whatever a test does: no child, no zombie, no temporary file, no descriptor stays.
    ~LaunchScene() override
    {
        EXPECT_TRUE(HasNoChildren());
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        EXPECT_EQ(OpenDescriptorCount(), m_DescriptorsBefore);
    }

    std::string Path(const std::string& name) const { return m_Folder.Path() + "/" + name; }
    std::string Text(const std::string& name) const { return BytesOf(cow_String(Path(name))); }
    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }
    void Put(const std::string& name, std::string_view bytes, mode_t mode = 0600) const
    {
        PutBytes(cow_String(Path(name)), bytes);
        ::chmod(Path(name).c_str(), mode);
    }

    // A program at `path` that keeps its words in the file "words" and then runs `script`, in the test's folder.
    void StandIn(const std::string& path, const std::string& script) const
    {
        const std::string keepWords = "printf '%s' \"${0##*/}\" > words\n"
                                      "for word in \"$@\"; do printf ' [%s]' \"$word\" >> words; done\n";
        Put(path, "#!/bin/sh\ncd '" + m_Folder.Path() + "'\n" + keepWords + script + "\n", 0700);
    }
    void Shell(const std::string& script) const
    {
        StandIn("bin/ssh", script);
        StandIn("bin/rsh", script);
    }
    void Relay(const std::string& script) const { StandIn("mrl/External/qlnsrv/qlnsrv", script); }
    static std::string Print(const std::string& lines) { return "printf '" + lines + "'\n"; }
    std::string Words() const { return Text("words"); }

    static rds_RemoteConnection Connection(int serverPort, int connectPort = 0, bool startServer = true,
                                           Login login = Login::SSH, const cow_String& program = "",
                                           const cow_String& host = "hpc7")
    {
        return {"box1",  host,  "/scratch/run", "rundriver", login,
                program, 86400, serverPort,     connectPort, startServer};
    }
    // A record with a key, whose server runs.
    static std::unique_ptr<rds_RemoteConnection> Running(const cow_String& key = "abcdefgh")
    {
        auto connection = std::make_unique<rds_RemoteConnection>(Connection(40000, 40001));
        connection->SetqlnsrvdKey(key);
        return connection;
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
        return Failure([&] { End(connection.RunRemoteFileService("service")); });
    }
    static void End(rds_Client* client)
    {
        if (client == nullptr) return;
        client->Reap(0);
        const std::unique_ptr<utl_TempFile> errors(client->StdErrFile());
        delete client;
    }

    static constexpr const char* kNothingThrown = "nothing was thrown";

private:
    int m_DescriptorsBefore = OpenDescriptorCount();
    TestFolder m_Folder;
    EnvironmentVariable m_Path{"PATH", (Path("bin") + ":/usr/bin:/bin").c_str()};
    EnvironmentVariable m_Relay{"MRL_PATH", Path("mrl").c_str()};
    EnvironmentVariable m_Home{"HOME", Path("home").c_str()};
    EnvironmentVariable m_Temp{"TMPDIR", Path("temp").c_str()};
    EnvironmentVariable m_HomeDrive{"HOMEDRIVE", nullptr};
    EnvironmentVariable m_HomePath{"HOMEPATH", nullptr};
    EnvironmentVariable m_Debug{"nrdx_debug", nullptr};
};
