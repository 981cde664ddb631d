#include "rfm_RemoteFormat.h"

#include "omi_Swapper.h"

#include <cassert>

template <class T> static void Append(std::string& bytes, T value)
{
    char stored[sizeof(T)];
    omi_Store(stored, value, omi_Swapper(omi_Swapper::Pipe));
    bytes.append(stored, sizeof stored);
}

std::string rfm_EncodeRemoteAnswer(short version, int pageSize)
{
    std::string bytes;
    Append(bytes, version);
    Append(bytes, pageSize);
    return bytes;
}

std::string rfm_EncodeRemoteSizeRequest() { return {rfm_RemoteSizeRequest}; }
std::string rfm_EncodeRemoteStatusRequest() { return {rfm_RemoteStatusRequest}; }

std::string rfm_EncodeRemotePageRequest(std::span<const std::int64_t> dropped, std::int64_t start,
                                        int pageSize)
{
    assert(dropped.size() <= rfm_RemoteMostDroppedPages);
    std::string bytes{rfm_RemotePageRequest};
    Append(bytes, static_cast<short>(dropped.size()));
    for (const std::int64_t page : dropped) Append(bytes, page);
    Append(bytes, start);
    Append(bytes, pageSize);
    return bytes;
}

std::string rfm_EncodeRemoteReplyHead(signed char status, std::span<const std::int64_t> changed)
{
    std::string bytes{'\0', static_cast<char>(status)};
    if (status != rfm_RemoteUpdated) return bytes;
    Append(bytes, static_cast<int>(changed.size()));
    for (const std::int64_t page : changed) Append(bytes, page);
    return bytes;
}

std::string rfm_EncodeRemoteSize(std::int64_t size)
{
    std::string bytes;
    Append(bytes, size);
    return bytes;
}

std::string rfm_EncodeRemotePageLength(int length)
{
    std::string bytes;
    Append(bytes, length);
    return bytes;
}
