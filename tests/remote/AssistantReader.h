#pragma once

// The reader of a remote file, played by hand: what it sends is put together here, byte by byte, and what the assistant
// answers is taken apart here, so that a mistake that both ends of the library share would show.

#include "BoundedChild.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// `count` bytes of a number, the high one first.
inline std::string BigEndian(std::int64_t value, int count)
{
    std::string bytes;
    for (int i = count - 1; i >= 0; --i) bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

/// `key`, version and page size: the whole of a reader's part in the handshake.
inline std::string HandshakeBytes(const std::string& key, int version, std::int64_t pageSize)
{
    return static_cast<char>(key.size()) + key + BigEndian(version, 2) + BigEndian(pageSize, 4);
}

inline std::string PageRequestBytes(const std::vector<std::int64_t>& dropped, std::int64_t start,
                                    std::int64_t pageSize)
{
    std::string bytes = "\x02" + BigEndian(static_cast<std::int64_t>(dropped.size()), 2);
    for (const std::int64_t page : dropped) bytes += BigEndian(page, 8);
    return bytes + BigEndian(start, 8) + BigEndian(pageSize, 4);
}

class AssistantReader
{
public:
    using Starts = std::vector<std::int64_t>;
    struct Reply
    {
        int status = -1;
        Starts changed;
        std::int64_t size = -1;
        std::string page;
    };

    /// Starts `words` and shakes hands.
    explicit AssistantReader(const BoundedChild::Words& words, int pageSize = 1024,
                             const std::string& key = "")
        : m_PageSize(pageSize),
          m_Child(words)
    {
        m_Child.Write(static_cast<char>(key.size()) + key);
        m_Version = static_cast<int>(Number(2));
        m_Child.Write(BigEndian(1, 2) + BigEndian(pageSize, 4));
    }

    int Version() const { return m_Version; }
    Reply Size()
    {
        m_Child.Write("\x01");
        Reply reply = Head();
        reply.size = Number(8);
        return reply;
    }
    Reply Page(std::int64_t start, const Starts& dropped = {})
    {
        m_Child.Write(PageRequestBytes(dropped, start, m_PageSize));
        Reply reply = Head();
        reply.page = m_Child.Read(static_cast<std::size_t>(Number(4)));
        return reply;
    }
    Reply Status()
    {
        m_Child.Write("\x03");
        return Head();
    }
    /// The whole file, page by page.
    std::string AllPages()
    {
        std::string all;
        for (std::string page = Page(0).page; !page.empty();
             page = Page(static_cast<std::int64_t>(all.size()) / m_PageSize * m_PageSize).page)
        {
            all += page;
            if (static_cast<int>(page.size()) < m_PageSize) break;
        }
        return all;
    }
    BoundedChild& Child() { return m_Child; }
    ChildResult End() { return m_Child.Finish(); }

private:
    std::int64_t Number(std::size_t count)
    {
        const std::string bytes = m_Child.Read(count);
        if (bytes.size() != count) throw std::runtime_error("the reply is cut: " + m_Child.Finish().err);
        std::uint64_t value = 0;
        for (const char byte : bytes) value = value << 8U | static_cast<unsigned char>(byte);
        return static_cast<std::int64_t>(value);
    }
    Reply Head()
    {
        Reply reply;
        Number(1);
        reply.status = static_cast<int>(Number(1));
        if (reply.status == 2)
            for (std::int64_t count = Number(4); count > 0; --count) reply.changed.push_back(Number(8));
        return reply;
    }

    int m_PageSize;
    int m_Version = -1;
    BoundedChild m_Child;
};
