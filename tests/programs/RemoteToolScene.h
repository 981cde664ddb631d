#pragma once

// The tool, the relay, the daemon and both services, each the real one, with folders of the test's own.

#include "CommandLines.h"
#include "EnvironmentVariable.h"
#include "FarEnd.h"
#include "SampleDatabase.h"

#include <cctype>
#include <memory>
#include <utility>

class RemoteToolScene : public FarEnd
{
protected:
    void SetUp() override
    {
        FarEnd::SetUp();
        for (const char* folder : {"temp", "home", "data", "mrl/External/qlnsrv"})
            std::filesystem::create_directories(Path(folder));
        for (const auto& [name, program] :
             {std::pair{kBrowsing, RFM_FILE_BROWSING}, {kAssistant, RFM_FILE_ASSISTANT}})
        {
            std::filesystem::remove(Program(name));
            std::filesystem::create_symlink(program, Program(name));
        }
        std::filesystem::create_symlink(Program("qlnsrv"), Path("mrl/External/qlnsrv/qlnsrv"));
        MakeLogin();
        for (const auto& [name, value] : {std::pair{"PATH", Path("bin") + ":/usr/bin:/bin"},
                                          {"MRL_PATH", Path("mrl")},
                                          {"HOME", Path("home")},
                                          {"XDG_CONFIG_HOME", Path("config")},
                                          {"TMPDIR", Path("temp")}})
            Set(name, value.c_str());
        for (const char* name : {"HOMEDRIVE", "HOMEPATH", "nrdx_debug", "SSH_AUTH_SOCK"}) Set(name, nullptr);
        MakeSample(kJob());
    }
    // Whatever a run did: no temporary file stays, and no output has a key in it.
    void TearDown() override
    {
        EXPECT_TRUE(std::filesystem::is_empty(Path("temp")));
        for (const std::string& key : m_Keys) EXPECT_THAT(m_Said, ::testing::Not(::testing::HasSubstr(key)));
        FarEnd::TearDown();
        while (!m_Variables.empty())
            m_Variables.pop_back(); // one that was set twice gets its first value back
    }

    void Set(const char* name, const char* value)
    {
        m_Variables.push_back(std::make_unique<EnvironmentVariable>(name, value));
    }

    std::string kJob() const { return Path("data/job.rdx"); }
    static std::string Connector(const std::string& path = "job.rdx")
    {
        return "Network connectors/box1/" + path;
    }
    static std::string LocalUrl(const std::string& path) { return "mrkrdb://localhost/" + path; }
    std::string ConnectionFile() const { return Path("config/rfm/connections"); }

    static Words ToolWords(Words words)
    {
        words.insert(words.begin(), RFM_TOOL);
        return words;
    }
    ChildResult Run(const Words& words, const std::string& outputFile = "")
    {
        ChildResult result = BoundedChild(ToolWords(words), outputFile).Finish();
        m_Said += result.out + result.err;
        return result;
    }
    ChildResult Connect(Words words)
    {
        words.insert(words.begin(), "connect");
        return Run(words);
    }
    void ExpectFailure(const Words& words, int code, const std::string& line)
    {
        const ChildResult result = Run(words);
        EXPECT_EQ(result.code, code) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
    }

    /// A connection "box1" to the folder "data", with the login of `Login()`.
    void Add(const Words& more = {})
    {
        Words words{"add",   "box1", "127.0.0.1", "--directory", Path("data"), "--driver", Program("marlek"),
                    "--ssh", Login()};
        words.insert(words.end(), more.begin(), more.end());
        const ChildResult added = Connect(words);
        ASSERT_EQ(added.code, 0) << added.err;
    }
    /// Starts its server, and takes note of the daemon, its port and its key.
    void AddAndStart()
    {
        Add();
        const ChildResult started = Connect({"start", "box1"});
        ASSERT_EQ(started.code, 0) << started.err;
        TakeServer(started.out);
    }
    void TakeServer(const std::string& told)
    {
        const std::string before = "box1: the server listens (127.0.0.1 port ";
        ASSERT_EQ(told.substr(0, before.size()), before);
        m_Port = std::stoi(told.substr(before.size()));
        m_Daemon = TheDaemon();
        m_Keys.push_back(StoredKey());
    }
    /// The key of 64 characters that marlek made, out of the file of connections.
    std::string StoredKey() const
    {
        const std::string bytes = FileText(ConnectionFile());
        std::size_t length = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
        {
            length = std::isxdigit(static_cast<unsigned char>(bytes[i])) != 0 ? length + 1 : 0;
            if (length == 64) return bytes.substr(i - 63, 64);
        }
        ADD_FAILURE() << "there is no key in the file of connections";
        return "";
    }
    std::string Url(const std::string& path) const
    {
        return "mrkrdb://127.0.0.1:" + std::to_string(m_Port) + "/" + path;
    }
    void KillDaemon() const
    {
        ::kill(m_Daemon, SIGKILL);
        EXPECT_TRUE(Eventually([this] { return ReapAll() && !ConnectTo(m_Port).IsOpen(); }));
    }
    virtual std::string Login() const { return Path("login"); }

    std::string m_Said; // all that the runs of `Run` wrote
    std::vector<std::string> m_Keys;

private:
    // Stands in for ssh: runs the words on this host, as a login there would.
    void MakeLogin() const
    {
        std::ofstream(Path("login")) << "#!/bin/sh\nshift\n"
                                        "while case \"$1\" in -*) true ;; *) false ;; esac; do shift; done\n"
                                        "exec sh -c \"$*\"\n";
        std::filesystem::permissions(Path("login"), std::filesystem::perms(0700));
    }

    std::vector<std::unique_ptr<EnvironmentVariable>> m_Variables;
};
