#pragma once

// What the relay qlnsrv and the daemon qlnsrvd say to each other. Numbers of two bytes are big-endian.
//
// The hello, from the daemon, in clear, before anything else:
//
//   byte 0           7         8        9       10     11     12           28
//        +-----------+---------+--------+-------+------+------+------------+
//        | "qlnsrvd" | version | status | log2N |  r   |  p   |    salt    |
//        +-----------+---------+--------+-------+------+------+------------+
//
// N, r and p are the cost of scrypt, by which a password becomes a secret. With a status other than 0 the daemon says
// no more and closes.
//
// Then TLS, and inside it frames. A frame and its head fill at most one record of TLS:
//
//   byte 0       1            3
//        +-------+------------+--------------------+
//        | type  |  length    |  length bytes      |
//        +-------+------------+--------------------+
//
//   request   relay -> daemon   once, first         action (1 byte), count of words (2), for each: length (2), bytes
//   answer    daemon -> relay   once, to a request  status (1 byte), a line for the user where it is refused
//   data      both ways         any number          bytes of the service's standard input and output
//   end       relay -> daemon   at most once        nothing: the standard input has ended
//   error     daemon -> relay   any number          bytes of the service's standard error
//   closed    daemon -> relay   once, last          how (1 byte), exit code or number of the signal (1 byte)
//
// The words of a request to run a service are its name and its arguments; to kill and to ping there are none.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace farend
{
inline constexpr std::uint8_t kProtocolVersion = 1;

enum class HelloStatus : std::uint8_t
{
    Welcome = 0,
    Full = 1,    // as many connections as there may be
    Waiting = 2, // too many wrong keys came from this address
};

// For the user, wherever there is no room: at the hello, or once the relay has asked for a service.
inline constexpr const char* kFullText = "as many connections are open as there may be; try again later";

inline constexpr std::size_t kSaltBytes = 16;
inline constexpr std::size_t kHelloBytes = 28;

struct Hello
{
    HelloStatus status = HelloStatus::Welcome;
    // 32 MiB and about a tenth of a second for each guess.
    std::uint8_t costLog2 = 15;
    std::uint8_t blockSize = 8;
    std::uint8_t parallelism = 1;
    std::array<unsigned char, kSaltBytes> salt{};
    friend bool operator==(const Hello&, const Hello&) = default;
};

// What a relay takes from a daemon that it knows nothing of yet. Less would make a password cheap to guess for whoever
// stands in for the daemon, more would let it fill our memory: 2^17 is 128 MiB.
inline constexpr std::uint8_t kLeastCostLog2 = 15;
inline constexpr std::uint8_t kMostCostLog2 = 17;

std::string EncodeHello(const Hello& hello);
/// Throws: Failure for anything that is no hello of our version and within our bounds.
Hello DecodeHello(std::string_view bytes);

enum class FrameType : std::uint8_t
{
    Request = 1,
    Answer = 2,
    Data = 3,
    End = 4,
    Error = 5,
    Closed = 6,
};

inline constexpr std::size_t kFrameHeadBytes = 3;
inline constexpr std::size_t kMostFrameBytes = 16384; // one record of TLS
inline constexpr std::size_t kMostPayloadBytes = kMostFrameBytes - kFrameHeadBytes;

// On their way to the reader bytes move in pieces of some full frames: what a system call and the waking of the next
// process cost is paid once for them all. A frame at a time, relay and daemon made 750 calls for a page of 1 MiB; so they
// make 80.
inline constexpr std::size_t kFramesPerTransfer = 8;
inline constexpr std::size_t kTransferPayloadBytes = kFramesPerTransfer * kMostPayloadBytes;

struct FrameHead
{
    FrameType type = FrameType::Data;
    std::size_t length = 0;
};

std::array<char, kFrameHeadBytes> EncodeFrameHead(FrameHead head);
/// `bytes` holds at least a head.
/// Throws: Failure for an unknown type and a length above the bound.
FrameHead DecodeFrameHead(std::string_view bytes);

enum class Action : std::uint8_t
{
    Run = 1,
    Kill = 2,
    Ping = 3,
};

struct Request
{
    Action action = Action::Ping;
    std::vector<std::string> words;
    friend bool operator==(const Request&, const Request&) = default;
};

/// Throws: Failure for words that do not fit into a frame.
std::string EncodeRequest(const Request& request);
/// Throws: Failure for anything that EncodeRequest does not make, and for words that hold a NUL.
Request DecodeRequest(std::string_view payload);

enum class AnswerStatus : std::uint8_t
{
    Done = 0,
    RelayTells = 1,   // the service runs, and the relay tells so with one byte
    ServiceTells = 2, // the service runs, and what it says first tells so
    Refused = 3,
};

struct Answer
{
    AnswerStatus status = AnswerStatus::Done;
    std::string text;
    friend bool operator==(const Answer&, const Answer&) = default;
};

std::string EncodeAnswer(const Answer& answer);
/// Throws: Failure. What is not printable in the text becomes a question mark: it goes to a user's terminal.
Answer DecodeAnswer(std::string_view payload);

/// Makes question marks of all bytes that a terminal could take for more than a letter, but for those of `kept`.
void MakePrintable(std::string& text, std::string_view kept = {});

struct Closed
{
    bool bySignal = false;
    std::uint8_t number = 0;
    friend bool operator==(const Closed&, const Closed&) = default;
};

std::string EncodeClosed(const Closed& closed);
/// Throws: Failure.
Closed DecodeClosed(std::string_view payload);
} // namespace farend
