#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "Basis/Containers.h"
#include "JoltNet/Channel.h"
#include "JoltNet/Wire.h"

namespace JoltNet {

class Request;

/// Sends the strings of a request. Part of it.
class Writer {
public:
    /// Sends a string whole. It goes out together with what follows it, so it must stay as it is
    /// until the next transfer or until in() has returned.
    void transferString(const Basis::string& text);
    void transferString(Basis::string&& text) = delete;
    /// The same for bytes that are no string.
    void transferBytes(const void* bytes, std::size_t length);

private:
    friend class Request;
    explicit Writer(Request& owner) : request(owner) {}
    Request& request;
};

/// Receives the strings of an answer. Part of a request.
class Reader {
public:
    /// Fills `text` with the next string of the answer. Throws NetException if there is none, or if
    /// the peer announces more than `mostBytes`.
    void transferString(Basis::string& text, std::uint64_t mostBytes = maxStringLength);
    /// Takes the next string, keeps its first bytes as far as they fit, and returns its length;
    /// nothing at the end of what an incoming request sends.
    std::optional<std::uint64_t> takeString(std::span<char> firstBytes);
    /// How many strings of the answer have not been read.
    std::uint32_t stringsLeft() const;

private:
    friend class Request;
    explicit Reader(Request& owner) : request(owner) {}
    Request& request;
};

/// One exchange with a peer: a named request goes out with its strings, the peer confirms that it
/// has all of them, and strings may come back.
///
/// An outgoing request connects when it is constructed, or takes a warm channel. Its header and the
/// length of its first string go out with that string. Destroying a request whose answer was read
/// to its end keeps the channel for the next one; any other way closes it, so nothing is ever
/// repeated.
///
/// Threads:    one at a time.
/// Errors:     NetException, after which the request can only be destroyed.
/// Memory:     none is allocated for a request on a warm channel.
class Request {
public:
    /// An outgoing request. `isSecure` travels in the header.
    Request(const char* requestName, const char* host, unsigned short port, char isSecure);
    /// An incoming request on a peer's connection, whose owner keeps it.
    explicit Request(Channel& connection);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    bool isHeaderDone() const { return headerDone; }
    bool isIncoming() const { return incoming; }
    Channel* channel() const { return link; }
    Writer& writer() { return ownWriter; }
    Reader& reader() { return ownReader; }
    /// The name by which the peer chooses what to do.
    std::string_view name() const { return {nameText.data(), nameLength}; }

    /// Makes the header ready; it goes out with what follows.
    void writeHeader();
    /// Reads the header of an incoming request from its channel. With `isBlocking` it waits for the
    /// first byte, without an end; else it returns false as long as there is none.
    bool readHeader(Channel* connection, bool isBlocking);

    /// Ends what is sent, after the header if that is still due, and waits until the peer has
    /// confirmed that it has everything.
    Reader& in();

    /// For an incoming request that was read to its end: confirms `received` bytes, and sends one
    /// string of `answerLength` characters "0" if there is a length. The last answer on a
    /// connection brings its end along: whoever has it knows that nothing more can be asked there.
    void confirm(std::uint64_t received, std::optional<std::uint64_t> answerLength,
                 bool isLast = false);

private:
    friend class Writer;
    friend class Reader;

    // What goes out next: header, name and frame, and the string behind them.
    std::array<std::byte, headerSize + maxNameLength + frameSize> staged;
    std::size_t stagedSize = 0;
    std::span<const std::byte> stagedString;
    bool hasStagedString = false;

    void stage(const Frame& frame);
    Frame receiveFrame(Deadline deadline);
    void sendStaged(std::span<std::byte> lastFrame);
    Frame nextString();
    void stringTaken();

    std::array<char, maxNameLength> nameText{};
    std::size_t nameLength = 0;
    std::unique_ptr<Channel> owned;
    Channel* link;
    bool headerDone = false;
    bool incoming;
    char secure;
    bool complete = false;  // the answer was read to its end, or is on its way to be
    std::uint64_t sentBytes = 0;
    std::uint32_t answerStrings = 0;
    Writer ownWriter;
    Reader ownReader;
};

}  // namespace JoltNet
