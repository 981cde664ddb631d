#pragma once

#include "cls_StreamFormat.h"
#include "cow_String.h"
#include "nex_Exception.h"

#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

// What somebody may do to a stream of objects, at each of its bytes in turn. `read` makes whatever the stream holds.
using ReadStream = std::function<void(const cow_String& bytes)>;

// The same body with a check that fits it: damage that the check can't see.
inline cow_String WithFreshCheck(std::string_view stream)
{
    const std::size_t body = stream.size() - cls_StreamHeadBytes - cls_StreamCheckBytes;
    return cow_String(std::string_view(cls_WrapBody(stream.substr(cls_StreamHeadBytes, body))));
}

inline bool IsRefused(const ReadStream& read, const cow_String& bytes)
{
    try
    {
        read(bytes);
    }
    catch (const nex_Exception& failure)
    {
        EXPECT_GT(failure.UserReport().Length(), 0);
        return true;
    }
    return false;
}

inline void ExpectEveryCutIsRefused(const cow_String& whole, const ReadStream& read)
{
    ASSERT_FALSE(IsRefused(read, whole));
    for (int length = 0; length < whole.Length(); ++length)
        EXPECT_TRUE(IsRefused(read, whole.Substr(0, length))) << "cut to " << length << " bytes";
}

// Each bit of each byte, and all bits of it at once.
inline void ExpectEveryChangedByteIsRefused(const cow_String& whole, const ReadStream& read)
{
    ASSERT_FALSE(IsRefused(read, whole));
    for (std::size_t at = 0; at < whole.View().size(); ++at)
        for (const int change : {1, 2, 4, 8, 16, 32, 64, 128, 255})
        {
            std::string bytes(whole.View());
            bytes[at] = static_cast<char>(bytes[at] ^ change);
            EXPECT_TRUE(IsRefused(read, cow_String(std::string_view(bytes))))
                << "byte " << at << " changed by " << change;
        }
}

// What a byte of a body is changed to: the small numbers that bodies are made of, the ends of a byte's ranges, and one
// bit more or less.
inline std::vector<char> ChangesOf(char byte)
{
    std::vector<char> changes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 127, -128, -1};
    for (const int bit : {1, 2, 4, 8, 16, 32, 64, 128}) changes.push_back(static_cast<char>(byte ^ bit));
    return changes;
}

// With a check that fits, a change may also be another good stream; it must never be anything but one of the two. The
// answer is how many were refused.
inline int CountRefusedChanges(const cow_String& whole, const ReadStream& read)
{
    int refused = 0;
    for (std::size_t at = cls_StreamHeadBytes; at < whole.View().size() - cls_StreamCheckBytes; ++at)
        for (const char change : ChangesOf(whole.View()[at]))
        {
            std::string bytes(whole.View());
            bytes[at] = change;
            if (IsRefused(read, WithFreshCheck(bytes))) ++refused;
        }
    return refused;
}

// The same for bodies that end early, which no length or check betrays.
inline void ExpectEveryShortBodyIsRefused(const cow_String& whole, const ReadStream& read)
{
    const std::string_view body = whole.View().substr(
        cls_StreamHeadBytes, whole.View().size() - cls_StreamHeadBytes - cls_StreamCheckBytes);
    for (std::size_t length = 0; length < body.size(); ++length)
        EXPECT_TRUE(IsRefused(read, cow_String(std::string_view(cls_WrapBody(body.substr(0, length))))))
            << "a body of " << length << " bytes";
}
