#pragma once

#include "nex_Exception.h"
#include "omi_Swapper.h"
#include "rfm_IOS.h"
#include "rfm_StringManager.h"

#include <algorithm>
#include <string>
#include <vector>

/// A string pool of a few texts: a reference is the number of the text, as a little-endian double.
class MemoryPool : public rfm_StringManager
{
public:
    void Flush() override {}
    void Neuter(const char*, const cow_String&) override {}
    void Decode(const char* source, cow_String* target, int count) override
    {
        for (int i = 0; i < count; ++i)
            target[i] = m_Texts.at(static_cast<std::size_t>(omi_Load<double>(source + i * 8, kSwapped)));
    }
    void Encode(char* target, const cow_String* source, int count) override
    {
        for (int i = 0; i < count; ++i)
        {
            omi_Store(target + i * 8, static_cast<double>(m_Texts.size()), kSwapped);
            m_Texts.push_back(source[i]);
        }
    }
    int ReferenceSize() override { return 8; }

private:
    static constexpr bool kSwapped = omi_Swapper(omi_Swapper::Stored);
    std::vector<cow_String> m_Texts;
};

/// A stream on a text in memory that counts what reaches it and fails when told to.
class MemoryStream : public rfm_IOS
{
public:
    explicit MemoryStream(std::string start = {}) : bytes(std::move(start)) {}
    /// Of the byte order given, whatever this host's is.
    MemoryStream(std::string start, bool swapped) : rfm_IOS(swapped), bytes(std::move(start)) {}

    bool ReadOnly() const override { return readOnly; }
    utl_FileOffset Length() const override { return static_cast<std::int64_t>(bytes.size()); }
    void Seek(utl_FileOffset to) override
    {
        ++seeks;
        position = to.Value();
    }
    utl_FileOffset Location() const override { return position; }
    void Flush() override { ++flushes; }
    void Extend(utl_FileOffset amount) override
    {
        bytes.resize(static_cast<std::size_t>(position + amount.Value()));
    }
    int Read(char* buffer, int count) override
    {
        ++reads;
        const std::int64_t left =
            std::max<std::int64_t>(0, static_cast<std::int64_t>(bytes.size()) - position);
        const auto moved = static_cast<int>(std::min<std::int64_t>(count, left));
        std::copy_n(bytes.data() + (moved > 0 ? position : 0), moved, buffer);
        position += moved;
        return moved;
    }
    int Write(const char* buffer, int count) override
    {
        ++writes;
        if (failing) nex_ThrowText("the target failed");
        count = std::min(count, mostPerWrite);
        const auto start = static_cast<std::size_t>(position);
        if (bytes.size() < start + static_cast<std::size_t>(count))
            bytes.resize(start + static_cast<std::size_t>(count));
        std::copy_n(buffer, count, bytes.begin() + static_cast<std::ptrdiff_t>(start));
        position += count;
        return count;
    }
    rfm_StringManager* StringManager() override { return &pool; }

    std::string bytes;
    std::int64_t position = 0;
    bool readOnly = false;
    bool failing = false;
    int mostPerWrite = 2147483647;
    int seeks = 0;
    int reads = 0;
    int writes = 0;
    int flushes = 0;
    MemoryPool pool;
};
