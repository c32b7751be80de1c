// The server's side of a request, over two connected sockets.
#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <string>

#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/SocketHooks.h"

namespace {

using JoltNet::NetException;
using JoltNet::Request;
using testing::HasSubstr;

template <class Work>
std::string failureOf(Work work)
{
    try {
        work();
    } catch (const NetException& exception) {
        return exception.what();
    }
    return "(no failure)";
}

class IncomingRequest : public testing::Test {
protected:
    std::string failureOfHeader(const std::string& bytes)
    {
        netTests::SocketPair ends;
        JoltNet::Channel connection(JoltNet::Descriptor(ends.first), "peer", 4464);
        ends.second.send(bytes);
        ends.second.finish();
        Request incoming(connection);
        const std::string failure =
            failureOf([&] { incoming.readHeader(incoming.channel(), true); });
        EXPECT_EQ(incoming.isHeaderDone(), failure == "(no failure)");
        return failure;
    }

    netTests::SocketPair pair;
    JoltNet::Channel channel{JoltNet::Descriptor(pair.first), "peer", 4464};
    Request request{channel};
};

TEST_F(IncomingRequest, ReadsTheHeader)
{
    pair.second.send(netTests::headerBytes("MeasureVNS"));

    EXPECT_TRUE(request.isIncoming());
    EXPECT_FALSE(request.isHeaderDone());
    EXPECT_TRUE(request.readHeader(&channel, true));
    EXPECT_TRUE(request.isHeaderDone());
    EXPECT_EQ(request.name(), "MeasureVNS");
}

TEST_F(IncomingRequest, ReadsTheHeaderOnce)
{
    pair.second.send(netTests::headerBytes("First") + netTests::headerBytes("Second"));
    request.readHeader(&channel, true);

    EXPECT_TRUE(request.readHeader(&channel, true));
    EXPECT_TRUE(request.readHeader(&channel, false));
    EXPECT_EQ(request.name(), "First");
}

TEST_F(IncomingRequest, DoesNotWaitForAHeaderIfItIsNotToBlock)
{
    EXPECT_FALSE(request.readHeader(&channel, false));
    EXPECT_FALSE(request.isHeaderDone());

    pair.second.send(netTests::headerBytes("Take"));
    EXPECT_TRUE(request.readHeader(&channel, false));
    EXPECT_EQ(request.name(), "Take");
}

TEST_F(IncomingRequest, ReadsAHeaderThatComesByteForByte)
{
    netTests::SocketHooks hooks;
    hooks.mostPerReceive = 1;
    pair.second.send(netTests::requestBytes("Take", {"abc"}));
    request.readHeader(&channel, true);
    std::array<char, 8> kept{};

    EXPECT_EQ(request.name(), "Take");
    EXPECT_EQ(request.reader().takeString(kept), 3U);
    EXPECT_STREQ(kept.data(), "abc");
    EXPECT_EQ(request.reader().takeString({}), std::nullopt);
}

TEST_F(IncomingRequest, RefusesWhatIsNoHeader)
{
    const std::string header = netTests::headerBytes("Take");
    for (const std::size_t place : {0U, 3U, 4U, 7U}) {
        std::string broken = header;
        broken[place] = static_cast<char>(broken[place] + 1);
        EXPECT_THAT(failureOfHeader(broken), HasSubstr("no header of a request from peer:4464"))
            << place;
    }
    EXPECT_EQ(failureOfHeader(header), "(no failure)");
}

TEST_F(IncomingRequest, RefusesNamesThatMayNotBe)
{
    const std::string longest(64, 'x');
    EXPECT_EQ(failureOfHeader(netTests::headerBytes(longest)), "(no failure)");
    EXPECT_THAT(failureOfHeader(netTests::headerBytes(longest + "x")), HasSubstr("no header"));
    EXPECT_THAT(failureOfHeader(netTests::headerBytes("")), HasSubstr("no header"));
    for (const char* name : {"a b", "../x", "\xff", "a\n"}) {
        EXPECT_THAT(failureOfHeader(netTests::headerBytes(name)),
                    HasSubstr("an unreadable name of a request from peer:4464"));
    }
}

TEST_F(IncomingRequest, FailsIfThePeerEndsWithinTheHeader)
{
    const std::string header = netTests::headerBytes("Take");
    for (std::size_t size = 0; size < header.size(); ++size) {
        EXPECT_THAT(failureOfHeader(header.substr(0, size)),
                    HasSubstr("connection ended by peer:4464"))
            << size;
    }
}

TEST_F(IncomingRequest, GivesAHeaderFiveSecondsFromItsFirstByte)
{
    netTests::ShiftedClock clock;
    netTests::SocketHooks hooks;
    hooks.mostPerReceive = 1;
    hooks.beforeTransfer = [&clock] { clock.advance(std::chrono::seconds(1)); };
    // Byte for byte in time, but not all of them.
    pair.second.send(netTests::headerBytes("Take"));

    const std::string failure = failureOf([&] { request.readHeader(&channel, true); });

    EXPECT_THAT(failure, HasSubstr("receive from peer:4464"));
    EXPECT_THAT(failure, HasSubstr("timed out"));
}

TEST_F(IncomingRequest, TakesStringsUntilTheEnd)
{
    pair.second.send(netTests::requestBytes("Take", {"abc", "", "defg"}));
    request.readHeader(&channel, true);
    std::array<char, 2> kept{};

    EXPECT_EQ(request.reader().takeString(kept), 3U);
    EXPECT_EQ(std::string(kept.data(), 2), "ab");
    EXPECT_EQ(request.reader().takeString({}), 0U);
    EXPECT_EQ(request.reader().takeString({}), 4U);
    EXPECT_EQ(request.reader().takeString({}), std::nullopt);
    EXPECT_TRUE(channel.isQuiet());
}

TEST_F(IncomingRequest, RefusesAReceiptWhereAStringMayBe)
{
    pair.second.send(netTests::headerBytes("Take") + netTests::receiptBytes(0));
    request.readHeader(&channel, true);

    EXPECT_THAT(failureOf([&] { request.reader().takeString({}); }),
                HasSubstr("no string from peer:4464"));
}

TEST_F(IncomingRequest, RefusesTheAnnouncementOfTwoToThe63)
{
    pair.second.send(netTests::headerBytes("Take") +
                     netTests::frameBytes(netTests::stringKind, 0, std::uint64_t{1} << 63));
    request.readHeader(&channel, true);

    EXPECT_THAT(failureOf([&] { request.reader().takeString({}); }),
                HasSubstr("a broken frame from peer:4464"));
}

TEST_F(IncomingRequest, ConfirmsWithAReceiptAlone)
{
    request.confirm(12, std::nullopt);
    channel.shutDown();

    EXPECT_EQ(pair.second.receive(100), netTests::receiptBytes(12));
}

TEST_F(IncomingRequest, ConfirmsWithAnEmptyString)
{
    request.confirm(12, 0);
    channel.shutDown();

    EXPECT_EQ(pair.second.receive(100), netTests::receiptBytes(12, 1) + netTests::stringBytes(""));
}

TEST_F(IncomingRequest, AnswersWithAsManyZerosAsItIsTold)
{
    // More than one piece, and no multiple of it.
    constexpr std::size_t length = 600'001;
    std::string received;
    std::thread peer([&] { received = pair.second.receive(length + 1000); });
    request.confirm(1, length);
    channel.shutDown();
    peer.join();

    // Compared as a whole, shown only in part.
    EXPECT_EQ(received.size(), 32 + length);
    EXPECT_TRUE(received ==
                netTests::receiptBytes(1, 1) + netTests::stringBytes(std::string(length, '0')));
}

}  // namespace
