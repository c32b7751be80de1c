#include "impl/network/Receiver.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "JoltNet/NetException.h"
#include "impl/network/WireObjects.h"
#include "tests/programs/VNSNetServerBidi/RunningMeasuringServer.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using Basis::string;
using unitTests::CapturedOutput;

Basis::Allocator& domain()
{
    return *Basis::Allocator::global();
}

string text(std::string_view characters)
{
    return string(characters, &domain());
}

class OpenReceiver : public vetraTests::Receiver {
public:
    explicit OpenReceiver(unsigned short toPort, unsigned long bytes = 1000)
        : Receiver(domain(), text("127.0.0.1"), toPort, bytes)
    {
    }
    using Receiver::running;
    using Receiver::stopRequested;

    void run(void* argument) override
    {
        ++runs;
        lastArgument = argument;
        wasRunning = running;
        if (failure)
            failure();
        Receiver::run(argument);
    }

    int runs = 0;
    void* lastArgument = this;
    bool wasRunning = false;
    void (*failure)() = nullptr;
};

class ReceiverTest : public testing::Test {
protected:
    netTests::EngineScope engine;
    CapturedOutput out;
};

TEST_F(ReceiverTest, FetchesItsBytesFromTheServer)
{
    const netTests::RunningMeasuringServer server;
    OpenReceiver receiver(server.port(), 300'000);

    EXPECT_TRUE(receiver.start());
    EXPECT_TRUE(receiver.join());
    EXPECT_EQ(receiver.runs, 1);
    EXPECT_EQ(receiver.lastArgument, nullptr);
    EXPECT_EQ(out.text(), "");
}

TEST_F(ReceiverTest, AsksForItsBytesInDecimal)
{
    const std::string expected = netTests::requestBytes("DualVNS", {"65535"});
    std::string received;
    const netTests::ScriptedPeer peer([&](netTests::RawSocket& socket) {
        received = socket.receive(expected.size());
        socket.send(netTests::receiptBytes(5));
        socket.isEnded();
    });
    OpenReceiver receiver(peer.port(), 65535);
    receiver.start();

    EXPECT_TRUE(receiver.join());
    EXPECT_EQ(received, expected);
}

TEST_F(ReceiverTest, MayBeStartedAgainBehindItsEnd)
{
    const netTests::RunningMeasuringServer server;
    OpenReceiver receiver(server.port());
    for (int i = 1; i <= 3; ++i) {
        EXPECT_TRUE(receiver.start());
        EXPECT_TRUE(receiver.join());
        EXPECT_EQ(receiver.runs, i);
        EXPECT_FALSE(receiver.running);
    }
}

TEST_F(ReceiverTest, DoesNotRunIfItIsRunning)
{
    OpenReceiver receiver(1);
    receiver.running = true;

    EXPECT_TRUE(receiver.start());
    EXPECT_EQ(receiver.runs, 0);
}

TEST_F(ReceiverTest, StartsAlsoIfNobodyListensAndTellsItInJoin)
{
    OpenReceiver receiver(netTests::unusedPort());

    EXPECT_TRUE(receiver.start());
    EXPECT_FALSE(receiver.join());
    EXPECT_FALSE(receiver.running);
}

TEST_F(ReceiverTest, FailsToStartWithALineIfItsRunFails)
{
    OpenReceiver receiver(1);
    receiver.failure = [] { JoltNet::throwProtocolError("nothing from", "a:1"); };
    EXPECT_FALSE(receiver.start());
    EXPECT_THAT(out.text(), testing::HasSubstr("exchange failed: nothing from a:1"));

    const CapturedOutput line;
    receiver.failure = [] { throw Basis::Exception("file.cpp", 1, ENOENT); };
    EXPECT_FALSE(receiver.start());
    EXPECT_THAT(line.text(), testing::StartsWith(" qrv "));
}

TEST_F(ReceiverTest, JoinsWithoutAStart)
{
    OpenReceiver receiver(1);
    EXPECT_TRUE(receiver.join());
}

TEST_F(ReceiverTest, StopsByNotingItAlone)
{
    const netTests::RunningMeasuringServer server;
    OpenReceiver receiver(server.port());
    EXPECT_FALSE(receiver.stopRequested);
    EXPECT_TRUE(receiver.stop());
    EXPECT_TRUE(receiver.stopRequested);

    // It starts none the less.
    EXPECT_TRUE(receiver.start());
    EXPECT_TRUE(receiver.stopAndWait());
    EXPECT_EQ(receiver.runs, 1);
}

TEST_F(ReceiverTest, StopsAndWaitsWithTheResultOfJoin)
{
    OpenReceiver receiver(netTests::unusedPort());
    receiver.start();

    EXPECT_FALSE(receiver.stopAndWait());
    EXPECT_TRUE(receiver.stopRequested);
}

TEST_F(ReceiverTest, HasANameForItsThread)
{
    EXPECT_STREQ(OpenReceiver(1).getThreadName(), "Receiver");
}

TEST_F(ReceiverTest, MayGoWhileItsRequestIsUnderWay)
{
    const netTests::RunningMeasuringServer server;
    OpenReceiver receiver(server.port(), 3'000'000);
    EXPECT_TRUE(receiver.start());
}

TEST(JoinHostAndPort, PutsAColonBetweenThem)
{
    EXPECT_EQ(vetraTests::JoinHostAndPort(text("peer.example"), 4464, domain()),
              "peer.example:4464");
    EXPECT_EQ(vetraTests::JoinHostAndPort(text(""), 0, domain()), ":0");
    EXPECT_EQ(vetraTests::JoinHostAndPort(text("::1"), 65535, domain()), "::1:65535");
}

class Collected : public JoltUtils::Serializer {
public:
    void write(const void* bytes, std::size_t length) override
    {
        text.append(static_cast<const char*>(bytes), length);
    }
    std::string text;
};

std::string serialized(const JoltUtils::Serializable& object)
{
    Collected collected;
    object.serialize(collected);
    return collected.text;
}

TEST(WireObjects, CarryTheSizeAsPlainDecimalText)
{
    EXPECT_EQ(serialized(vetraTests::BidiRequestObject(0)), "0");
    EXPECT_EQ(serialized(vetraTests::BidiRequestObject(65535)), "65535");
    EXPECT_EQ(serialized(vetraTests::BidiRequestObject(UINT64_MAX)), "18446744073709551615");
    EXPECT_EQ(serialized(vetraTests::BidiResponseObject()), "");
}

TEST(WireObjects, TakeNothingOfAnAnswer)
{
    struct Refusing : JoltUtils::Deserializer {
        std::size_t read(void*, std::size_t) override
        {
            ADD_FAILURE();
            return 0;
        }
    } deserializer;
    vetraTests::BidiRequestObject request(17);
    vetraTests::BidiResponseObject response;
    request.deserialize(deserializer);
    response.deserialize(deserializer);
    request.destruct();
    response.destruct();

    EXPECT_EQ(serialized(request), "17");
}

}  // namespace
