#include "RelayFormat.h"

#include "Failure.h"

#include <functional>
#include <gtest/gtest.h>

using namespace farend;

namespace
{
std::string Bytes(std::initializer_list<int> numbers)
{
    std::string bytes;
    for (const int number : numbers) bytes += static_cast<char>(number);
    return bytes;
}

Hello SampleHello()
{
    Hello hello;
    for (std::size_t i = 0; i < kSaltBytes; ++i) hello.salt[i] = static_cast<unsigned char>(i);
    return hello;
}

const std::string kSampleHello =
    "qlnsrvd" + Bytes({1, 0, 15, 8, 1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});

std::string HelloWith(std::size_t offset, int byte)
{
    std::string bytes = kSampleHello;
    bytes[offset] = static_cast<char>(byte);
    return bytes;
}

std::string TextOf(const std::function<void()>& action)
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

constexpr const char* kNoMessage = "the other end sent what is no message";
} // namespace

TEST(RelayFormat, AHelloHasTheBytesOfItsPicture)
{
    EXPECT_EQ(EncodeHello(SampleHello()), kSampleHello);
    EXPECT_EQ(kSampleHello.size(), 28U);
    EXPECT_EQ(DecodeHello(kSampleHello), SampleHello());
}

TEST(RelayFormat, AHelloThatTurnsAwayIsDecodedWithItsReason)
{
    EXPECT_EQ(DecodeHello(HelloWith(8, 1)).status, HelloStatus::Full);
    EXPECT_EQ(DecodeHello(HelloWith(8, 2)).status, HelloStatus::Waiting);
    EXPECT_EQ(TextOf([] { DecodeHello(HelloWith(8, 3)); }), kNoMessage);
}

TEST(RelayFormat, WhatIsNoHelloIsRefused)
{
    const std::string text = "what answers there is no qlnsrvd";
    EXPECT_EQ(TextOf([] { DecodeHello(""); }), text);
    EXPECT_EQ(TextOf([] { DecodeHello("SSH-2.0-something-or-other\r\n"); }), text);
    EXPECT_EQ(TextOf([] { DecodeHello(kSampleHello.substr(0, 27)); }), text);
    EXPECT_EQ(TextOf([] { DecodeHello(kSampleHello + "x"); }), text);
    EXPECT_EQ(TextOf([] { DecodeHello(HelloWith(0, 'Q')); }), text);
}

TEST(RelayFormat, AnotherVersionIsRefusedByItsNumber)
{
    EXPECT_EQ(TextOf([] { DecodeHello(HelloWith(7, 2)); }),
              "qlnsrvd there speaks version 2, this is version 1");
}

TEST(RelayFormat, ACostOutsideTheBoundsIsRefused)
{
    const std::string text = "qlnsrvd there asks for a password hash that is too weak or too costly";
    for (const int costLog2 : {0, 1, 14, 18, 63, 255})
        EXPECT_EQ(TextOf([&] { DecodeHello(HelloWith(9, costLog2)); }), text) << costLog2;
    for (const int costLog2 : {15, 16, 17}) EXPECT_EQ(DecodeHello(HelloWith(9, costLog2)).costLog2, costLog2);
    for (const int other : {0, 2, 255})
    {
        EXPECT_EQ(TextOf([&] { DecodeHello(HelloWith(10, other)); }), text) << other;
        EXPECT_EQ(TextOf([&] { DecodeHello(HelloWith(11, other)); }), text) << other;
    }
}

TEST(RelayFormat, AFrameHeadHasTheBytesOfItsPicture)
{
    const auto head = EncodeFrameHead({FrameType::Error, 0x1234});
    EXPECT_EQ(std::string(head.begin(), head.end()), Bytes({5, 0x12, 0x34}));
    const FrameHead decoded = DecodeFrameHead(Bytes({3, 0x3F, 0xFD}));
    EXPECT_EQ(decoded.type, FrameType::Data);
    EXPECT_EQ(decoded.length, 16381U);
}

TEST(RelayFormat, AFrameOfUnknownTypeOrAboveTheBoundIsRefused)
{
    EXPECT_EQ(TextOf([] { DecodeFrameHead(Bytes({0, 0, 1})); }), kNoMessage);
    EXPECT_EQ(TextOf([] { DecodeFrameHead(Bytes({7, 0, 1})); }), kNoMessage);
    EXPECT_EQ(TextOf([] { DecodeFrameHead(Bytes({3, 0x3F, 0xFE})); }), kNoMessage);
    EXPECT_EQ(TextOf([] { DecodeFrameHead(Bytes({3, 0xFF, 0xFF})); }), kNoMessage);
}

TEST(RelayFormat, ARequestHasTheBytesOfItsPicture)
{
    const Request run{Action::Run, {"ab", "", "-c"}};
    const std::string bytes = Bytes({1, 0, 3, 0, 2, 'a', 'b', 0, 0, 0, 2, '-', 'c'});
    EXPECT_EQ(EncodeRequest(run), bytes);
    EXPECT_EQ(DecodeRequest(bytes), run);
    EXPECT_EQ(EncodeRequest({Action::Kill, {}}), Bytes({2, 0, 0}));
    EXPECT_EQ(EncodeRequest({Action::Ping, {}}), Bytes({3, 0, 0}));
    EXPECT_EQ(DecodeRequest(Bytes({3, 0, 0})), (Request{Action::Ping, {}}));
}

TEST(RelayFormat, ARequestMustFitIntoItsFrame)
{
    const Request largest{Action::Run, {std::string(kMostPayloadBytes - 5, 'x')}};
    EXPECT_EQ(EncodeRequest(largest).size(), kMostPayloadBytes);
    EXPECT_EQ(DecodeRequest(EncodeRequest(largest)), largest);
    const std::string text = "the arguments of the service are too long";
    EXPECT_EQ(TextOf([] { EncodeRequest({Action::Run, {std::string(kMostPayloadBytes - 4, 'x')}}); }), text);
    EXPECT_EQ(TextOf([] { EncodeRequest({Action::Run, {std::string(70000, 'x')}}); }), text);
    EXPECT_EQ(TextOf([] { EncodeRequest({Action::Run, std::vector<std::string>(70000)}); }), text);
}

TEST(RelayFormat, ADamagedRequestIsRefused)
{
    for (const std::string& bytes : {
             Bytes({}),                          // nothing
             Bytes({0, 0, 0}),                   // no such action
             Bytes({4, 0, 0}),                   // nor this
             Bytes({1, 0}),                      // cut in the count
             Bytes({1, 0, 0}),                   // a service without a name
             Bytes({2, 0, 1, 0, 0}),             // a kill with words
             Bytes({1, 0, 1, 0}),                // cut in the length
             Bytes({1, 0, 1, 0, 3, 'a', 'b'}),   // cut in the word
             Bytes({1, 0, 1, 0, 1, 'a', 'b'}),   // more than the words
             Bytes({1, 255, 255, 0, 1, 'a'}),    // more words than bytes
             Bytes({1, 0, 1, 0, 3, 'a', 0, 'b'}) // a NUL would hide the rest from the system
         })
        EXPECT_EQ(TextOf([&] { DecodeRequest(bytes); }), kNoMessage) << bytes.size();
}

TEST(RelayFormat, AnAnswerHasTheBytesOfItsPicture)
{
    EXPECT_EQ(EncodeAnswer({AnswerStatus::RelayTells, ""}), Bytes({1}));
    EXPECT_EQ(EncodeAnswer({AnswerStatus::Refused, "no"}), Bytes({3, 'n', 'o'}));
    EXPECT_EQ(DecodeAnswer(Bytes({2})), (Answer{AnswerStatus::ServiceTells, ""}));
    EXPECT_EQ(DecodeAnswer(Bytes({3, 'n', 'o'})), (Answer{AnswerStatus::Refused, "no"}));
    EXPECT_EQ(TextOf([] { DecodeAnswer(""); }), kNoMessage);
    EXPECT_EQ(TextOf([] { DecodeAnswer(Bytes({4})); }), kNoMessage);
}

TEST(RelayFormat, AnAnswersTextCannotSteerATerminalNorBeginAnotherLine)
{
    EXPECT_EQ(DecodeAnswer(Bytes({3, 'a', 27, '[', '\n', 0x7F, 0xC3, 'z'})).text, "a?[???z");
}

TEST(RelayFormat, AClosingHasTheBytesOfItsPicture)
{
    EXPECT_EQ(EncodeClosed({false, 7}), Bytes({0, 7}));
    EXPECT_EQ(DecodeClosed(Bytes({1, 15})), (Closed{true, 15}));
    for (const std::string& bytes : {Bytes({}), Bytes({0}), Bytes({2, 0}), Bytes({0, 0, 0})})
        EXPECT_EQ(TextOf([&] { DecodeClosed(bytes); }), kNoMessage) << bytes.size();
}
