#include "JoltNet/Request.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "JoltNet/Engine.h"
#include "JoltNet/NetException.h"
#include "JoltNet/NetTrace.h"

namespace JoltNet {

namespace {

// What a header's flag byte says.
constexpr std::uint8_t secureFlag = 1;

// An answer is made in pieces of this size.
constexpr std::size_t answerPiece = 256 * 1024;

}  // namespace

Request::Request(const char* requestName, const char* host, unsigned short port, char isSecure)
    : link(nullptr), incoming(false), secure(isSecure), ownWriter(*this), ownReader(*this)
{
    const std::string_view wanted = requestName;
    if (!isRequestName(wanted))
        throwProtocolError("a request's name must be up to 64 letters and digits; for",
                           peerName(host, port));
    nameLength = wanted.copy(nameText.data(), nameText.size());
    owned = Engine::takeChannel(host, port);
    link = owned.get();
}

Request::Request(Channel& connection)
    : link(&connection), incoming(true), secure(0), ownWriter(*this), ownReader(*this)
{
}

Request::~Request()
{
    if (owned && complete && answerStrings == 0) {
        try {
            Engine::keepChannel(std::move(owned));
        } catch (const std::exception&) {
            // Without memory for it, the channel goes.
        }
    }
}

void Request::writeHeader()
{
    if (headerDone)
        return;
    const Header header{secure ? secureFlag : std::uint8_t{0},
                        static_cast<std::uint8_t>(nameLength)};
    encodeHeader(header, std::span(staged).first<headerSize>());
    std::memcpy(&staged[headerSize], nameText.data(), nameLength);
    stagedSize = headerSize + nameLength;
    headerDone = true;
}

bool Request::readHeader(Channel* connection, bool isBlocking)
{
    if (headerDone)
        return true;
    link = connection;
    if (!isBlocking && link->isQuiet())
        return false;
    if (!link->waitForFirstByte())
        throwSystemError(ECONNRESET, "connection ended by", link->peer());
    const Deadline deadline = Clock::now() + headerTime;
    std::array<std::byte, headerSize> bytes;
    link->receive(bytes, channelBufferSize, deadline);
    const std::optional<Header> header = decodeHeader(bytes);
    if (!header)
        throwProtocolError("no header of a request from", link->peer());
    nameLength = header->nameLength;
    secure = static_cast<char>(header->flags & secureFlag);
    link->receive(std::as_writable_bytes(std::span(nameText.data(), nameLength)), channelBufferSize,
                  deadline);
    if (!isRequestName(name()))
        throwProtocolError("an unreadable name of a request from", link->peer());
    headerDone = true;
    return true;
}

void Request::stage(const Frame& frame)
{
    encodeFrame(frame, std::span<std::byte, frameSize>(&staged[stagedSize], frameSize));
    stagedSize += frameSize;
}

void Request::sendStaged(std::span<std::byte> lastFrame)
{
    iovec parts[] = {{staged.data(), stagedSize},
                     {const_cast<std::byte*>(stagedString.data()), stagedString.size()},
                     {lastFrame.data(), lastFrame.size()}};
    link->send(parts, lastFrame.empty(), transferDeadline(stagedString.size()));
    stagedSize = 0;
    stagedString = {};
    hasStagedString = false;
}

Frame Request::receiveFrame(Deadline deadline)
{
    std::array<std::byte, frameSize> bytes;
    // Behind a receipt there may be the frame of a string. What a peer sends to a server is
    // consumed where it is.
    link->receive(bytes, incoming ? channelBufferSize : frameSize, deadline);
    const std::optional<Frame> frame = decodeFrame(bytes);
    if (!frame)
        throwProtocolError("a broken frame from", link->peer());
    return *frame;
}

Reader& Request::in()
{
    trace(Diagnose::TraceLevel::Debug, "REMOTE REQUEST - SENDER ", name());
    writeHeader();
    std::array<std::byte, frameSize> last;
    encodeFrame({FrameKind::end, 0, 0}, last);
    sendStaged(last);
    const Frame receipt = receiveFrame(transferDeadline(sentBytes));
    if (receipt.kind != FrameKind::receipt || receipt.value != sentBytes)
        throwProtocolError("no receipt for what was sent from", link->peer());
    answerStrings = receipt.count;
    complete = true;
    return ownReader;
}

Frame Request::nextString()
{
    const bool isMore = incoming || answerStrings != 0;
    if (!isMore)
        throwProtocolError("no more strings from", link->peer());
    // Until the string has been taken whole, the channel is of no use to another request.
    complete = false;
    return receiveFrame(transferDeadline(0));
}

void Writer::transferString(const Basis::string& text)
{
    transferBytes(text.data(), text.size());
}

void Writer::transferBytes(const void* bytes, std::size_t length)
{
    if (request.hasStagedString)
        request.sendStaged({});
    request.writeHeader();
    request.stage({FrameKind::string, 0, length});
    request.stagedString = {static_cast<const std::byte*>(bytes), length};
    request.hasStagedString = true;
    request.sentBytes += length;
}

std::uint32_t Reader::stringsLeft() const
{
    return request.answerStrings;
}

void Reader::transferString(Basis::string& text, std::uint64_t mostBytes)
{
    const Frame frame = request.nextString();
    if (frame.kind != FrameKind::string)
        throwProtocolError("no string from", request.link->peer());
    if (frame.value > mostBytes)
        throwProtocolError("a string longer than it may be from", request.link->peer());
    request.link->receive(text, frame.value, transferDeadline(frame.value));
    request.stringTaken();
}

std::optional<std::uint64_t> Reader::takeString(std::span<char> firstBytes)
{
    const Frame frame = request.nextString();
    if (request.incoming && frame.kind == FrameKind::end)
        return std::nullopt;
    if (frame.kind != FrameKind::string)
        throwProtocolError("no string from", request.link->peer());
    request.link->consume(frame.value, firstBytes, transferDeadline(frame.value));
    request.stringTaken();
    return frame.value;
}

void Request::stringTaken()
{
    if (incoming)
        return;
    --answerStrings;
    complete = true;
}

void Request::confirm(std::uint64_t received, std::optional<std::uint64_t> answerLength,
                      bool isLast)
{
    static const std::vector<char> zeros(answerPiece, '0');
    std::array<std::byte, 2 * frameSize> frames;
    encodeFrame({FrameKind::receipt, answerLength ? 1U : 0U, received},
                std::span(frames).first<frameSize>());
    std::size_t framesSize = frameSize;
    if (answerLength) {
        encodeFrame({FrameKind::string, 0, *answerLength}, std::span(frames).last<frameSize>());
        framesSize = frames.size();
    }
    std::uint64_t left = answerLength.value_or(0);
    const Deadline deadline = transferDeadline(left);
    do {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, zeros.size()));
        iovec parts[] = {{frames.data(), framesSize}, {const_cast<char*>(zeros.data()), piece}};
        left -= piece;
        link->send(parts, isLast || left != 0, deadline);
        framesSize = 0;
    } while (left != 0);
    if (isLast)
        link->shutDown();
}

}  // namespace JoltNet
