// A connection of the tool over the system's own sshd, from the login to the end of the server.
#include "OwnSshd.h"
#include "RemoteToolScene.h"

#include <optional>

namespace
{
using testing::HasSubstr;

class RfmOverSsh : public RemoteToolScene
{
protected:
    void SetUp() override
    {
        RemoteToolScene::SetUp();
        m_Sshd.emplace(Path("sshd"), Path("data"));
    }
    void TearDown() override
    {
        m_Sshd.reset();
        RemoteToolScene::TearDown();
    }
    std::string Login() const override { return m_Sshd->Path("ssh"); }
    OwnSshd& Sshd() { return *m_Sshd; }
    bool OnlySshdRuns() const
    {
        return Eventually(
            [this]
            {
                const auto all = Descendants();
                for (const SeenProcess& each : all)
                    if (each.state == 'Z' && each.parent == ::getpid() && each.process != m_Sshd->Process())
                        ::waitpid(each.process, nullptr, WNOHANG);
                return all.size() == 1 && all.front().process == m_Sshd->Process();
            });
    }

private:
    std::optional<OwnSshd> m_Sshd;
};
} // namespace

TEST_F(RfmOverSsh, FromTheLoginToTheEndOfTheServer)
{
    AddAndStart();
    const std::string where = " (127.0.0.1 port " + std::to_string(m_Port) + ")\n";
    EXPECT_EQ(Connect({"ping", "box1"}).out, "box1: the server answers" + where);
    EXPECT_THAT(Run({"browse", Connector("")}).out, HasSubstr("\tjob.rdx\n"));
    EXPECT_EQ(Run({"hash", Connector()}).out, Run({"hash", kJob()}).out);
    EXPECT_EQ(Run({"rows", Connector(), "NODES"}).out, Run({"rows", kJob(), "NODES"}).out);
    EXPECT_EQ(Run({"get", Connector(), Path("out.rdx")}).code, 0);
    EXPECT_EQ(FileText(Path("out.rdx")), FileText(kJob()));
    EXPECT_EQ(Connect({"stop", "box1"}).out, "box1: the server has ended (127.0.0.1)\n");
    EXPECT_TRUE(OnlySshdRuns());
}

TEST_F(RfmOverSsh, ALoginThatIsNotLetInIsToldWithWhatToDo)
{
    Add();
    Sshd().UseKey("other_key");
    const ChildResult refused = Connect({"start", "box1"});
    EXPECT_EQ(refused.code, 6);
    EXPECT_THAT(refused.err, HasSubstr("reason: "));
    EXPECT_THAT(refused.err, HasSubstr("Permission denied (publickey)"));
    EXPECT_THAT(refused.err, HasSubstr("; ssh has to log in without asking: give the host a key of ssh's\n"));
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1);
    Sshd().Stop();
    EXPECT_THAT(Connect({"start", "box1"}).err, HasSubstr("Connection refused"));
}
