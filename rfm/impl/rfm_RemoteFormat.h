#pragma once

// What the reader of a remote database and the assistant beside the file say to each other, over the assistant's standard
// input and output. There is no framing: each side knows what comes next from what it has read, and the reader waits for
// each reply before it asks again. Numbers are big-endian, as on every pipe: utl_BinStreamFormat.h.
//
// The handshake, once:
//
//   reader -> assistant     | key length: Uchar |  key length bytes of key  |           0 where there is no key
//   assistant -> reader     | version: Short |
//   reader -> assistant     | lower of both versions: Short | page size: Int |
//
// Then any number of requests, until the reader closes its end:
//
//   size                    | 1: Schar |
//   page                    | 2: Schar | n: Short |  n starts: Int64 each  | start: Int64 | page size: Int |
//   status                  | 3: Schar |
//
// The n starts are pages that the reader no longer holds, so that the assistant stops watching them; what does not fit
// into one request goes with the next. `start` is the page that is wanted.
//
// A reply has a head, with a list of pages behind it where the status says "updated", and then what was asked for:
//
//                           | unused: Schar | status: Schar | [ count: Int |  count starts: Int64 each ] |  ...
//   size                    ...  | file size: Int64 |
//   page                    ...  | length: Int |  length bytes  |            shorter than a page at the end of the file
//   status                  ...
//
// The list names the pages that this reader holds and whose bytes have changed since they were sent; what was read from
// them is no longer valid. The page that the reply itself brings is never in it: a reader passes over it there.

#include "rfm_FileStatus.h"

#include <cstdint>
#include <span>
#include <string>

inline constexpr short rfm_RemoteVersion = 1;

enum rfm_RemoteRequest : signed char
{
    rfm_RemoteSizeRequest = 1,
    rfm_RemotePageRequest = 2,
    rfm_RemoteStatusRequest = 3,
};

/// The status with a list of pages behind it.
inline constexpr signed char rfm_RemoteUpdated = rfm_FileStatus::RfmFileUpdated;

// What the other end may claim. More is no protocol, and the connection is given up.
inline constexpr int rfm_RemoteMostKeyBytes = 255;
inline constexpr int rfm_RemoteMostDroppedPages = 32767;
inline constexpr int rfm_RemoteLeastPageBytes = 1024;
inline constexpr int rfm_RemoteMostPageBytes = 64 * 1024 * 1024;
/// Pages that an assistant watches for one reader, and so the longest list of a reply: 1 TiB of pages of the usual size.
inline constexpr int rfm_RemoteMostWatchedPages = 1 << 20;

/// The version that both ends speak.
inline constexpr short rfm_RemoteCommonVersion(short own, short other) { return own < other ? own : other; }

inline constexpr bool rfm_IsRemotePageSize(int bytes)
{
    return bytes >= rfm_RemoteLeastPageBytes && bytes <= rfm_RemoteMostPageBytes;
}

/// Whether a page of this size can begin there and end at a place that a file can have.
inline constexpr bool rfm_IsRemotePageStart(std::int64_t start, int pageSize)
{
    return start >= 0 && start % pageSize == 0 && start <= INT64_MAX - pageSize;
}

inline constexpr bool rfm_IsRemotePageLength(int length, int pageSize)
{
    return length >= 0 && length <= pageSize;
}

inline constexpr bool rfm_IsRemoteListLength(int count)
{
    return count >= 0 && count <= rfm_RemoteMostWatchedPages;
}

// What the reader sends, but for the key, each message in one piece, so that it is one transfer.

std::string rfm_EncodeRemoteAnswer(short version, int pageSize);
std::string rfm_EncodeRemoteSizeRequest();
/// `dropped`: at most rfm_RemoteMostDroppedPages.
std::string rfm_EncodeRemotePageRequest(std::span<const std::int64_t> dropped, std::int64_t start,
                                        int pageSize);
std::string rfm_EncodeRemoteStatusRequest();

// What the assistant sends behind its version: the head of a reply, then what was asked for.

/// `changed`, at most rfm_RemoteMostWatchedPages: the list, which is there for rfm_RemoteUpdated alone.
std::string rfm_EncodeRemoteReplyHead(signed char status, std::span<const std::int64_t> changed);
std::string rfm_EncodeRemoteSize(std::int64_t size);
std::string rfm_EncodeRemotePageLength(int length);
