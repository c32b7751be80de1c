// How many peers a server takes, and how it ends.
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltNet/Server.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/RunningServer.h"
#include "tests/services/JoltNet/SocketHooks.h"

namespace {

using JoltNet::Answer;
using JoltNet::NetException;
using JoltNet::Received;
using JoltNet::Server;
using netTests::RawSocket;
using netTests::requestBytes;
using netTests::RunningServer;
using netTests::until;
using testing::HasSubstr;

bool isServed(const RawSocket& socket)
{
    socket.send(requestBytes("Take", {"abc"}));
    return socket.receive(16) == netTests::receiptBytes(3);
}

// Sending or receiving so much may take hours by itself.
constexpr std::uint64_t muchLength = std::uint64_t{16} << 30;

class ServerLife : public testing::Test {
protected:
    ServerLife()
    {
        server.onRequest("Take", [](const Received&) { return Answer{}; });
        server.onRequest("Wait", [this](const Received&) { return wait({}); });
        server.onRequest("Much", [](const Received&) { return Answer{.length = muchLength}; });
        server.onRequest("Last", [](const Received&) { return Answer{.isLast = true}; });
        server.onRequest("WaitLast",
                         [this](const Received&) { return wait(Answer{.isLast = true}); });
    }

    // Answers when the test says so.
    Answer wait(Answer answer)
    {
        ++waiting;
        until([this] { return isReleased.load(); });
        return answer;
    }

    void endWithTheLastAnswer()
    {
        const RawSocket last = connected();
        last.send(requestBytes("Last", {"0"}));
        ASSERT_EQ(last.receive(16), netTests::receiptBytes(1));
    }

    RawSocket connected() { return RawSocket::connectedTo(server.port()); }

    std::vector<RawSocket> manyConnected()
    {
        std::vector<RawSocket> sockets;
        for (std::size_t i = 0; i < Server::maxConnections; ++i)
            sockets.push_back(connected());
        return sockets;
    }

    netTests::ShiftedClock clock;
    Server server{"127.0.0.1", 0};
    std::atomic<int> waiting{0};
    std::atomic<bool> isReleased{false};
};

TEST_F(ServerLife, SilentConnectionsLockNobodyOut)
{
    const RunningServer running(server);
    const std::vector<RawSocket> silent = manyConnected();
    const RawSocket further = connected();

    EXPECT_TRUE(isServed(further));
    EXPECT_TRUE(silent.front().isEnded());
    EXPECT_FALSE(silent[1].isEndedSoon());
    EXPECT_TRUE(isServed(silent.back()));
}

TEST_F(ServerLife, GivesUpOneThatIsSilentWhereAllHaveSpoken)
{
    const RunningServer running(server);
    std::vector<RawSocket> sockets = manyConnected();
    for (const RawSocket& socket : sockets)
        ASSERT_TRUE(isServed(socket));

    EXPECT_TRUE(isServed(connected()));
    // One thread may note the use of its connection later than the next one.
    EXPECT_EQ(std::count_if(sockets.begin(), sockets.end(), &isServed),
              static_cast<std::ptrdiff_t>(sockets.size()) - 1);
}

void announceMuchAndSayNoMore(const RawSocket& socket)
{
    socket.send(netTests::headerBytes("Take") +
                netTests::frameBytes(netTests::stringKind, 0, muchLength) + "abc");
}

TEST_F(ServerLife, RequestsThatDoNotComeLockNobodyOutForLong)
{
    const RunningServer running(server);
    const std::vector<RawSocket> sockets = manyConnected();
    for (const RawSocket& socket : sockets)
        announceMuchAndSayNoMore(socket);

    // Until all are in their request, the silent ones among them give way.
    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::seconds(11));
        return isServed(connected());
    }));
    EXPECT_TRUE(isServed(connected()));
}

TEST_F(ServerLife, ARequestThatDoesNotComeDoesNotKeepItUp)
{
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket socket = connected();
    announceMuchAndSayNoMore(socket);

    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::minutes(16));
        return socket.isEndedSoon();
    }));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

// Once the beginning of its answer is here, the rest of it is on its way, and stays there.
void askForMuchAndTakeNoMore(const RawSocket& socket)
{
    socket.send(requestBytes("Much", {"abc"}));
    EXPECT_EQ(socket.receive(16), netTests::receiptBytes(3, 1));
}

TEST_F(ServerLife, AnswersThatNobodyTakesLockNobodyOutForLong)
{
    const RunningServer running(server);
    const std::vector<RawSocket> sockets = manyConnected();
    for (const RawSocket& socket : sockets)
        askForMuchAndTakeNoMore(socket);
    EXPECT_FALSE(isServed(connected()));

    // More than what fits between the two is given, and far less than the whole.
    clock.advance(std::chrono::minutes(2));
    EXPECT_TRUE(isServed(connected()));
    EXPECT_TRUE(isServed(connected()));
}

TEST_F(ServerLife, AnAnswerThatNobodyTakesDoesNotKeepItUp)
{
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket socket = connected();
    askForMuchAndTakeNoMore(socket);

    // Far less than sending it may take.
    clock.advance(std::chrono::minutes(17));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, ListensOnAPortOfTheSystemIfItMayChoose)
{
    EXPECT_NE(server.port(), 0);
    const Server other("127.0.0.1", 0);
    EXPECT_NE(other.port(), server.port());
}

TEST_F(ServerLife, CannotListenWhereAnotherOneDoes)
{
    try {
        const Server second("127.0.0.1", server.port());
        FAIL();
    } catch (const NetException& exception) {
        EXPECT_EQ(exception.systemError(), EADDRINUSE);
        EXPECT_THAT(exception.what(),
                    HasSubstr("listen on 127.0.0.1:" + std::to_string(server.port())));
    }
}

TEST_F(ServerLife, CannotListenOnWhatIsNoAddress)
{
    for (const char* address : {"", "localhost", "::1", "127.0.0"}) {
        try {
            const Server other(address, 0);
            FAIL() << address;
        } catch (const NetException& exception) {
            EXPECT_EQ(exception.systemError(), EINVAL);
        }
    }
}

TEST_F(ServerLife, EndsWhenNothingIsAskedForItsIdleTime)
{
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket socket = connected();
    ASSERT_TRUE(isServed(socket));
    clock.advance(std::chrono::minutes(14));
    ASSERT_TRUE(isServed(socket));
    clock.advance(std::chrono::minutes(14));
    ASSERT_TRUE(isServed(socket));
    EXPECT_FALSE(running.hasEnded());

    // The time runs from behind the answer, which is here before the server looks at its clock.
    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::minutes(16));
        return socket.isEndedSoon();
    }));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, ConnectionsWithoutARequestDoNotKeepItUp)
{
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket silent = connected();

    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::minutes(16));
        return silent.isEndedSoon();
    }));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, ARequestUnderWayKeepsItUp)
{
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket socket = connected();
    socket.send(requestBytes("Wait", {"abc"}));
    ASSERT_TRUE(until([&] { return waiting == 1; }));
    clock.advance(std::chrono::hours(1));

    // Somebody who comes has the server look at its clock.
    EXPECT_TRUE(isServed(connected()));
    clock.advance(std::chrono::hours(1));
    EXPECT_TRUE(isServed(connected()));
    isReleased = true;
    EXPECT_EQ(socket.receive(16), netTests::receiptBytes(3));
    EXPECT_TRUE(isServed(socket));
}

TEST_F(ServerLife, GoesOnPastItsIdleTimeUntilItMayEnd)
{
    std::atomic<int> questions{0};
    std::atomic<bool> mayEnd{false};
    server.onEnding([&] {
        ++questions;
        server.touch();  // somebody came at the last moment
        return mayEnd.load();
    });
    const RunningServer running(server, std::chrono::minutes(15));
    const RawSocket silent = connected();
    ASSERT_TRUE(until([&] {
        clock.advance(std::chrono::minutes(16));
        return silent.isEndedSoon() || questions > 1;
    }));
    EXPECT_TRUE(isServed(connected()));
    EXPECT_FALSE(running.hasEnded());

    mayEnd = true;
    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::minutes(16));
        return silent.isEndedSoon();
    }));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, SaysThatItEndsAlsoIfItWasStopped)
{
    std::atomic<int> questions{0};
    server.onEnding([&] {
        ++questions;
        return false;
    });
    const RunningServer running(server);
    EXPECT_EQ(questions, 0);
    server.stop();

    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
    EXPECT_EQ(questions, 1);
}

TEST_F(ServerLife, ARequestWithoutAnEndIsDroppedThoughItsFramesKeepComing)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    socket.send(netTests::headerBytes("Take"));

    // Each frame is in time by itself.
    bool isEnded = false;
    for (int i = 0; i < 60 && !isEnded; ++i) {
        socket.send(netTests::frameBytes(netTests::stringKind, 0, 0));
        isEnded = socket.isEndedSoon();
        clock.advance(std::chrono::seconds(1));
    }
    EXPECT_TRUE(isEnded);
    EXPECT_TRUE(isServed(connected()));
}

TEST_F(ServerLife, StopEndsSilentConnectionsAtOnce)
{
    const RunningServer running(server);
    const RawSocket silent = connected();
    const RawSocket served = connected();
    ASSERT_TRUE(isServed(served));
    server.stop();

    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
    EXPECT_TRUE(silent.isEnded());
    EXPECT_TRUE(served.isEnded());
}

TEST_F(ServerLife, StopBeforeItRunsIsNotForgotten)
{
    server.stop();
    const RunningServer running(server);

    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, RequestsUnderWayAreAnsweredBeforeItEnds)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    const RawSocket silent = connected();
    socket.send(requestBytes("Wait", {"abc"}));
    ASSERT_TRUE(until([&] { return waiting == 1; }));

    server.stop();
    EXPECT_TRUE(silent.isEnded());
    EXPECT_FALSE(running.hasEnded());
    isReleased = true;

    EXPECT_EQ(socket.receive(17), netTests::receiptBytes(3));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, RequestsThatComeInTimeAreAnsweredHoweverLongTheyTakeBehindTheLastAnswer)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    const RawSocket silent = connected();
    const std::string second(2'500'000, '0');
    const std::uint64_t size = 20 * second.size();
    // More than the kernel keeps, so the server is in the midst of it.
    socket.send(netTests::headerBytes("Take") +
                netTests::frameBytes(netTests::stringKind, 0, size));
    for (int i = 0; i < 10; ++i)
        socket.send(second);
    endWithTheLastAnswer();
    ASSERT_TRUE(silent.isEnded());

    for (int i = 0; i < 10; ++i) {
        clock.advance(std::chrono::seconds(2));
        EXPECT_FALSE(socket.isEndedSoon());
        socket.send(second);
    }
    socket.send(netTests::frameBytes(netTests::endKind, 0, 0));
    EXPECT_EQ(socket.receive(17), netTests::receiptBytes(size));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, WhatIsLateDoesNotHoldUpItsEnd)
{
    const RunningServer running(server);
    const RawSocket request = connected();
    announceMuchAndSayNoMore(request);
    const RawSocket answer = connected();
    askForMuchAndTakeNoMore(answer);
    const RawSocket other = connected();
    ASSERT_TRUE(isServed(other));
    endWithTheLastAnswer();
    ASSERT_TRUE(other.isEnded());
    EXPECT_FALSE(running.hasEnded());

    // Far less than both have in all.
    clock.advance(std::chrono::minutes(2));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, WhoStopsItWaitsForNoRequestLongerThanTenSeconds)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    const RawSocket silent = connected();
    const std::string second(2'500'000, '0');
    socket.send(netTests::headerBytes("Take") +
                netTests::frameBytes(netTests::stringKind, 0, muchLength));
    for (int i = 0; i < 10; ++i)
        socket.send(second);
    endWithTheLastAnswer();
    ASSERT_TRUE(silent.isEnded());
    clock.advance(std::chrono::seconds(5));
    EXPECT_FALSE(socket.isEndedSoon());

    // Though it is in time, and the server was ending already.
    server.stop();
    EXPECT_FALSE(socket.isEndedSoon());
    clock.advance(std::chrono::seconds(11));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, WhoHasTheLastAnswerMayStartTheNextServer)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    socket.send(requestBytes("Last", {"0"}));
    ASSERT_EQ(socket.receive(16), netTests::receiptBytes(1));

    // The end has come with it, so that nothing more is asked there.
    EXPECT_TRUE(socket.isEnded());
    EXPECT_NO_THROW(Server("127.0.0.1", server.port()));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, RequestsUnderWayAreAnsweredAfterTheLastAnswer)
{
    const RunningServer running(server);
    const RawSocket underWay = connected();
    underWay.send(requestBytes("Wait", {"abc"}));
    ASSERT_TRUE(until([&] { return waiting == 1; }));
    const RawSocket last = connected();
    last.send(requestBytes("Last", {}));
    ASSERT_EQ(last.receive(17), netTests::receiptBytes(0));

    EXPECT_FALSE(running.hasEnded());
    isReleased = true;
    EXPECT_EQ(underWay.receive(17), netTests::receiptBytes(3));
    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

TEST_F(ServerLife, EndsAlsoIfThePeerOfTheLastAnswerHasGone)
{
    const RunningServer running(server);
    RawSocket socket = connected();
    socket.send(requestBytes("WaitLast", {}));
    ASSERT_TRUE(until([&] { return waiting == 1; }));
    socket.reset();
    isReleased = true;

    EXPECT_TRUE(until([&] { return running.hasEnded(); }));
}

}  // namespace
