#include "RelayFormat.h"

#include "Failure.h"

#include <algorithm>

namespace farend
{
namespace
{
constexpr std::string_view kMagic = "qlnsrvd";
constexpr std::size_t kMostAnswerText = 1000;
static_assert(kMagic.size() + 5 + kSaltBytes == kHelloBytes, "this layout is on the wire");

[[noreturn]] void RefuseMessage() { throw Failure("the other end sent what is no message"); }

void PutShort(std::string& bytes, std::size_t number)
{
    bytes += static_cast<char>(number >> 8U);
    bytes += static_cast<char>(number & 0xFFU);
}

// Takes numbers and words off the front of a payload, and refuses what is not there.
class PayloadReader
{
public:
    explicit PayloadReader(std::string_view bytes) : m_Rest(bytes) {}
    std::uint8_t Byte() { return static_cast<std::uint8_t>(Take(1)[0]); }
    std::size_t Short()
    {
        const std::size_t high = Byte();
        return high << 8U | Byte();
    }
    std::string_view Take(std::size_t count)
    {
        if (count > m_Rest.size()) RefuseMessage();
        const std::string_view taken = m_Rest.substr(0, count);
        m_Rest.remove_prefix(count);
        return taken;
    }
    std::string_view Rest() { return Take(m_Rest.size()); }
    void ExpectEnd() const
    {
        if (!m_Rest.empty()) RefuseMessage();
    }

private:
    std::string_view m_Rest;
};
} // namespace

std::string EncodeHello(const Hello& hello)
{
    std::string bytes(kMagic);
    for (const std::uint8_t byte : {kProtocolVersion, static_cast<std::uint8_t>(hello.status), hello.costLog2,
                                    hello.blockSize, hello.parallelism})
        bytes += static_cast<char>(byte);
    bytes.append(hello.salt.begin(), hello.salt.end());
    return bytes;
}

Hello DecodeHello(std::string_view bytes)
{
    if (bytes.size() != kHelloBytes || bytes.substr(0, kMagic.size()) != kMagic)
        throw Failure("what answers there is no qlnsrvd");
    PayloadReader reader(bytes.substr(kMagic.size()));
    if (const int version = reader.Byte(); version != kProtocolVersion)
        throw Failure("qlnsrvd there speaks version " + std::to_string(version) + ", this is version " +
                      std::to_string(kProtocolVersion));
    Hello hello;
    const std::uint8_t status = reader.Byte();
    if (status > static_cast<std::uint8_t>(HelloStatus::Waiting)) RefuseMessage();
    hello.status = static_cast<HelloStatus>(status);
    hello.costLog2 = reader.Byte();
    hello.blockSize = reader.Byte();
    hello.parallelism = reader.Byte();
    if (hello.costLog2 < kLeastCostLog2 || hello.costLog2 > kMostCostLog2 ||
        hello.blockSize != Hello().blockSize || hello.parallelism != Hello().parallelism)
        throw Failure("qlnsrvd there asks for a password hash that is too weak or too costly");
    const std::string_view salt = reader.Rest();
    std::copy(salt.begin(), salt.end(), hello.salt.begin());
    return hello;
}

std::array<char, kFrameHeadBytes> EncodeFrameHead(FrameHead head)
{
    return {static_cast<char>(head.type), static_cast<char>(head.length >> 8U),
            static_cast<char>(head.length & 0xFFU)};
}

FrameHead DecodeFrameHead(std::string_view bytes)
{
    PayloadReader reader(bytes);
    const std::uint8_t type = reader.Byte();
    const std::size_t length = reader.Short();
    if (type < static_cast<std::uint8_t>(FrameType::Request) ||
        type > static_cast<std::uint8_t>(FrameType::Closed) || length > kMostPayloadBytes)
        RefuseMessage();
    return {static_cast<FrameType>(type), length};
}

std::string EncodeRequest(const Request& request)
{
    std::string payload(1, static_cast<char>(request.action));
    PutShort(payload, std::min<std::size_t>(request.words.size(), kMostPayloadBytes));
    for (const std::string& word : request.words)
    {
        PutShort(payload, std::min<std::size_t>(word.size(), kMostPayloadBytes));
        payload += word;
        if (payload.size() > kMostPayloadBytes) throw Failure("the arguments of the service are too long");
    }
    return payload;
}

Request DecodeRequest(std::string_view payload)
{
    PayloadReader reader(payload);
    Request request;
    const std::uint8_t action = reader.Byte();
    if (action < static_cast<std::uint8_t>(Action::Run) || action > static_cast<std::uint8_t>(Action::Ping))
        RefuseMessage();
    request.action = static_cast<Action>(action);
    const std::size_t wordCount = reader.Short();
    if ((request.action == Action::Run) != (wordCount > 0)) RefuseMessage();
    for (std::size_t i = 0; i < wordCount; ++i)
    {
        request.words.emplace_back(reader.Take(reader.Short()));
        if (request.words.back().find('\0') != std::string::npos) RefuseMessage();
    }
    reader.ExpectEnd();
    return request;
}

std::string EncodeAnswer(const Answer& answer)
{
    return static_cast<char>(answer.status) + answer.text.substr(0, kMostAnswerText);
}

Answer DecodeAnswer(std::string_view payload)
{
    PayloadReader reader(payload);
    Answer answer;
    const std::uint8_t status = reader.Byte();
    if (status > static_cast<std::uint8_t>(AnswerStatus::Refused)) RefuseMessage();
    answer.status = static_cast<AnswerStatus>(status);
    answer.text = reader.Rest();
    MakePrintable(answer.text);
    return answer;
}

void MakePrintable(std::string& text, std::string_view kept)
{
    const auto isOdd = [kept](char byte)
    { return (byte < ' ' || byte > '~') && kept.find(byte) == std::string_view::npos; };
    std::replace_if(text.begin(), text.end(), isOdd, '?');
}

std::string EncodeClosed(const Closed& closed)
{
    return {static_cast<char>(closed.bySignal ? 1 : 0), static_cast<char>(closed.number)};
}

Closed DecodeClosed(std::string_view payload)
{
    PayloadReader reader(payload);
    const std::uint8_t how = reader.Byte();
    if (how > 1) RefuseMessage();
    const std::uint8_t number = reader.Byte();
    reader.ExpectEnd();
    return {how == 1, number};
}
} // namespace farend
