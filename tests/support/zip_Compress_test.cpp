#include "zip_Compress.h"

#include "zip_Engine.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>
#include <zlib.h>

namespace
{
using Bytes = std::vector<unsigned char>;

struct Result
{
    int code;
    Bytes bytes;
    bool operator==(const Result&) const = default;
};

void PrintTo(const Result& result, std::ostream* out)
{
    *out << "code " << result.code << ", " << result.bytes.size() << " bytes";
}

/// zlib's own pair, which all engines are held against.
constexpr zip_Engine kReference = {"reference", compress2, uncompress, nullptr};

Result Deflate(const zip_Engine& engine, const Bytes& source, std::size_t room, int level = 6)
{
    Bytes target(room + 1);
    unsigned long length = room;
    const int code = engine.compress2(target.data(), &length, source.data(), source.size(), level);
    target.resize(code == Z_OK ? length : 0);
    return {code, target};
}

Result Inflate(const zip_Engine& engine, const Bytes& source, std::size_t room)
{
    Bytes target(room + 1, 0xEE);
    unsigned long length = room;
    const int code = engine.uncompress(target.data(), &length, source.data(), source.size());
    EXPECT_EQ(target[room], 0xEE) << engine.name << " wrote behind its room";
    target.resize(code == Z_OK ? length : 0);
    return {code, target};
}

Bytes Noise(std::size_t count)
{
    std::mt19937 random(7);
    Bytes bytes(count);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    return bytes;
}
Bytes HalfNoise(std::size_t count)
{
    Bytes bytes = Noise(count);
    for (std::size_t i = 0; i < count; i += 2) bytes[i] = 7;
    return bytes;
}
Bytes Text(std::size_t count)
{
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>("field data "[i * i % 11]);
    return bytes;
}
std::vector<Bytes> Samples()
{
    return {{}, {42}, Text(100), Text(65536), Noise(65536), Bytes(65536, 0), Noise(3)};
}
} // namespace

TEST(zip_Compress, TheSameBytesComeBackFromEveryEngineWhoeverWroteThem)
{
    for (const Bytes& sample : Samples())
        for (const zip_Engine& writer : zip_Engines())
        {
            const Result stream = Deflate(writer, sample, 80000);
            ASSERT_EQ(stream.code, Z_OK) << writer.name;
            EXPECT_EQ(Inflate(kReference, stream.bytes, sample.size()), (Result{Z_OK, sample}))
                << writer.name;
            for (const zip_Engine& reader : zip_Engines())
                EXPECT_EQ(Inflate(reader, stream.bytes, sample.size()), (Result{Z_OK, sample}))
                    << writer.name << " to " << reader.name;
        }
}

TEST(zip_Compress, TheFrontOfAStreamIsItsFirstBytesButForTheSlack)
{
    for (const Bytes& sample : {Text(100), Text(65536), Bytes(65536, 0), HalfNoise(65536)})
        for (const zip_Engine& writer : zip_Engines())
            for (const zip_Engine& reader : zip_Engines())
            {
                const Bytes stream = Deflate(writer, sample, 80000).bytes;
                for (std::size_t room = 1; room < 70000; room += room < 1100 ? 7 : 3001)
                {
                    Bytes target(room + 1, 0xEE);
                    ASSERT_TRUE(reader.uncompressFront(target.data(), room, stream.data(), stream.size()))
                        << reader.name << " " << room;
                    EXPECT_EQ(target[room], 0xEE) << reader.name << " wrote behind its room";
                    const std::size_t sure = sample.size() <= room   ? sample.size()
                                             : room < zip_FrontSlack ? 0
                                                                     : room - zip_FrontSlack;
                    ASSERT_TRUE(std::equal(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(sure),
                                           target.begin()))
                        << reader.name << " " << room;
                }
            }
}

TEST(zip_Compress, WhatIsNoStreamHasNoFront)
{
    Bytes stream = Deflate(kReference, Text(65536), 80000).bytes;
    Bytes target(1000);
    for (const zip_Engine& engine : zip_Engines())
    {
        const Bytes noise = Noise(500);
        EXPECT_FALSE(engine.uncompressFront(target.data(), 1000, noise.data(), noise.size())) << engine.name;
        EXPECT_FALSE(engine.uncompressFront(target.data(), 1000, stream.data(), 10))
            << engine.name << ", cut";
        EXPECT_FALSE(engine.uncompressFront(target.data(), 1000, stream.data(), 0))
            << engine.name << ", empty";
    }
}

TEST(zip_Compress, TheDoorLeadsToTheFirstEngine)
{
    const Bytes sample = Text(5000);
    Bytes target(6000);
    unsigned long length = target.size();
    ASSERT_EQ(zip_compress2(target.data(), &length, sample.data(), sample.size(), 6), 0);
    target.resize(length);
    EXPECT_EQ(target, Deflate(zip_Engines()[0], sample, 6000).bytes);
    Bytes back(5000);
    length = back.size();
    ASSERT_EQ(zip_uncompress(back.data(), &length, target.data(), target.size()), 0);
    EXPECT_EQ(length, 5000U);
    EXPECT_EQ(back, sample);
    ASSERT_TRUE(zip_uncompress_front(back.data(), 1000, target.data(), target.size()));
}

TEST(zip_Compress, ItIsAZlibStream)
{
    for (const zip_Engine& engine : zip_Engines())
    {
        const Bytes stream = Deflate(engine, {'a'}, 100).bytes;
        // Deflate in a window of 32 KiB at the usual level; at the end the sum of the bytes, the highest part first.
        EXPECT_EQ(stream[0], 0x78) << engine.name;
        EXPECT_EQ(stream[1], 0x9C) << engine.name;
        EXPECT_THAT(Bytes(stream.end() - 4, stream.end()), testing::ElementsAre(0x00, 0x62, 0x00, 0x62));
    }
}

TEST(zip_Compress, TheEngineOfZlibWritesWhatZlibWrites)
{
    const zip_Engine& zlib = zip_Engines().back();
    ASSERT_STREQ(zlib.name, "zlib");
    for (const int level : {6, 1, -1, 9, 0, 6})
        for (const Bytes& sample : Samples())
            EXPECT_EQ(Deflate(zlib, sample, 80000, level), Deflate(kReference, sample, 80000, level))
                << level;
}

TEST(zip_Compress, EveryLevelThatIsOneWorksAndNoOther)
{
    const Bytes sample = Text(3000);
    for (const zip_Engine& engine : zip_Engines())
    {
        for (int level = -1; level <= 9; ++level)
            EXPECT_EQ(Inflate(kReference, Deflate(engine, sample, 4000, level).bytes, 3000).bytes, sample)
                << engine.name << level;
        EXPECT_EQ(Deflate(engine, sample, 4000, 10).code, Z_STREAM_ERROR) << engine.name;
        EXPECT_EQ(Deflate(engine, sample, 4000, -2).code, Z_STREAM_ERROR) << engine.name;
    }
}

TEST(zip_Compress, TooLittleRoomForTheStreamIsSaidAsZlibSaysIt)
{
    const Bytes sample = Noise(2000);
    for (const zip_Engine& engine : zip_Engines())
    {
        const std::size_t needed = Deflate(engine, sample, 3000).bytes.size();
        EXPECT_EQ(Deflate(engine, sample, needed).code, Z_OK) << engine.name;
        for (const std::size_t room : {std::size_t{0}, std::size_t{1}, std::size_t{1000}})
            EXPECT_EQ(Deflate(engine, sample, room).code, Z_BUF_ERROR) << engine.name << room;
    }
}

TEST(zip_Compress, BytesBehindTheStreamDoNotMatter)
{
    const Bytes sample = Text(4000);
    for (const zip_Engine& engine : zip_Engines())
        for (const std::size_t tail : {1U, 4U, 5000U})
        {
            Bytes stream = Deflate(engine, sample, 5000).bytes;
            stream.resize(stream.size() + tail, 0xAB);
            EXPECT_EQ(Inflate(engine, stream, 4000), (Result{Z_OK, sample})) << engine.name << tail;
        }
}

TEST(zip_Compress, LessThanTheRoomMayComeOut)
{
    const Bytes sample = Text(4000);
    for (const zip_Engine& engine : zip_Engines())
        EXPECT_EQ(Inflate(engine, Deflate(engine, sample, 5000).bytes, 65536), (Result{Z_OK, sample}))
            << engine.name;
}

TEST(zip_Compress, EveryRoomThatIsTooSmallGivesTheErrorOfZlib)
{
    const Bytes sample = Text(40);
    const Bytes stream = Deflate(kReference, sample, 100).bytes;
    for (const zip_Engine& engine : zip_Engines())
    {
        for (std::size_t room = 0; room < 40; ++room)
            EXPECT_EQ(Inflate(engine, stream, room), Inflate(kReference, stream, room))
                << engine.name << room;
        EXPECT_EQ(Inflate(engine, stream, 39).code, Z_BUF_ERROR) << engine.name;
    }
}

TEST(zip_Compress, AStreamThatIsCutAnywhereGivesTheErrorOfZlib)
{
    const Bytes sample = Text(300);
    const Bytes whole = Deflate(kReference, sample, 400).bytes;
    for (const zip_Engine& engine : zip_Engines())
        for (std::size_t length = 0; length < whole.size(); ++length)
            for (const std::size_t room : {std::size_t{299}, std::size_t{300}, std::size_t{301}})
            {
                const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
                const Result result = Inflate(engine, cut, room);
                EXPECT_EQ(result, Inflate(kReference, cut, room)) << engine.name << length << " " << room;
                EXPECT_NE(result.code, Z_OK);
            }
}

TEST(zip_Compress, AnyDamagedBitGivesTheResultOfZlib)
{
    const Bytes sample = Text(200);
    for (const zip_Engine& writer : zip_Engines())
    {
        const Bytes whole = Deflate(writer, sample, 400).bytes;
        for (std::size_t bit = 0; bit < whole.size() * 8; ++bit)
        {
            Bytes damaged = whole;
            damaged[bit / 8] = static_cast<unsigned char>(damaged[bit / 8] ^ (1U << bit % 8));
            for (const zip_Engine& engine : zip_Engines())
                EXPECT_EQ(Inflate(engine, damaged, 200), Inflate(kReference, damaged, 200))
                    << engine.name << ", bit " << bit;
        }
    }
}

TEST(zip_Compress, AfterAFailureTheNextStreamIsReadAsEver)
{
    const Bytes sample = Text(1000);
    for (const zip_Engine& engine : zip_Engines())
    {
        const Bytes stream = Deflate(engine, sample, 2000).bytes;
        EXPECT_EQ(Inflate(engine, Noise(500), 1000).code, Z_DATA_ERROR);
        EXPECT_EQ(Deflate(engine, sample, 3).code, Z_BUF_ERROR);
        EXPECT_EQ(Deflate(engine, sample, 2000).bytes, stream) << engine.name;
        EXPECT_EQ(Inflate(engine, stream, 1000), (Result{Z_OK, sample})) << engine.name;
    }
}

TEST(zip_Compress, ThreadsDoNotDisturbEachOther)
{
    for (const zip_Engine& engine : zip_Engines())
    {
        std::vector<int> wrong(4, 0);
        std::vector<std::thread> threads;
        for (std::size_t t = 0; t < wrong.size(); ++t)
            threads.emplace_back(
                [&, t]
                {
                    for (std::size_t round = 0; round < 20; ++round)
                    {
                        const Bytes sample = Text(1000 * (t + 1) + round);
                        const Bytes stream = Deflate(engine, sample, 9000, static_cast<int>(t) + 1).bytes;
                        if (Inflate(engine, stream, sample.size()).bytes != sample) ++wrong[t];
                    }
                });
        for (std::thread& thread : threads) thread.join();
        EXPECT_THAT(wrong, testing::Each(0)) << engine.name;
    }
}
