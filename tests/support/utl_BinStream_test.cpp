#include "Descriptors.h"
#include "Forked.h"
#include "Thrown.h"
#include "utl_BinIStream.h"
#include "utl_BinOStream.h"
#include "utl_BinStreamFormat.h"
#include "utl_PipeSignal.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>

namespace
{
constexpr omi_Swapper::EndianType kPipe = omi_Swapper::Pipe;
constexpr omi_Swapper::EndianType kStored = omi_Swapper::Stored;
constexpr const char* kEnded = "*** ERROR: Can't read stream, reason:\n  It has ended.";
constexpr const char* kNoReader = "*** ERROR: Can't write stream, reason:\n  Broken pipe.";

/// All that comes out of a descriptor until its end.
std::string All(int descriptor)
{
    std::string all;
    char piece[4096];
    for (ssize_t moved = 0; (moved = ::read(descriptor, piece, sizeof piece)) > 0;)
        all.append(piece, static_cast<std::size_t>(moved));
    return all;
}

/// The bytes that `write` sends through a stream.
template <class Action> std::string Written(omi_Swapper::EndianType order, Action write)
{
    Pipe pipe;
    utl_BinOStream out(pipe.WriteEnd(), order);
    write(out);
    pipe.CloseWriteEnd();
    return All(pipe.ReadEnd());
}

/// Applies `read` to a stream of exactly these bytes.
template <class Action> auto FromBytes(omi_Swapper::EndianType order, std::string_view bytes, Action read)
{
    Pipe pipe;
    EXPECT_EQ(::write(pipe.WriteEnd(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    pipe.CloseWriteEnd();
    utl_BinIStream in(pipe.ReadEnd(), order);
    return read(in);
}

template <std::size_t N> std::string_view Bytes(const char (&literal)[N]) { return {literal, N - 1}; }

void WriteOneOfEach(utl_BinOStream& out)
{
    out.WriteSchar(-2);
    out.WriteUchar(254);
    out.WriteShort(0x0102);
    out.WriteInt(0x01020304);
    out.WriteUInt(0xFFFEFDFCU);
    out.WriteInt64(0x0102030405060708);
    out.WriteUInt64(0xFFFEFDFCFBFAF9F8U);
    out.WriteString("key");
    out.Write("raw", 3);
}

constexpr const char kOneOfEachOnAPipe[] = "\xFE"
                                           "\xFE"
                                           "\x01\x02"
                                           "\x01\x02\x03\x04"
                                           "\xFF\xFE\xFD\xFC"
                                           "\x01\x02\x03\x04\x05\x06\x07\x08"
                                           "\xFF\xFE\xFD\xFC\xFB\xFA\xF9\xF8"
                                           "\0\0\0\x03key"
                                           "raw";
constexpr const char kOneOfEachStored[] = "\xFE"
                                          "\xFE"
                                          "\x02\x01"
                                          "\x04\x03\x02\x01"
                                          "\xFC\xFD\xFE\xFF"
                                          "\x08\x07\x06\x05\x04\x03\x02\x01"
                                          "\xF8\xF9\xFA\xFB\xFC\xFD\xFE\xFF"
                                          "\x03\0\0\0key"
                                          "raw";

void ExpectOneOfEach(utl_BinIStream& in)
{
    EXPECT_EQ(in.ReadSchar(), -2);
    EXPECT_EQ(in.ReadSchar(), -2);
    EXPECT_EQ(in.ReadShort(), 0x0102);
    EXPECT_EQ(in.ReadInt(), 0x01020304);
    EXPECT_EQ(in.ReadUInt(), 0xFFFEFDFCU);
    EXPECT_EQ(in.ReadInt64(), 0x0102030405060708);
    EXPECT_EQ(in.ReadUInt64(), 0xFFFEFDFCFBFAF9F8U);
    EXPECT_EQ(in.ReadString().View(), "key");
    char raw[3];
    in.Read(raw, 3);
    EXPECT_EQ(std::string(raw, 3), "raw");
}

/// The outcome of an action in a process of its own, where SIGPIPE does what it does by itself: it kills.
template <class Action> int WithDeadlySignal(Action action)
{
    return ExitCodeOfForked(
        [&]
        {
            ::signal(SIGPIPE, SIG_DFL);
            return action();
        });
}

std::atomic<int> s_Signals = 0;
void CountSignal(int) { s_Signals.fetch_add(1); }
} // namespace

// --- bytes

TEST(utl_BinStream, EachTypeHasTheBytesOfItsPictureInBothOrders)
{
    EXPECT_EQ(Written(kPipe, WriteOneOfEach), Bytes(kOneOfEachOnAPipe));
    EXPECT_EQ(Written(kStored, WriteOneOfEach), Bytes(kOneOfEachStored));
}

TEST(utl_BinStream, EachTypeIsReadFromTheBytesOfItsPictureInBothOrders)
{
    FromBytes(kPipe, Bytes(kOneOfEachOnAPipe), ExpectOneOfEach);
    FromBytes(kStored, Bytes(kOneOfEachStored), ExpectOneOfEach);
}

TEST(utl_BinStream, TheExtremesOfEachTypeComeBack)
{
    Pipe pipe;
    utl_BinOStream out(pipe.WriteEnd(), kPipe);
    utl_BinIStream in(pipe.ReadEnd(), kPipe);
    for (const int value : {-128, -1, 0, 127})
    {
        out.WriteSchar(static_cast<signed char>(value));
        EXPECT_EQ(in.ReadSchar(), value);
    }
    for (const int value : {-32768, -1, 0, 32767})
    {
        out.WriteShort(static_cast<short>(value));
        EXPECT_EQ(in.ReadShort(), value);
    }
    for (const int value : {INT_MIN, -1, 0, INT_MAX})
    {
        out.WriteInt(value);
        EXPECT_EQ(in.ReadInt(), value);
        out.WriteUInt(static_cast<unsigned>(value));
        EXPECT_EQ(in.ReadUInt(), static_cast<unsigned>(value));
    }
    for (const std::int64_t value : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, INT64_MAX})
    {
        out.WriteInt64(value);
        EXPECT_EQ(in.ReadInt64(), value);
        out.WriteUInt64(static_cast<std::uint64_t>(value));
        EXPECT_EQ(in.ReadUInt64(), static_cast<std::uint64_t>(value));
    }
}

TEST(utl_BinStream, AUcharIsAByteWithoutASign)
{
    EXPECT_EQ(Written(kPipe, [](utl_BinOStream& out) { out.WriteUchar(255); }), "\xFF");
}

// --- texts

TEST(utl_BinStream, AnEmptyTextIsItsLengthAlone)
{
    EXPECT_EQ(Written(kPipe, [](utl_BinOStream& out) { out.WriteString(""); }), Bytes("\0\0\0\0"));
    EXPECT_TRUE(
        FromBytes(kPipe, Bytes("\0\0\0\0"), [](utl_BinIStream& in) { return in.ReadString().IsEmpty(); }));
}

TEST(utl_BinStream, ATextKeepsItsNulBytes)
{
    const cow_String text("a\0b\0", 4);
    EXPECT_EQ(Written(kPipe, [&](utl_BinOStream& out) { out.WriteString(text); }), Bytes("\0\0\0\4a\0b\0"));
    FromBytes(kPipe, Bytes("\0\0\0\4a\0b\0"), [&](utl_BinIStream& in) { EXPECT_EQ(in.ReadString(), text); });
}

TEST(utl_BinStream, TextsOfEveryLengthAroundThePiecesOfTheReaderComeBack)
{
    const int piece = 64 * 1024;
    for (const int length : {1, piece - 1, piece, piece + 1, 2 * piece, 2 * piece + 1, 4 * piece + 1,
                             static_cast<int>(utl_MostStringBytes)})
    {
        std::string text(static_cast<std::size_t>(length), '\0');
        for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i * 7 / 3 % 26);
        Pipe pipe;
        std::thread writer([&] { utl_BinOStream(pipe.WriteEnd(), kPipe).WriteString(cow_String(text)); });
        const cow_String back = utl_BinIStream(pipe.ReadEnd(), kPipe).ReadString();
        writer.join();
        EXPECT_TRUE(back.View() == text) << length;
        EXPECT_EQ(back.CString()[back.Length()], '\0');
    }
}

TEST(utl_BinStream, ALengthAboveTheLimitIsRefusedBeforeItsBytesAreWaitedFor)
{
    for (const std::string_view claim :
         {Bytes("\x01\0\0\x01"), Bytes("\x7F\xFF\xFF\xFF"), Bytes("\x80\0\0\0"), Bytes("\xFF\xFF\xFF\xFF")})
    {
        Pipe pipe; // whose write end stays open: a reader that went on would wait for ever
        ASSERT_EQ(::write(pipe.WriteEnd(), claim.data(), claim.size()), 4);
        utl_BinIStream in(pipe.ReadEnd(), kPipe);
        EXPECT_EQ(Thrown<utl_BinStreamReadError>([&] { in.ReadString(); }),
                  "*** ERROR: Can't read stream, reason:\n  A text claims to be longer than 16 MiB.");
    }
}

TEST(utl_BinStream, ALengthThatIsOnlyClaimedEndsWithTheStream)
{
    for (const std::string_view bytes : {Bytes("\x01\0\0\0"), Bytes("\x01\0\0\0some"), Bytes("\0\0\0\2a")})
        FromBytes(kPipe, bytes,
                  [](utl_BinIStream& in)
                  { EXPECT_EQ(Thrown<utl_BinStreamEOF>([&] { in.ReadString(); }), kEnded); });
}

TEST(utl_BinStream, ATextAboveTheLimitIsNotWritten)
{
    const cow_String text(std::string(utl_MostStringBytes + 1, 'x'));
    EXPECT_EQ(Written(kPipe,
                      [&](utl_BinOStream& out)
                      {
                          EXPECT_EQ(
                              Thrown<utl_BinStreamReadError>([&] { out.WriteString(text); }),
                              "*** ERROR: Can't write stream, reason:\n  The text is longer than 16 MiB.");
                      }),
              "");
}

// --- the end of a stream

TEST(utl_BinStream, ACutAnywhereIsTheEndOfTheStream)
{
    const std::string_view whole = Bytes(kOneOfEachOnAPipe);
    for (std::size_t length = 0; length < whole.size(); ++length)
        FromBytes(kPipe, whole.substr(0, length),
                  [&](utl_BinIStream& in)
                  {
                      const auto readAll = [&]
                      {
                          in.ReadSchar();
                          in.ReadSchar();
                          in.ReadShort();
                          in.ReadInt();
                          in.ReadUInt();
                          in.ReadInt64();
                          in.ReadUInt64();
                          in.ReadString();
                          char raw[3];
                          in.Read(raw, 3);
                      };
                      EXPECT_EQ(Thrown<utl_BinStreamEOF>(readAll), kEnded) << length;
                  });
}

TEST(utl_BinStream, AWriteWithoutAReaderIsTheEndAndDoesNotKill)
{
    const int answer = WithDeadlySignal(
        []
        {
            Pipe pipe;
            pipe.CloseReadEnd();
            utl_BinOStream out(pipe.WriteEnd(), kPipe);
            for (int round = 0; round < 3; ++round)
                if (Thrown<utl_BinStreamEOF>([&] { out.WriteInt(1); }) != kNoReader) return 1;
            return 0;
        });
    EXPECT_EQ(answer, 0);
}

TEST(utl_BinStream, AReaderThatLeavesInTheMiddleOfALongWriteIsTheEnd)
{
    const int answer = WithDeadlySignal(
        []
        {
            Pipe pipe;
            std::thread reader(
                [&]
                {
                    char some[100];
                    if (::read(pipe.ReadEnd(), some, sizeof some) > 0) pipe.CloseReadEnd();
                });
            const std::string bytes(10 * 1024 * 1024, 'x');
            utl_BinOStream out(pipe.WriteEnd(), kPipe);
            const std::string text =
                Thrown<utl_BinStreamEOF>([&] { out.Write(bytes.data(), static_cast<int>(bytes.size())); });
            reader.join();
            return text == kNoReader ? 0 : 1;
        });
    EXPECT_EQ(answer, 0);
}

TEST(utl_BinStream, ASocketWithoutAReaderIsTheEndAndDoesNotKill)
{
    const int answer = WithDeadlySignal(
        []
        {
            int ends[2];
            if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 90;
            ::close(ends[1]);
            utl_BinOStream out(ends[0], kPipe);
            return Thrown<utl_BinStreamEOF>([&] { out.WriteInt(1); }) == kNoReader ? 0 : 1;
        });
    EXPECT_EQ(answer, 0);
}

TEST(utl_BinStream, ValuesPassThroughASocketToo)
{
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    utl_BinOStream out(ends[0], kPipe);
    WriteOneOfEach(out);
    utl_BinIStream in(ends[1], kPipe);
    ExpectOneOfEach(in);
    ::close(ends[0]);
    EXPECT_EQ(Thrown<utl_BinStreamEOF>([&] { in.ReadSchar(); }), kEnded);
    ::close(ends[1]);
}

// --- the program's own signals

TEST(utl_BinStream, TheProgramsOwnHandlerOfTheSignalStaysAndIsNotCalled)
{
    s_Signals = 0;
    const auto before = ::signal(SIGPIPE, CountSignal);
    Pipe pipe;
    pipe.CloseReadEnd();
    utl_BinOStream out(pipe.WriteEnd(), kPipe);
    EXPECT_THROW(out.WriteInt(1), utl_BinStreamEOF);
    EXPECT_EQ(s_Signals, 0);
    ::raise(SIGPIPE);
    EXPECT_EQ(s_Signals, 1) << "not blocked afterwards either";
    EXPECT_EQ(::signal(SIGPIPE, before), CountSignal);
}

TEST(utl_BinStream, ASignalThatWasPendingBeforeStaysPending)
{
    sigset_t alone;
    sigemptyset(&alone);
    sigaddset(&alone, SIGPIPE);
    sigset_t before;
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &alone, &before), 0);
    ::raise(SIGPIPE);
    {
        Pipe pipe;
        pipe.CloseReadEnd();
        utl_BinOStream out(pipe.WriteEnd(), kPipe);
        EXPECT_THROW(out.WriteInt(1), utl_BinStreamEOF);
    }
    sigset_t now;
    pthread_sigmask(SIG_BLOCK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGPIPE), 1) << "the program's mask stays";
    const timespec atOnce{};
    EXPECT_EQ(sigtimedwait(&alone, nullptr, &atOnce), SIGPIPE);
    EXPECT_EQ(sigtimedwait(&alone, nullptr, &atOnce), -1) << "and there is no second one";
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(utl_BinStream, AProgramThatIgnoresTheSignalSeesTheEndToo)
{
    const auto before = ::signal(SIGPIPE, SIG_IGN);
    Pipe pipe;
    pipe.CloseReadEnd();
    utl_BinOStream out(pipe.WriteEnd(), kPipe);
    EXPECT_THROW(out.WriteInt(1), utl_BinStreamEOF);
    EXPECT_EQ(::signal(SIGPIPE, before), SIG_IGN);
}

TEST(utl_BinStream, SignalsInTheMiddleOfATransferChangeNothing)
{
    // In a process of its own: a clock interrupts its one transferring thread every millisecond.
    const int answer = ExitCodeOfForked(
        []
        {
            struct sigaction action
            {
            };
            action.sa_handler = CountSignal; // without SA_RESTART
            ::sigaction(SIGALRM, &action, nullptr);
            s_Signals = 0;
            sigset_t alarm;
            sigemptyset(&alarm);
            sigaddset(&alarm, SIGALRM);
            pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
            Pipe to;
            Pipe from;
            // The other side waits for interruptions, before it sends, and again before it takes the rest.
            std::thread other(
                [&]
                {
                    while (s_Signals < 5) ::sched_yield();
                    static_cast<void>(::write(to.WriteEnd(), "\1\2", 2));
                    while (s_Signals < 10) ::sched_yield();
                    static_cast<void>(::write(to.WriteEnd(), "\3\4", 2));
                    while (s_Signals < 15) ::sched_yield();
                    All(from.ReadEnd());
                });
            pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
            const itimerval every{{0, 1000}, {0, 1000}};
            ::setitimer(ITIMER_REAL, &every, nullptr);
            const bool read = utl_BinIStream(to.ReadEnd(), kPipe).ReadInt() == 0x01020304;
            const std::string bytes(1024 * 1024, 'x');
            utl_BinOStream(from.WriteEnd(), kPipe).Write(bytes.data(), static_cast<int>(bytes.size()));
            from.CloseWriteEnd();
            other.join();
            return read && s_Signals >= 15 ? 0 : 1;
        });
    EXPECT_EQ(answer, 0);
}

// --- short transfers

TEST(utl_BinStream, ALongWriteThroughANarrowPipeArrivesWhole)
{
    Pipe pipe;
    ASSERT_GE(::fcntl(pipe.WriteEnd(), F_SETPIPE_SZ, 4096), 0);
    std::string bytes(1000001, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 31 / 7);
    std::thread writer(
        [&]
        {
            utl_BinOStream(pipe.WriteEnd(), kPipe).Write(bytes.data(), static_cast<int>(bytes.size()));
            pipe.CloseWriteEnd();
        });
    std::string back(bytes.size(), '\0');
    utl_BinIStream in(pipe.ReadEnd(), kPipe);
    in.Read(back.data(), 333);
    in.Read(back.data() + 333, static_cast<int>(back.size()) - 333);
    writer.join();
    EXPECT_TRUE(back == bytes);
    EXPECT_THROW(in.ReadSchar(), utl_BinStreamEOF);
}

TEST(utl_BinStream, ADescriptorThatDoesNotBlockIsWaitedFor)
{
    Pipe pipe;
    ASSERT_GE(::fcntl(pipe.WriteEnd(), F_SETPIPE_SZ, 4096), 0);
    for (const int end : {pipe.ReadEnd(), pipe.WriteEnd()}) ASSERT_EQ(::fcntl(end, F_SETFL, O_NONBLOCK), 0);
    const std::string bytes(300000, 'x');
    std::string back(bytes.size(), '\0');
    std::thread reader(
        [&] { utl_BinIStream(pipe.ReadEnd(), kPipe).Read(back.data(), static_cast<int>(back.size())); });
    utl_BinOStream(pipe.WriteEnd(), kPipe).Write(bytes.data(), static_cast<int>(bytes.size()));
    reader.join();
    EXPECT_TRUE(back == bytes);
}

TEST(utl_BinStream, NoBytesAreNoTransfer)
{
    EXPECT_NO_THROW(utl_BinOStream(-1, kPipe).Write("", 0));
    EXPECT_NO_THROW(utl_BinIStream(-1, kPipe).Read(nullptr, 0));
}

// --- whose the descriptor is

TEST(utl_BinStream, HeldWritesGoOutWhenTheyAreSentAndInTheirOrder)
{
    Pipe pipe;
    ::fcntl(pipe.ReadEnd(), F_SETFL, O_NONBLOCK);
    utl_BinOStream out(pipe.WriteEnd(), kPipe);
    out.Hold();
    WriteOneOfEach(out);
    EXPECT_EQ(All(pipe.ReadEnd()), "");
    out.Send();
    EXPECT_EQ(All(pipe.ReadEnd()), Bytes(kOneOfEachOnAPipe));
    WriteOneOfEach(out); // no longer held
    EXPECT_EQ(All(pipe.ReadEnd()), Bytes(kOneOfEachOnAPipe));
}

TEST(utl_BinStream, HeldWritesGoOutBySixtyFourKibibytesAndLongOnesAtOnce)
{
    Pipe pipe;
    ::fcntl(pipe.WriteEnd(), F_SETPIPE_SZ, 1024 * 1024);
    ::fcntl(pipe.ReadEnd(), F_SETFL, O_NONBLOCK);
    utl_BinOStream out(pipe.WriteEnd(), kPipe);
    const std::string most(65535, 'm');
    const std::string longText(65536, 'l');
    out.Hold();
    out.Write(most.data(), 65535);
    EXPECT_EQ(All(pipe.ReadEnd()), "");
    out.WriteSchar('1');
    EXPECT_EQ(All(pipe.ReadEnd()), most + "1");
    out.WriteSchar('2');
    out.Write(longText.data(), 65536);
    EXPECT_EQ(All(pipe.ReadEnd()), "2" + longText);
    out.WriteSchar('3');
    out.Send();
    EXPECT_EQ(All(pipe.ReadEnd()), "3");
}

TEST(utl_BinStream, AStreamLeavesItsDescriptorOpenAndTheBytesBehindItsOwn)
{
    Pipe pipe;
    utl_BinOStream(pipe.WriteEnd(), kPipe).WriteInt(1);
    utl_BinOStream(pipe.WriteEnd(), kPipe).WriteInt(2);
    EXPECT_TRUE(IsOpen(pipe.WriteEnd()));
    EXPECT_EQ(utl_BinIStream(pipe.ReadEnd(), kPipe).ReadInt(), 1);
    EXPECT_TRUE(IsOpen(pipe.ReadEnd()));
    EXPECT_EQ(utl_BinIStream(pipe.ReadEnd(), kPipe).ReadInt(), 2);
}

// --- refusals

TEST(utl_BinStream, WhatTheSystemRefusesIsToldInItsWords)
{
    EXPECT_EQ(Thrown<utl_BinStreamReadError>([] { utl_BinIStream(-1, kPipe).ReadInt(); }),
              "*** ERROR: Can't read stream, reason:\n  Bad file descriptor.");
    EXPECT_EQ(Thrown<utl_BinStreamReadError>([] { utl_BinOStream(-1, kPipe).WriteInt(1); }),
              "*** ERROR: Can't write stream, reason:\n  Bad file descriptor.");
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(Thrown<utl_BinStreamReadError>([&] { utl_BinOStream(full, kPipe).WriteInt(1); }),
              "*** ERROR: Can't write stream, reason:\n  No space left on device.");
    ::close(full);
    const int directory = ::open("/", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(Thrown<utl_BinStreamReadError>([&] { utl_BinIStream(directory, kPipe).ReadInt(); }),
              "*** ERROR: Can't read stream, reason:\n  Is a directory.");
    ::close(directory);
}

TEST(utl_BinStream, TheExceptionsHaveOneBaseAndAreTextsForTheUser)
{
    for (const std::shared_ptr<utl_BinStreamException>& failure :
         {std::shared_ptr<utl_BinStreamException>(new utl_BinStreamEOF("read", "a")),
          std::shared_ptr<utl_BinStreamException>(new utl_BinStreamReadError("read", "a")),
          std::make_shared<utl_BinStreamException>("read", "a")})
    {
        const std::unique_ptr<nex_Exception> copy(failure->Copy());
        EXPECT_EQ(typeid(*copy), typeid(*failure));
        EXPECT_THROW(copy->Propagate(), nex_TextException);
        EXPECT_EQ(copy->UserReport().View(), "*** ERROR: Can't read stream, reason:\n  a.");
        EXPECT_TRUE(copy->AsString().View().ends_with(copy->UserReport().View()));
    }
    EXPECT_THROW(utl_BinStreamEOF("read", "a").Propagate(), utl_BinStreamEOF);
    EXPECT_THROW(utl_BinStreamReadError("read", "a").Propagate(), utl_BinStreamReadError);
    EXPECT_TRUE(utl_BinStreamEOF("read", "a").AsString().View().starts_with("utl_BinStreamEOF: "));
}
