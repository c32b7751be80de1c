#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace JoltNet {

// What travels. Numbers are big endian.
//
//   request:  header (8 bytes: magic, version, flags, length of the name, 0), the name,
//             for each string a frame of kind `string` with its length, and its bytes,
//             a frame of kind `end`
//   answer:   a frame of kind `receipt` with the number of bytes of all strings that came in, and
//             in its count the number of strings that follow
//             for each of these a frame of kind `string` with its length, and its bytes
//
// A frame has 16 bytes: kind, count, value. After an answer the connection is ready for the next
// request.

inline constexpr std::uint32_t headerMagic = 0x4a4f4c54;
inline constexpr std::uint8_t wireVersion = 1;
inline constexpr std::size_t headerSize = 8;
inline constexpr std::size_t frameSize = 16;
inline constexpr std::size_t maxNameLength = 64;

/// No string is longer: 16 GiB.
inline constexpr std::uint64_t maxStringLength = std::uint64_t{16} << 30;
/// Nor are more strings sent in one request or answer.
inline constexpr std::uint32_t maxStrings = 1024;

enum class FrameKind : std::uint32_t { string = 1, end = 2, receipt = 3 };

struct Header {
    std::uint8_t flags = 0;
    std::uint8_t nameLength = 0;
};

struct Frame {
    FrameKind kind = FrameKind::end;
    std::uint32_t count = 0;
    std::uint64_t value = 0;
};

void encodeHeader(const Header& header, std::span<std::byte, headerSize> bytes);
void encodeFrame(const Frame& frame, std::span<std::byte, frameSize> bytes);

/// Nothing if the bytes are no header of this version with a name that may be.
std::optional<Header> decodeHeader(std::span<const std::byte, headerSize> bytes);
/// Nothing for an unknown kind, and for a length or count beyond the limits.
std::optional<Frame> decodeFrame(std::span<const std::byte, frameSize> bytes);

/// Whether a name consists of letters and digits.
bool isRequestName(std::string_view name);

}  // namespace JoltNet
