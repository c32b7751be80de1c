#include "JoltNet/Wire.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/services/JoltNet/RawPeer.h"

namespace {

using JoltNet::Frame;
using JoltNet::FrameKind;
using JoltNet::Header;

std::optional<Header> headerOf(const std::string& text)
{
    std::array<std::byte, JoltNet::headerSize> bytes{};
    std::memcpy(bytes.data(), text.data(), std::min(text.size(), bytes.size()));
    return JoltNet::decodeHeader(bytes);
}

std::optional<Frame> frameOf(std::uint32_t kind, std::uint32_t count, std::uint64_t value)
{
    std::array<std::byte, JoltNet::frameSize> bytes{};
    std::memcpy(bytes.data(), netTests::frameBytes(kind, count, value).data(), bytes.size());
    return JoltNet::decodeFrame(bytes);
}

template <std::size_t size>
std::string textOf(const std::array<std::byte, size>& bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), size};
}

TEST(WireHeader, IsEightBytes)
{
    std::array<std::byte, JoltNet::headerSize> bytes{};
    JoltNet::encodeHeader({3, 64}, bytes);

    EXPECT_EQ(textOf(bytes), std::string("JOLT\x01\x03\x40\x00", 8));
}

TEST(WireHeader, ReadsBackAsItWas)
{
    const std::optional<Header> header = headerOf(std::string("JOLT\x01\xff\x01\x00", 8));

    ASSERT_TRUE(header);
    EXPECT_EQ(header->flags, 0xff);
    EXPECT_EQ(header->nameLength, 1);
}

TEST(WireHeader, IsRefusedWithAnotherMagicNumberOrVersion)
{
    const std::string good("JOLT\x01\x00\x05\x00", 8);
    ASSERT_TRUE(headerOf(good));
    for (std::size_t place = 0; place <= 4; ++place) {
        std::string bad = good;
        bad[place] = static_cast<char>(bad[place] ^ 2);
        EXPECT_FALSE(headerOf(bad)) << place;
    }
    EXPECT_FALSE(headerOf(std::string("TLOJ\x01\x00\x05\x00", 8)));
    EXPECT_FALSE(headerOf(std::string("JOLT\x00\x00\x05\x00", 8)));
}

TEST(WireHeader, IsRefusedWithANameThatIsEmptyOrTooLong)
{
    EXPECT_FALSE(headerOf(std::string("JOLT\x01\x00\x00\x00", 8)));
    EXPECT_TRUE(headerOf(std::string("JOLT\x01\x00\x40\x00", 8)));
    EXPECT_FALSE(headerOf(std::string("JOLT\x01\x00\x41\x00", 8)));
    EXPECT_FALSE(headerOf(std::string("JOLT\x01\x00\xff\x00", 8)));
}

TEST(WireHeader, IsRefusedIfTheReservedByteIsSet)
{
    EXPECT_FALSE(headerOf(std::string("JOLT\x01\x00\x05\x01", 8)));
}

TEST(WireFrame, IsSixteenBytesBigEndian)
{
    std::array<std::byte, JoltNet::frameSize> bytes{};
    JoltNet::encodeFrame({FrameKind::receipt, 0x01020304, 0x05060708090a0b0c}, bytes);

    EXPECT_EQ(textOf(bytes), std::string("\0\0\0\3\1\2\3\4\5\6\7\x08\x09\x0a\x0b\x0c", 16));
}

TEST(WireFrame, ReadsBackAsItWas)
{
    const std::optional<Frame> string = frameOf(netTests::stringKind, 0, 0x010203);
    ASSERT_TRUE(string);
    EXPECT_EQ(string->kind, FrameKind::string);
    EXPECT_EQ(string->value, 0x010203U);

    const std::optional<Frame> receipt = frameOf(netTests::receiptKind, 1024, UINT64_MAX);
    ASSERT_TRUE(receipt);
    EXPECT_EQ(receipt->kind, FrameKind::receipt);
    EXPECT_EQ(receipt->count, 1024U);
    EXPECT_EQ(receipt->value, UINT64_MAX);

    const std::optional<Frame> end = frameOf(netTests::endKind, 0, 0);
    ASSERT_TRUE(end);
    EXPECT_EQ(end->kind, FrameKind::end);
}

TEST(WireFrame, IsRefusedWithAnUnknownKind)
{
    for (const std::uint32_t kind : {0U, 4U, 0x01000000U, 0xffffffffU})
        EXPECT_FALSE(frameOf(kind, 0, 0)) << kind;
}

TEST(WireFrame, AnnouncesStringsOfUpTo16GiB)
{
    constexpr std::uint64_t most = std::uint64_t{16} << 30;
    EXPECT_TRUE(frameOf(netTests::stringKind, 0, most));
    EXPECT_FALSE(frameOf(netTests::stringKind, 0, most + 1));
    EXPECT_FALSE(frameOf(netTests::stringKind, 0, std::uint64_t{1} << 63));
    EXPECT_FALSE(frameOf(netTests::stringKind, 0, UINT64_MAX));
}

TEST(WireFrame, HasACountInAReceiptOnly)
{
    EXPECT_FALSE(frameOf(netTests::stringKind, 1, 0));
    EXPECT_FALSE(frameOf(netTests::endKind, 1, 0));
    EXPECT_FALSE(frameOf(netTests::endKind, 0, 1));
    EXPECT_TRUE(frameOf(netTests::receiptKind, 1024, 0));
    EXPECT_FALSE(frameOf(netTests::receiptKind, 1025, 0));
}

TEST(WireName, IsLettersAndDigits)
{
    for (const char* name : {"A", "z", "0", "MeasureVNS", "9lives"})
        EXPECT_TRUE(JoltNet::isRequestName(name)) << name;
    for (const char* name : {"", " ", "a b", "a_b", "a-b", "\xe4", "a/", "@", "[", "`", "{", ":"})
        EXPECT_FALSE(JoltNet::isRequestName(name)) << name;
    EXPECT_FALSE(JoltNet::isRequestName(std::string_view("a\0b", 3)));
    EXPECT_TRUE(JoltNet::isRequestName(std::string(64, 'a')));
    EXPECT_FALSE(JoltNet::isRequestName(std::string(65, 'a')));
}

}  // namespace
