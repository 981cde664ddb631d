#include "Socket.h"

#include "Descriptor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using farend::Deadline;

TEST(FarEndDeadline, IsSharedAmongThoseWhoComeAfterEachOther)
{
    const Deadline whole = Deadline::In(90min);
    EXPECT_LT(whole.Share(3), Deadline::In(40min));
    EXPECT_GT(whole.Share(3), Deadline::In(20min));
    EXPECT_LE(whole.Share(1), whole);
    EXPECT_GT(whole.Share(1), Deadline::In(80min));
    EXPECT_EQ(Deadline().Share(3), Deadline()); // for ever is for ever
}

TEST(FarEndSocket, NoticesThatTheOtherHostIsGoneWhileDataAreOnTheirWayToo)
{
    const farend::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    farend::SetUpConnection(socket.Get());
    const auto value = [&](int level, int option)
    {
        int number = -1;
        socklen_t bytes = sizeof number;
        ::getsockopt(socket.Get(), level, option, &number, &bytes);
        return number;
    };
    EXPECT_EQ(value(SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(value(IPPROTO_TCP, TCP_KEEPIDLE), 60);
    EXPECT_EQ(value(IPPROTO_TCP, TCP_USER_TIMEOUT), 120000); // milliseconds
}
