#include "JoltNet/AutonomousRequest.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "JoltNet/Configuration.h"
#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"

namespace JoltNet {

namespace {

// A response gets no more than the beginning of what came: the rest is only measured.
constexpr std::size_t keptBytes = 4096;

class Collected : public JoltUtils::Serializer {
public:
    void write(const void* bytes, std::size_t length) override
    {
        text.append(static_cast<const char*>(bytes), length);
    }
    std::string text;
};

class Beginning : public JoltUtils::Deserializer {
public:
    std::span<char> place() { return kept; }
    void setLength(std::uint64_t length)
    {
        left = std::span(kept).first(
            static_cast<std::size_t>(std::min<std::uint64_t>(length, kept.size())));
    }
    std::size_t read(void* bytes, std::size_t length) override
    {
        const std::size_t count = std::min(length, left.size());
        if (count != 0)
            std::memcpy(bytes, left.data(), count);
        left = left.subspan(count);
        return count;
    }

private:
    std::array<char, keptBytes> kept{};
    std::span<char> left;
};

}  // namespace

AutonomousRequest::AutonomousRequest(const char* requestName, std::string_view address,
                                     Object requestObject, Object responseObject)
    : name(requestName), request(std::move(requestObject)), response(std::move(responseObject))
{
    const std::size_t colon = std::min(address.rfind(':'), address.size());
    host = address.substr(0, colon);
    const std::string_view digits = address.substr(std::min(colon + 1, address.size()));
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (result.ec != std::errc() || result.ptr != digits.data() + digits.size())
        throwProtocolError("an address must be HOST:PORT, not", address);
}

AutonomousRequest::~AutonomousRequest()
{
    for (const Object& object : {request, response}) {
        if (object)
            object->destruct();
    }
}

void AutonomousRequest::carryOut()
{
    Collected out;
    request->serialize(out);
    Request exchange(name.c_str(), host.c_str(), port,
                     static_cast<char>(Configuration::isSecure()));
    exchange.writeHeader();
    exchange.writer().transferBytes(out.text.data(), out.text.size());
    Reader& reader = exchange.in();
    while (reader.stringsLeft() != 0) {
        Beginning beginning;
        beginning.setLength(reader.takeString(beginning.place()).value_or(0));
        response->deserialize(beginning);
    }
}

}  // namespace JoltNet
