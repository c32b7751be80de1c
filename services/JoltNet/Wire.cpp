#include "JoltNet/Wire.h"

#include <algorithm>

namespace JoltNet {

namespace {

template <class Number>
void put(std::byte* place, Number number)
{
    for (std::size_t i = sizeof number; i-- > 0;) {
        place[i] = static_cast<std::byte>(number & 0xff);
        if constexpr (sizeof number > 1)
            number = static_cast<Number>(number >> 8);
    }
}

template <class Number>
Number get(const std::byte* place)
{
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        number = number << 8 | std::to_integer<std::uint64_t>(place[i]);
    return static_cast<Number>(number);
}

bool isLetterOrDigit(char letter)
{
    return (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= 'a' && letter <= 'z');
}

}  // namespace

void encodeHeader(const Header& header, std::span<std::byte, headerSize> bytes)
{
    put(&bytes[0], headerMagic);
    put(&bytes[4], wireVersion);
    put(&bytes[5], header.flags);
    put(&bytes[6], header.nameLength);
    put(&bytes[7], std::uint8_t{0});
}

void encodeFrame(const Frame& frame, std::span<std::byte, frameSize> bytes)
{
    put(&bytes[0], static_cast<std::uint32_t>(frame.kind));
    put(&bytes[4], frame.count);
    put(&bytes[8], frame.value);
}

std::optional<Header> decodeHeader(std::span<const std::byte, headerSize> bytes)
{
    if (get<std::uint32_t>(&bytes[0]) != headerMagic || get<std::uint8_t>(&bytes[4]) != wireVersion)
        return std::nullopt;
    const Header header{get<std::uint8_t>(&bytes[5]), get<std::uint8_t>(&bytes[6])};
    if (header.nameLength == 0 || header.nameLength > maxNameLength || bytes[7] != std::byte{0})
        return std::nullopt;
    return header;
}

std::optional<Frame> decodeFrame(std::span<const std::byte, frameSize> bytes)
{
    const Frame frame{static_cast<FrameKind>(get<std::uint32_t>(&bytes[0])),
                      get<std::uint32_t>(&bytes[4]), get<std::uint64_t>(&bytes[8])};
    switch (frame.kind) {
        case FrameKind::string:
            if (frame.count == 0 && frame.value <= maxStringLength)
                return frame;
            break;
        case FrameKind::end:
            if (frame.count == 0 && frame.value == 0)
                return frame;
            break;
        case FrameKind::receipt:
            if (frame.count <= maxStrings)
                return frame;
            break;
    }
    return std::nullopt;
}

bool isRequestName(std::string_view name)
{
    return !name.empty() && name.size() <= maxNameLength &&
           std::all_of(name.begin(), name.end(), &isLetterOrDigit);
}

}  // namespace JoltNet
