#include "Key.h"

#include "Descriptor.h"
#include "Failure.h"

#include <gtest/gtest.h>
#include <unistd.h>

using farend::Failure;
using farend::Key;

namespace
{
// A pipe that holds `bytes` and then ends.
farend::Descriptor Holding(const std::string& bytes)
{
    farend::Pipe pipe;
    EXPECT_EQ(::write(pipe.write.Get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    return std::move(pipe.read);
}

std::string Message(std::size_t length) { return static_cast<char>(length) + std::string(length, 'k'); }

template <class Action> std::string TextOf(Action action)
{
    try
    {
        action();
    }
    catch (const Failure& failure)
    {
        return failure.what();
    }
    return "nothing was thrown";
}
} // namespace

TEST(Key, OneThatWasMadeIs64HexadecimalDigitsAndUnlikeTheNext)
{
    Key first;
    Key second;
    first.Make();
    second.Make();
    EXPECT_EQ(first.Bytes().size(), 64U);
    EXPECT_EQ(first.Bytes().find_first_not_of("0123456789abcdef"), std::string_view::npos);
    EXPECT_NE(first.Bytes(), second.Bytes());
    EXPECT_TRUE(first.IsMade());
}

TEST(Key, APasswordIsNotTakenForOneThatWasMade)
{
    EXPECT_FALSE(Key(std::string(63, 'a')).IsMade());
    EXPECT_FALSE(Key(std::string(65, 'a')).IsMade());
    EXPECT_FALSE(Key(std::string(63, 'a') + "A").IsMade());
    EXPECT_FALSE(Key(std::string(63, 'a') + "\n").IsMade());
}

TEST(Key, ALengthByteAndTheBytesAreTakenAndNotOneByteMore)
{
    for (const std::size_t length : {8U, 64U, 127U, 128U, 255U})
    {
        const farend::Descriptor input = Holding(Message(length) + "rest");
        Key key;
        key.ReadFrom(input.Get());
        EXPECT_EQ(key.Bytes(), std::string(length, 'k'));
        EXPECT_EQ(key.Message(), Message(length));
        char rest[10];
        EXPECT_EQ(::read(input.Get(), rest, sizeof rest), 4) << length;
    }
}

TEST(Key, LengthsBelowEightAreRefused)
{
    for (const std::size_t length : {0U, 1U, 7U})
        EXPECT_EQ(TextOf([&] { Key().ReadFrom(Holding(Message(length)).Get()); }),
                  "a key has at least 8 bytes, this one has " + std::to_string(length));
}

TEST(Key, AnInputThatEndsBeforeOrInsideTheKeyIsRefused)
{
    EXPECT_EQ(TextOf([] { Key().ReadFrom(Holding("").Get()); }), "the standard input ended before the key");
    EXPECT_EQ(TextOf([] { Key().ReadFrom(Holding("\x40").Get()); }),
              "the standard input ended inside the key");
    EXPECT_EQ(TextOf([] { Key().ReadFrom(Holding(Message(64).substr(0, 64)).Get()); }),
              "the standard input ended inside the key");
}

TEST(Key, APasswordIsTheWholeInputWithItsLineEnd)
{
    Key key;
    key.ReadAllFrom(Holding("secret7\n").Get());
    EXPECT_EQ(key.Bytes(), "secret7\n");
    key.ReadAllFrom(Holding(std::string(255, 'p')).Get());
    EXPECT_EQ(key.Bytes(), std::string(255, 'p'));
}

TEST(Key, APasswordOfFewerThan8OrMoreThan255BytesIsRefused)
{
    EXPECT_EQ(TextOf([] { Key().ReadAllFrom(Holding("").Get()); }),
              "a key has at least 8 bytes, this one has 0");
    EXPECT_EQ(TextOf([] { Key().ReadAllFrom(Holding("1234567").Get()); }),
              "a key has at least 8 bytes, this one has 7");
    for (const std::size_t length : {256U, 300U})
        EXPECT_EQ(TextOf([&] { Key().ReadAllFrom(Holding(std::string(length, 'p')).Get()); }),
                  "a key has at most 255 bytes, this one has more");
}

TEST(Key, HandingOnWritesTheLengthByteAndTheBytes)
{
    farend::Pipe pipe;
    Key(std::string(200, 'k')).WriteTo(pipe.write.Get());
    pipe.write.Close();
    char bytes[300];
    ASSERT_EQ(::read(pipe.read.Get(), bytes, sizeof bytes), 201);
    EXPECT_EQ(std::string(bytes, 201), "\xC8" + std::string(200, 'k'));
}
