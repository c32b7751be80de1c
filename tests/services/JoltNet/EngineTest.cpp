#include "JoltNet/Engine.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/SocketHooks.h"
#include "tests/services/support/Files.h"

namespace {

using JoltNet::Engine;
using JoltNet::NetException;
using JoltNet::Request;
using netTests::RawSocket;
using netTests::ScriptedPeer;
using netTests::until;
using testing::HasSubstr;

constexpr const char* local = "127.0.0.1";

bool initialize(unsigned short highestPort = 65535)
{
    return Engine::initialize(config::Configuration::getServiceConfig(), highestPort, false);
}

void exchange(unsigned short port, const char* host = local)
{
    Request request("Take", host, port, 0);
    request.in();
}

// Answers so many requests without strings on each connection, then closes it.
ScriptedPeer::Script answering(int requests, const std::string& answer = netTests::receiptBytes(0))
{
    return [requests, answer](RawSocket& socket) {
        const std::string request = netTests::requestBytes("Take", {});
        for (int i = 0; i < requests && socket.receive(request.size()) == request; ++i)
            socket.send(answer);
    };
}

constexpr int all = 1'000'000;

std::string failureOf(const char* host, unsigned short port)
{
    try {
        exchange(port, host);
    } catch (const NetException& exception) {
        return exception.what();
    }
    return "(no failure)";
}

TEST(EngineState, IsInitializedOnceUntilItIsTerminated)
{
    EXPECT_TRUE(initialize());
    EXPECT_FALSE(initialize());
    Engine::terminate();
    EXPECT_TRUE(initialize());
    Engine::terminate();
}

TEST(EngineState, ServesNoRequestBeforeItIsReady)
{
    EXPECT_THAT(failureOf(local, 7), HasSubstr("the engine is not ready for 127.0.0.1:7"));

    initialize();
    Engine::terminate();
    EXPECT_THAT(failureOf(local, 7), HasSubstr("the engine is not ready for 127.0.0.1:7"));
}

TEST(EngineState, ServesNoPortAboveItsHighest)
{
    const ScriptedPeer peer(answering(all));
    initialize(static_cast<unsigned short>(peer.port() - 1));
    EXPECT_THAT(failureOf(local, peer.port()), HasSubstr("the engine is not ready for"));
    Engine::terminate();

    initialize(peer.port());
    EXPECT_EQ(failureOf(local, peer.port()), "(no failure)");
    Engine::terminate();
}

TEST(EngineState, ClosesChannelsThatComeBackTooLate)
{
    netTests::SocketPair pair;
    Engine::keepChannel(
        std::make_unique<JoltNet::Channel>(JoltNet::Descriptor(pair.first), "peer", 1));

    EXPECT_TRUE(pair.second.isEnded());
}

class WarmChannels : public testing::Test {
protected:
    netTests::EngineScope engine;
};

TEST_F(WarmChannels, AreUsedByTheNextRequests)
{
    const ScriptedPeer peer(answering(all));
    for (int i = 0; i < 10; ++i)
        exchange(peer.port());

    EXPECT_EQ(peer.connections(), 1);
}

TEST_F(WarmChannels, AreNotSharedByRequestsAtTheSameTime)
{
    const ScriptedPeer peer(answering(all));
    const Request first("Take", local, peer.port(), 0);
    const Request second("Take", local, peer.port(), 0);

    EXPECT_NE(first.channel(), second.channel());
}

TEST_F(WarmChannels, AreOfOnePeer)
{
    const ScriptedPeer one(answering(all));
    const ScriptedPeer other(answering(1));
    const ScriptedPeer named(answering(1));
    exchange(one.port());
    exchange(other.port());
    exchange(named.port());
    ASSERT_TRUE(until([&] { return named.closedConnections() == 1; }));
    exchange(named.port(), "localhost");

    EXPECT_EQ(one.connections(), 1);
    EXPECT_EQ(other.connections(), 1);
    EXPECT_EQ(named.connections(), 2);
}

TEST_F(WarmChannels, AreReopenedIfThePeerHasClosedThem)
{
    const ScriptedPeer peer(answering(1));
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ(failureOf(local, peer.port()), "(no failure)");
        ASSERT_TRUE(until([&] { return peer.closedConnections() == i; }));
    }

    EXPECT_EQ(peer.connections(), 3);
}

TEST_F(WarmChannels, AreReopenedIfThePeerHasSentWhatNobodyAskedFor)
{
    const ScriptedPeer peer(answering(all, netTests::receiptBytes(0) + "x"));
    exchange(peer.port());
    exchange(peer.port());

    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));
    EXPECT_TRUE(until([&] { return peer.connections() == 2; }));
}

TEST_F(WarmChannels, AreDroppedByTerminate)
{
    const ScriptedPeer peer(answering(all));
    exchange(peer.port());
    Engine::terminate();
    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));

    initialize();
    exchange(peer.port());
    EXPECT_EQ(peer.connections(), 2);
}

TEST_F(WarmChannels, AreKeptForThirtySecondsWithoutUse)
{
    netTests::ShiftedClock clock;
    const ScriptedPeer peer(answering(all));
    exchange(peer.port());
    clock.advance(std::chrono::seconds(29));
    exchange(peer.port());
    clock.advance(std::chrono::seconds(29));
    exchange(peer.port());
    EXPECT_EQ(peer.connections(), 1);

    clock.advance(std::chrono::seconds(31));
    exchange(peer.port());
    EXPECT_EQ(peer.connections(), 2);
}

TEST_F(WarmChannels, AreClosedThoughNoOtherRequestFollows)
{
    netTests::ShiftedClock clock;
    const ScriptedPeer peer(answering(all));
    exchange(peer.port());

    clock.advance(std::chrono::seconds(31));

    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));
}

TEST_F(WarmChannels, AreNotKeptAfterAFailure)
{
    const ScriptedPeer peer(answering(all, netTests::receiptBytes(1)));

    EXPECT_THAT(failureOf(local, peer.port()), HasSubstr("no receipt"));
    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));
}

TEST_F(WarmChannels, AreNotKeptIfTheAnswerWasNotReadToItsEnd)
{
    const ScriptedPeer peer(answering(
        all,
        netTests::receiptBytes(0, 2) + netTests::stringBytes("a") + netTests::stringBytes("")));
    {
        Request request("Take", local, peer.port(), 0);
        request.in().takeString({});
    }

    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));
}

TEST_F(WarmChannels, AreNotKeptIfTheRequestWasNotFinished)
{
    const ScriptedPeer peer(answering(all));
    {
        Request request("Take", local, peer.port(), 0);
        request.writeHeader();
    }

    EXPECT_TRUE(until([&] { return peer.closedConnections() == 1; }));
}

TEST_F(WarmChannels, AreSixtyFourAtMost)
{
    std::vector<netTests::SocketPair> pairs(65);
    for (const netTests::SocketPair& pair : pairs)
        Engine::keepChannel(
            std::make_unique<JoltNet::Channel>(JoltNet::Descriptor(pair.first), "peer", 1));

    EXPECT_TRUE(pairs.back().second.isEnded());
    EXPECT_FALSE(pairs.front().second.isEndedSoon());
    EXPECT_FALSE(pairs[63].second.isEndedSoon());
}

class Connecting : public testing::Test {
protected:
    netTests::EngineScope engine;
};

TEST_F(Connecting, RefusedNamesOperationHostPortAndCause)
{
    const unsigned short port = netTests::unusedPort();
    try {
        exchange(port);
        FAIL();
    } catch (const NetException& exception) {
        EXPECT_EQ(exception.systemError(), ECONNREFUSED);
        EXPECT_THAT(exception.what(), HasSubstr("connect to 127.0.0.1:" + std::to_string(port)));
        EXPECT_THAT(exception.what(), HasSubstr("Connection refused"));
    }
}

TEST_F(Connecting, ToAPeerThatSaysNothingEnds)
{
    // Who has accepted nobody for so long that no more may wait answers no further one at all.
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in place{};
    socklen_t size = sizeof place;
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&place), size), 0);
    ASSERT_EQ(::getsockname(listener, reinterpret_cast<sockaddr*>(&place), &size), 0);
    ASSERT_EQ(::listen(listener, 0), 0);
    const auto waiting = netTests::RawSocket::connectedTo(ntohs(place.sin_port));
    try {
        exchange(ntohs(place.sin_port));
        ADD_FAILURE();
    } catch (const NetException& exception) {
        EXPECT_EQ(exception.systemError(), ETIMEDOUT);
        EXPECT_THAT(exception.what(), HasSubstr("connect to 127.0.0.1:"));
    }
    ::close(listener);
}

TEST_F(Connecting, ToANameThatCannotBeResolvedNamesHostPortAndCause)
{
    EXPECT_THAT(failureOf("no host at all", 4464),
                testing::MatchesRegex(".*cannot resolve \\(.+\\) no host at all:4464.*"));
}

TEST_F(Connecting, TriesAllAddressesOfAName)
{
    // The name has an IPv6 address as well, on most hosts; nobody listens there.
    const ScriptedPeer peer(answering(1));

    EXPECT_EQ(failureOf("localhost", peer.port()), "(no failure)");
}

TEST_F(Connecting, MakesSocketsThatCommandsDoNotInherit)
{
    const ScriptedPeer peer(answering(all));
    const std::set<int> before = unitTests::openDescriptors();
    const std::unique_ptr<JoltNet::Channel> channel = Engine::takeChannel(local, peer.port());
    ASSERT_TRUE(until([&] { return peer.connections() == 1; }));

    // Of the two ends one is the peer's, which a command does not inherit either.
    int inherited = 0;
    for (const int descriptor : unitTests::openDescriptors()) {
        if (before.count(descriptor) == 0 && (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0)
            ++inherited;
    }
    EXPECT_EQ(inherited, 0);
}

}  // namespace
