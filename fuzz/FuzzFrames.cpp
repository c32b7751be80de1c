// What peers send: requests to a server's connection, and answers to a client's request.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Basis/Crash.h"
#include "Configuration/Configuration.h"
#include "JoltNet/Engine.h"
#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "fuzz/FuzzHarness.h"

namespace {

using Basis::assertThat;
using Basis::string;

constexpr std::string_view payload = "12345";
constexpr std::uint64_t mostOfAnAnswer = 2000;
constexpr std::string_view stringKind("\0\0\0\1", 4);
constexpr std::string_view endKind("\0\0\0\2", 4);
constexpr std::string_view receiptKind("\0\0\0\3", 4);

// The peer's end of a connection, with all that it will ever send.
class Peer {
public:
    Peer()
    {
        assertThat(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0,
                   "there is a pair of sockets");
    }
    ~Peer() { ::close(ends[1]); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    int otherEnd() const { return ends[0]; }
    void sendAll(std::string_view bytes) const
    {
        assertThat(::send(ends[1], bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
                       static_cast<ssize_t>(bytes.size()),
                   "the bytes of an input fit into a socket");
        ::shutdown(ends[1], SHUT_WR);
    }

private:
    int ends[2]{-1, -1};
};

// Reads the same bytes as the protocol is described, straight from the text.
class Model {
public:
    explicit Model(std::string_view all) : left(all) {}

    std::optional<std::string_view> take(std::uint64_t size)
    {
        if (size > left.size())
            return std::nullopt;
        const std::string_view taken = left.substr(0, static_cast<std::size_t>(size));
        left.remove_prefix(taken.size());
        return taken;
    }
    std::optional<std::string_view> name()
    {
        const auto header = take(8);
        if (!header || header->substr(0, 5) != "JOLT\x01" || header->back() != '\0')
            return std::nullopt;
        const auto size = static_cast<unsigned char>((*header)[6]);
        return size == 0 || size > 64 ? std::nullopt : take(size);
    }
    // A frame's kind, count and value.
    bool frame()
    {
        const auto bytes = take(16);
        if (bytes) {
            kind = bytes->substr(0, 4);
            count = number(bytes->substr(4, 4));
            value = number(bytes->substr(8));
        }
        return bytes.has_value();
    }
    std::optional<std::string_view> text()
    {
        const bool isString = frame() && kind == stringKind && count == 0;
        return isString && value <= std::uint64_t{16} << 30 ? take(value) : std::nullopt;
    }

    std::string_view kind;
    std::uint64_t count = 0;
    std::uint64_t value = 0;

private:
    static std::uint64_t number(std::string_view bytes)
    {
        std::uint64_t result = 0;
        for (const char byte : bytes)
            result = result << 8 | static_cast<unsigned char>(byte);
        return result;
    }

    std::string_view left;
};

// One request as a server reads it, compared with the model; then it is answered.
void serveOne(JoltNet::Channel& channel, Model& model)
{
    JoltNet::Request request(channel);
    request.readHeader(&channel, true);
    assertThat(model.name() == request.name(), "a name is the one that was sent");
    assertThat(JoltNet::isRequestName(request.name()), "a name has letters and digits alone");
    std::uint64_t received = 0;
    std::array<char, 64> kept{};
    while (const auto length = request.reader().takeString(kept)) {
        const auto text = model.text();
        assertThat(text && text->size() == *length, "a string is as long as was announced");
        const std::size_t size = std::min(text->size(), kept.size());
        assertThat(std::string_view(kept.data(), size) == text->substr(0, size),
                   "the first bytes of a string are kept");
        received += *length;
    }
    assertThat(model.frame() && model.kind == endKind && model.count == 0 && model.value == 0,
               "a request ends with its mark");
    request.confirm(received, received);
}

void serve(std::string_view bytes)
{
    const Peer peer;
    JoltNet::Channel channel(JoltNet::Descriptor(peer.otherEnd()), "peer", 1);
    peer.sendAll(bytes);
    Model model(bytes);
    try {
        while (channel.waitForFirstByte())
            serveOne(channel, model);
    } catch (const JoltNet::NetException&) {
        // The connection is dropped.
    }
}

// Reads the strings of an answer, by turns whole and only their beginning.
void readStrings(JoltNet::Reader& reader, Model& model, Basis::Allocator& allocator)
{
    string whole(&allocator);
    for (bool isWhole = true; reader.stringsLeft() != 0; isWhole = !isWhole) {
        if (isWhole) {
            reader.transferString(whole, mostOfAnAnswer);
            assertThat(model.text() == std::string_view(whole), "a string is the one sent");
            assertThat(whole.size() <= mostOfAnAnswer, "a string is no longer than it may be");
        } else {
            const auto length = reader.takeString({});
            const auto text = model.text();
            assertThat(text && length == text->size(), "a string is as long as was announced");
        }
    }
}

void receiveAnswer(std::string_view bytes, Basis::Allocator& allocator)
{
    const Peer peer;
    JoltNet::Engine::keepChannel(
        std::make_unique<JoltNet::Channel>(JoltNet::Descriptor(peer.otherEnd()), "peer", 1));
    Model model(bytes);
    try {
        JoltNet::Request request("MeasureVNS", "peer", 1, 0);
        peer.sendAll(bytes);
        request.writer().transferBytes(payload.data(), payload.size());
        JoltNet::Reader& reader = request.in();
        assertThat(model.frame() && model.kind == receiptKind && model.value == payload.size(),
                   "a receipt is for what was sent");
        assertThat(reader.stringsLeft() == model.count && model.count <= 1024,
                   "an answer has the strings that it announces");
        readStrings(reader, model, allocator);
    } catch (const JoltNet::NetException&) {
        // The channel goes with the request.
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    VetraFuzz::prepareProcess();
    JoltNet::Engine::initialize(config::Configuration::getServiceConfig(), 65535, false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const VetraFuzz::InputDomain domain;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    serve(bytes);
    receiveAnswer(bytes, domain.allocator());
    return 0;
}
