#include "Channel.h"
#include "Wire.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <thread>

using namespace farend;
using namespace std::chrono_literals;

namespace
{
const SharedSecret& Secret()
{
    static const SharedSecret secret(Key(std::string(64, 'a')), Hello());
    return secret;
}

// Two ends that have proved the secret to each other.
class ChannelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::signal(SIGPIPE, SIG_IGN);
        std::thread daemonEnd([this] { EXPECT_EQ(m_Daemon.Prove(Soon()), Channel::Proof::Given); });
        EXPECT_EQ(m_Relay.Prove(Soon()), Channel::Proof::Given);
        daemonEnd.join();
    }
    static Deadline Soon() { return Deadline::In(20s); }
    // All data up to a frame of another type.
    static std::string TakeData(Channel& channel, std::size_t& frameCount)
    {
        std::string all;
        for (auto frame = channel.NextBy(Soon()); frame && frame->type == FrameType::Data;
             frame = channel.NextBy(Soon()))
        {
            all += frame->payload;
            ++frameCount;
        }
        return all;
    }
    static std::string Counted(std::size_t count)
    {
        std::string bytes(count, '\0');
        for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i % 251);
        return bytes;
    }

private:
    Wire m_Wire;
    const ProvingTls m_RelayTls{ProvingTls::End::Relay, Secret()};
    const ProvingTls m_DaemonTls{ProvingTls::End::Daemon, Secret()};

protected:
    Channel m_Relay{m_RelayTls, std::move(m_Wire.relay)};
    Channel m_Daemon{m_DaemonTls, std::move(m_Wire.daemon)};
};
} // namespace

TEST_F(ChannelTest, BytesOfManyFramesArriveInFullFramesAndAsTheyWere)
{
    const std::string bytes = Counted(kTransferPayloadBytes + 1);
    std::size_t frameCount = 0;
    std::string arrived;
    std::thread relayEnd([&] { arrived = TakeData(m_Relay, frameCount); });
    m_Daemon.SendAll(FrameType::Data, bytes);
    m_Daemon.Send(FrameType::End, {});
    EXPECT_TRUE(m_Daemon.FlushBy(Soon()));
    relayEnd.join();
    EXPECT_TRUE(arrived == bytes);
    EXPECT_EQ(frameCount, kFramesPerTransfer + 1);
}

TEST_F(ChannelTest, NoBytesAreNoFrame)
{
    m_Daemon.SendAll(FrameType::Data, {});
    EXPECT_FALSE(m_Daemon.HasQueued());
}

// Whoever polls the socket only when it has something new would never see the later ones.
TEST_F(ChannelTest, FramesThatArrivedTogetherAreTakenWithoutMoreFromTheSocket)
{
    for (const char* word : {"one", "two", "three"}) m_Relay.Send(FrameType::Data, word);
    ASSERT_TRUE(m_Relay.FlushBy(Soon()));
    ASSERT_EQ(m_Daemon.NextBy(Soon())->payload, "one");
    pollfd socket = {m_Daemon.Socket(), POLLIN, 0};
    EXPECT_EQ(::poll(&socket, 1, 0), 0);
    EXPECT_EQ(m_Daemon.Next()->payload, "two");
    EXPECT_EQ(m_Daemon.Next()->payload, "three");
    EXPECT_FALSE(m_Daemon.Next());
    EXPECT_FALSE(m_Daemon.HasEnded());
}

TEST_F(ChannelTest, WhatTheSocketDoesNotTakeStaysQueuedAndWantsRoom)
{
    const std::string bytes = Counted(std::size_t{8} << 20);
    m_Daemon.SendAll(FrameType::Data, bytes);
    m_Daemon.Flush();
    EXPECT_TRUE(m_Daemon.HasQueued());
    EXPECT_FALSE(m_Daemon.HasRoom());
    EXPECT_EQ(m_Daemon.Events(false), POLLOUT);
    std::size_t frameCount = 0;
    std::string arrived;
    std::thread relayEnd([&] { arrived = TakeData(m_Relay, frameCount); });
    m_Daemon.Send(FrameType::End, {});
    EXPECT_TRUE(m_Daemon.FlushBy(Soon()));
    relayEnd.join();
    EXPECT_TRUE(arrived == bytes);
    EXPECT_FALSE(m_Daemon.HasQueued());
    EXPECT_EQ(m_Daemon.Events(false), 0);
}

// The last record may fit into the buffer in front of a socket that takes nothing more: it counts as queued there, too.
TEST_F(ChannelTest, ARecordThatWaitsInFrontOfTheSocketCountsAsQueued)
{
    const std::string bytes = Counted(kMostPayloadBytes);
    std::size_t sentCount = 0;
    for (; !m_Daemon.HasQueued() && sentCount < 10000; ++sentCount)
    {
        m_Daemon.Send(FrameType::Data, bytes);
        m_Daemon.Flush();
    }
    ASSERT_TRUE(m_Daemon.HasQueued());
    EXPECT_TRUE(m_Daemon.HasRoom()); // all of it is in records already
    EXPECT_EQ(m_Daemon.Events(false), POLLOUT);
    std::size_t frameCount = 0;
    std::thread relayEnd([&] { TakeData(m_Relay, frameCount); });
    m_Daemon.Send(FrameType::End, {});
    EXPECT_TRUE(m_Daemon.FlushBy(Soon()));
    relayEnd.join();
    EXPECT_EQ(frameCount, sentCount);
}

TEST_F(ChannelTest, WhereTheOtherEndHasGoneNothingIsQueued)
{
    m_Daemon.SendAll(FrameType::Data, Counted(std::size_t{8} << 20));
    m_Daemon.Flush();
    ASSERT_TRUE(m_Daemon.HasQueued());
    ::shutdown(m_Relay.Socket(), SHUT_RDWR);
    EXPECT_FALSE(m_Daemon.FlushBy(Soon()));
    EXPECT_TRUE(m_Daemon.IsDeaf());
    EXPECT_FALSE(m_Daemon.HasQueued());
    EXPECT_EQ(m_Daemon.Events(false), 0);
}
