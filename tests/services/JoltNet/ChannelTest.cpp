#include "JoltNet/Channel.h"

#include <gmock/gmock.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "JoltNet/NetException.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/SocketHooks.h"

namespace {

using JoltNet::Clock;
using JoltNet::Deadline;
using JoltNet::NetException;
using testing::HasSubstr;

Deadline soon()
{
    return Clock::now() + std::chrono::seconds(20);
}

Deadline past()
{
    return Clock::now() - std::chrono::seconds(1);
}

struct Failure {
    int systemError = 0;
    std::string text = "(no failure)";
};

template <class Work>
Failure failureOf(Work work)
{
    try {
        work();
    } catch (const NetException& exception) {
        return {exception.systemError(), exception.what()};
    }
    return {};
}

class ChannelTest : public testing::Test {
protected:
    void send(std::vector<std::string> texts, Deadline deadline, bool isMoreComing = false)
    {
        std::vector<iovec> parts;
        parts.reserve(texts.size());
        for (std::string& text : texts)
            parts.push_back({text.data(), text.size()});
        channel.send(parts, isMoreComing, deadline);
    }
    std::string receive(std::size_t size, std::size_t ahead = 0)
    {
        std::string text(size, '\0');
        channel.receive(std::as_writable_bytes(std::span(text)), ahead, soon());
        return text;
    }

    netTests::ShiftedClock clock;
    netTests::SocketHooks hooks;
    netTests::SocketPair pair;
    JoltNet::Channel channel{JoltNet::Descriptor(pair.first), "peer", 4464};
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "channel", 0);
};

TEST_F(ChannelTest, KnowsItsPeer)
{
    EXPECT_EQ(channel.host(), "peer");
    EXPECT_EQ(channel.port(), 4464);
    EXPECT_EQ(channel.peer(), "peer:4464");
}

TEST_F(ChannelTest, SendsAllPartsInTheirOrderInOneCall)
{
    send({"abc", "", "de", "f"}, soon());
    EXPECT_EQ(hooks.sends, 1);
    EXPECT_EQ(pair.second.receive(6), "abcdef");
}

TEST_F(ChannelTest, SendsTheRestIfTheKernelTakesLess)
{
    hooks.mostPerSend = 2;
    hooks.interruptedSends = 3;
    send({"abcde", "", "f", "ghi"}, soon());
    EXPECT_EQ(pair.second.receive(9), "abcdefghi");
}

TEST_F(ChannelTest, SendsNothingIfThereIsNothing)
{
    send({}, past());
    send({"", ""}, past());
    EXPECT_EQ(hooks.sends, 0);
}

TEST_F(ChannelTest, TellsTheKernelWhetherMoreIsComing)
{
    send({"a"}, soon(), true);
    EXPECT_NE(hooks.lastSendFlags & MSG_MORE, 0);
    send({"a"}, soon(), false);
    EXPECT_EQ(hooks.lastSendFlags & MSG_MORE, 0);
}

TEST_F(ChannelTest, FailsToSendToAPeerThatHasGone)
{
    pair.second.close();
    const Failure failure = failureOf([&] { send({"abc"}, soon()); });

    EXPECT_EQ(failure.systemError, EPIPE);
    EXPECT_THAT(failure.text, HasSubstr("send to peer:4464"));
}

TEST_F(ChannelTest, FailsToSendToAPeerThatTakesNothing)
{
    const Failure failure = failureOf([&] { send({std::string(8 << 20, 'x')}, past()); });

    EXPECT_EQ(failure.systemError, ETIMEDOUT);
    EXPECT_THAT(failure.text, HasSubstr("send to peer:4464"));
}

TEST_F(ChannelTest, FailsToSendToAPeerThatTakesTooLongForAll)
{
    hooks.mostPerSend = 1;
    hooks.beforeTransfer = [this] { clock.advance(std::chrono::seconds(1)); };
    const Failure failure = failureOf([&] { send({std::string(100, 'x')}, soon()); });

    EXPECT_EQ(failure.systemError, ETIMEDOUT);
    EXPECT_LT(hooks.sends, 30);
}

TEST_F(ChannelTest, ReceivesWhatComesInPieces)
{
    hooks.mostPerReceive = 2;
    hooks.interruptedReceives = 3;
    pair.second.send("abcdefg");
    EXPECT_EQ(receive(5, 100), "abcde");
    EXPECT_EQ(receive(2), "fg");
    EXPECT_EQ(receive(0), "");
}

TEST_F(ChannelTest, ReadsNoFurtherAheadThanItIsTold)
{
    pair.second.send("abcdefghij");
    receive(3, 0);
    EXPECT_EQ(hooks.lastReceiveSize, 3U);
    receive(2, 4);
    EXPECT_EQ(hooks.lastReceiveSize, 6U);
    // Six bytes were read, of which four are left; all that is asked for of the rest is two.
    EXPECT_EQ(receive(5, 1), "fghij");
    EXPECT_EQ(hooks.lastReceiveSize, 2U);
    EXPECT_TRUE(channel.isQuiet());
}

TEST_F(ChannelTest, ReadsNoFurtherAheadThanItsBuffer)
{
    pair.second.send("a");
    receive(1, 10 * JoltNet::channelBufferSize);
    EXPECT_EQ(hooks.lastReceiveSize, JoltNet::channelBufferSize);
}

TEST_F(ChannelTest, ReceivesMoreThanItsBufferHolds)
{
    std::string sent(3 * JoltNet::channelBufferSize + 7, 'x');
    sent[JoltNet::channelBufferSize] = 'y';
    sent.back() = 'z';
    std::thread peer([&] { pair.second.send(sent); });
    const std::string received = receive(sent.size(), 0);
    peer.join();
    EXPECT_TRUE(received == sent);
}

TEST_F(ChannelTest, FailsToReceiveFromAPeerThatIsSilent)
{
    pair.second.send("ab");
    std::array<std::byte, 3> place{};
    hooks.beforeTransfer = [this] { clock.advance(std::chrono::seconds(11)); };
    const Failure failure = failureOf([&] { channel.receive(place, 0, soon()); });

    EXPECT_EQ(failure.systemError, ETIMEDOUT);
    EXPECT_THAT(failure.text, HasSubstr("receive from peer:4464"));
}

TEST_F(ChannelTest, FailsToReceiveBehindTheDeadlineThoughBytesAreThere)
{
    pair.second.send("abcdefgh");
    hooks.mostPerReceive = 1;
    hooks.beforeTransfer = [this] { clock.advance(std::chrono::seconds(11)); };
    std::array<std::byte, 8> place{};
    Basis::string text("", domain.get());

    EXPECT_EQ(failureOf([&] { channel.receive(place, 0, soon()); }).systemError, ETIMEDOUT);
    EXPECT_EQ(failureOf([&] { channel.receive(text, 8, soon()); }).systemError, ETIMEDOUT);
    EXPECT_EQ(failureOf([&] { channel.consume(8, {}, soon()); }).systemError, ETIMEDOUT);
}

TEST_F(ChannelTest, FailsToReceiveFromAPeerThatHasGone)
{
    pair.second.send("ab");
    pair.second.close();
    std::array<std::byte, 3> place{};
    Basis::string text("", domain.get());

    const Failure failure = failureOf([&] { channel.receive(place, 0, soon()); });
    EXPECT_EQ(failure.systemError, ECONNRESET);
    EXPECT_THAT(failure.text, HasSubstr("connection ended by peer:4464"));
    EXPECT_EQ(failureOf([&] { channel.receive(text, 1, soon()); }).systemError, ECONNRESET);
    EXPECT_EQ(failureOf([&] { channel.consume(1, {}, soon()); }).systemError, ECONNRESET);
}

TEST_F(ChannelTest, PutsWhatWasReadAheadAndWhatFollowsInThePlaceOfAText)
{
    for (const char* before : {"", "xyz", "uvxyz", "longer than that"}) {
        pair.second.send("-abcdef");
        receive(1, 3);
        Basis::string text(before, domain.get());
        channel.receive(text, 5, soon());
        EXPECT_EQ(text, "abcde");
        EXPECT_EQ(receive(1), "f");
        channel.receive(text, 0, past());
        EXPECT_EQ(text, "");
    }
}

TEST_F(ChannelTest, LeavesWhatWasReadAheadBehindAText)
{
    pair.second.send("-abcdef");
    receive(1, 100);
    Basis::string text("", domain.get());
    channel.receive(text, 2, soon());
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(receive(4), "cdef");
}

TEST_F(ChannelTest, ReceivesATextOfSeveralPieces)
{
    std::string sent((2 << 20) + 11, 'x');
    sent[1 << 20] = 'y';
    sent.back() = 'z';
    std::thread peer([&] { pair.second.send(sent); });
    Basis::string text("", domain.get());
    channel.receive(text, sent.size(), soon());
    peer.join();
    EXPECT_TRUE(std::string(text) == sent);
}

TEST_F(ChannelTest, TakesMemoryForWhatComesInAndNotForWhatIsAnnounced)
{
    pair.second.send("abc");
    pair.second.close();
    Basis::string text("", domain.get());
    const Failure failure =
        failureOf([&] { channel.receive(text, std::uint64_t{16} << 30, soon()); });

    EXPECT_EQ(failure.systemError, ECONNRESET);
    EXPECT_LT(domain->peakBytes(), std::size_t{4} << 20);
}

TEST_F(ChannelTest, ForgetsBytesButForTheFirst)
{
    hooks.mostPerReceive = 2;
    pair.second.send("abcdefgh");
    std::array<char, 3> first{};
    channel.consume(7, first, soon());
    EXPECT_EQ(std::string(first.data(), 3), "abc");
    EXPECT_EQ(receive(1), "h");

    pair.second.send("ij");
    std::array<char, 3> more{'x', 'x', 'x'};
    channel.consume(2, more, soon());
    EXPECT_EQ(std::string(more.data(), 3), "ijx");
    channel.consume(0, more, past());
    EXPECT_EQ(std::string(more.data(), 3), "ijx");
}

TEST_F(ChannelTest, ForgetsWhatWasReadAheadAndLeavesTheRest)
{
    pair.second.send("-abcdef");
    receive(1, 100);
    channel.consume(3, {}, soon());
    EXPECT_EQ(receive(3), "def");
}

TEST_F(ChannelTest, ExpectsAMegabyteASecondAndTenSecondsMoreOfWhatIsSent)
{
    std::vector<Deadline> dues;
    hooks.mostPerSend = 100'000;
    // A peer that takes half as much as it should.
    hooks.beforeTransfer = [&] {
        dues.push_back(channel.dueTime().value_or(Deadline()));
        clock.advance(std::chrono::milliseconds(200));
    };
    EXPECT_EQ(channel.dueTime(), std::nullopt);
    const Deadline begin = Clock::now();
    std::thread peer([this] { pair.second.receive(2'500'000); });
    send({std::string(1'000'000, 'x')}, soon(), true);
    // The rest of it has no new beginning.
    EXPECT_NE(channel.dueTime(), std::nullopt);
    send({std::string(1'500'000, 'x')}, soon());
    peer.join();

    EXPECT_EQ(channel.dueTime(), std::nullopt);
    ASSERT_EQ(dues.size(), 25U);
    EXPECT_GE(dues.front(), begin + std::chrono::seconds(10));
    EXPECT_EQ(dues.back() - dues.front(), std::chrono::milliseconds(2400));
}

TEST_F(ChannelTest, ExpectsMoreWithinTenSecondsHoweverMuchWasSent)
{
    std::vector<Clock::duration> times;
    hooks.mostPerSend = 1'000'000;
    hooks.beforeTransfer = [&] {
        times.push_back(channel.dueTime().value_or(Deadline()) - Clock::now());
    };
    std::thread peer([this] { pair.second.receive(50'000'000); });
    send({std::string(50'000'000, 'x')}, soon());
    peer.join();

    EXPECT_GE(times.size(), 50U);
    EXPECT_LE(*std::max_element(times.begin(), times.end()), std::chrono::seconds(10));
}

TEST_F(ChannelTest, WaitsForAByteAndKeepsIt)
{
    pair.second.send("ab");
    EXPECT_TRUE(channel.waitForFirstByte());
    EXPECT_TRUE(channel.waitForFirstByte());
    EXPECT_EQ(receive(2), "ab");
}

TEST_F(ChannelTest, WaitsForAByteWithoutADeadline)
{
    int waits = 0;
    hooks.interruptedReceives = 100;
    hooks.beforeTransfer = [&] {
        clock.advance(std::chrono::hours(1));
        if (++waits == 50)
            pair.second.send("a");
    };
    EXPECT_TRUE(channel.waitForFirstByte());
}

TEST_F(ChannelTest, WaitsNoLongerOnceThePeerHasGone)
{
    pair.second.finish();
    EXPECT_FALSE(channel.waitForFirstByte());
}

TEST_F(ChannelTest, ShutDownWakesWhoWaits)
{
    bool hasByte = true;
    std::thread waiter([&] { hasByte = channel.waitForFirstByte(); });
    channel.shutDown();
    waiter.join();

    EXPECT_FALSE(hasByte);
    EXPECT_TRUE(pair.second.isEnded());
}

TEST_F(ChannelTest, ShutDownFailsWhoReceives)
{
    Failure failure;
    std::thread receiver([&] { failure = failureOf([&] { receive(1); }); });
    channel.shutDown();
    receiver.join();

    EXPECT_THAT(failure.text, HasSubstr("connection ended by peer:4464"));
    EXPECT_EQ(failureOf([&] { send({"a"}, soon()); }).systemError, EPIPE);
}

TEST_F(ChannelTest, IsQuietAsLongAsNothingHasComeIn)
{
    EXPECT_TRUE(channel.isQuiet());
    pair.second.send("ab");
    EXPECT_FALSE(channel.isQuiet());
    receive(1, 1);
    EXPECT_FALSE(channel.isQuiet());
    receive(1);
    EXPECT_TRUE(channel.isQuiet());
    pair.second.finish();
    EXPECT_FALSE(channel.isQuiet());
}

TEST(ChannelEnd, ClosesTheSocket)
{
    netTests::SocketPair pair;
    {
        const JoltNet::Channel channel(JoltNet::Descriptor(pair.first), "peer", 1);
    }
    EXPECT_TRUE(pair.second.isEnded());
}

TEST(TransferDeadline, IsTenSecondsOrOneSecondForEachMillionBytes)
{
    const auto secondsFor = [](std::uint64_t bytes) {
        const Deadline before = Clock::now();
        const Deadline deadline = JoltNet::transferDeadline(bytes);
        // No more than the time between the two calls is lost.
        return std::chrono::round<std::chrono::seconds>(deadline - before).count();
    };
    EXPECT_EQ(secondsFor(0), 10);
    EXPECT_EQ(secondsFor(10'999'999), 10);
    EXPECT_EQ(secondsFor(11'000'000), 11);
    EXPECT_EQ(secondsFor(std::uint64_t{16} << 30), 17179);
}

}  // namespace
