// A server as its peers see it.
#include "JoltNet/Server.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/RunningServer.h"
#include "tests/services/JoltNet/SocketHooks.h"
#include "tests/services/support/Files.h"

namespace {

using JoltNet::Answer;
using JoltNet::NetException;
using JoltNet::Received;
using JoltNet::Server;
using netTests::RawSocket;
using netTests::requestBytes;
using netTests::RunningServer;
using netTests::until;

class ServerRequests : public testing::Test {
protected:
    ServerRequests()
    {
        server.onRequest("Take", [this](const Received& received) {
            const std::scoped_lock lock(mutex);
            byteCounts.push_back(received.bytes);
            beginnings.emplace_back(received.firstBytes);
            return Answer{};
        });
        server.onRequest("Echo",
                         [](const Received& received) { return Answer{.length = received.bytes}; });
        server.onRequest("Refuse", [](const Received&) { return Answer{.isAccepted = false}; });
        server.onRequest("Throw",
                         [](const Received&) -> Answer { throw std::runtime_error("no"); });
        server.onRequest("Last", [](const Received&) { return Answer{.isLast = true}; });
    }

    RawSocket connected() { return RawSocket::connectedTo(server.port()); }

    // Sends bytes that are no request; true if the connection ends and the next one is served.
    bool isDropped(const std::string& bytes)
    {
        const RawSocket socket = connected();
        socket.send(bytes);
        return socket.isEnded() && isAlive();
    }

    bool isAlive()
    {
        const RawSocket socket = connected();
        return isServed(socket);
    }

    static bool isServed(const RawSocket& socket)
    {
        socket.send(requestBytes("Echo", {"abc"}));
        const std::string expected = netTests::receiptBytes(3, 1) + netTests::stringBytes("000");
        return socket.receive(expected.size()) == expected;
    }

    netTests::ShiftedClock clock;
    Server server{"127.0.0.1", 0};
    std::mutex mutex;
    std::vector<std::uint64_t> byteCounts;
    std::vector<std::string> beginnings;
};

TEST_F(ServerRequests, GiveTheHandlerTheBytesOfAllStringsAndTheFirstOfTheFirst)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    const std::string sixtyFour(64, 'x');
    socket.send(requestBytes("Take", {"12", "345"}) + requestBytes("Take", {}) +
                requestBytes("Take", {sixtyFour + "y"}) + requestBytes("Take", {"", "7"}));

    EXPECT_EQ(socket.receive(64), netTests::receiptBytes(5) + netTests::receiptBytes(0) +
                                      netTests::receiptBytes(65) + netTests::receiptBytes(1));
    EXPECT_THAT(byteCounts, testing::ElementsAre(5, 0, 65, 1));
    EXPECT_THAT(beginnings, testing::ElementsAre("12", "", sixtyFour, ""));
}

TEST_F(ServerRequests, AreAnsweredOneAfterTheOtherOnOneConnection)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(isServed(socket));
}

TEST_F(ServerRequests, OfAnUnknownNameEndTheConnection)
{
    const RunningServer running(server);
    EXPECT_TRUE(isDropped(requestBytes("Unknown", {"abc"})));
    EXPECT_TRUE(isDropped(requestBytes("take", {"abc"})));
    EXPECT_TRUE(isDropped(requestBytes("Tak", {"abc"})));
}

TEST_F(ServerRequests, ThatTheHandlerRefusesEndTheConnection)
{
    const RunningServer running(server);
    EXPECT_TRUE(isDropped(requestBytes("Refuse", {"abc"})));
    EXPECT_TRUE(isDropped(requestBytes("Throw", {"abc"})));
}

TEST_F(ServerRequests, ThatAreGarbageEndTheConnection)
{
    const RunningServer running(server);
    EXPECT_TRUE(isDropped("GET / HTTP/1.1\r\n\r\n"));
    EXPECT_TRUE(isDropped(std::string(1 << 20, '\xff')));
    EXPECT_TRUE(isDropped(netTests::headerBytes("Take") + std::string(16, 'x')));
    EXPECT_TRUE(isDropped(netTests::headerBytes("Take") + netTests::receiptBytes(0)));
    EXPECT_TRUE(byteCounts.empty());
}

TEST_F(ServerRequests, ThatAnnounceTwoToThe63EndTheConnection)
{
    const RunningServer running(server);
    EXPECT_TRUE(isDropped(netTests::headerBytes("Take") +
                          netTests::frameBytes(netTests::stringKind, 0, std::uint64_t{1} << 63)));
}

TEST_F(ServerRequests, HaveUpTo1024Strings)
{
    const RunningServer running(server);
    std::string strings;
    for (int i = 0; i < 1024; ++i)
        strings += netTests::stringBytes("");
    const std::string end = netTests::frameBytes(netTests::endKind, 0, 0);
    const RawSocket socket = connected();
    socket.send(netTests::headerBytes("Take") + strings + end);

    EXPECT_EQ(socket.receive(16), netTests::receiptBytes(0));
    EXPECT_TRUE(
        isDropped(netTests::headerBytes("Take") + strings + netTests::stringBytes("") + end));
}

TEST_F(ServerRequests, ThatEndBeforeTheyAreCompleteAreForgotten)
{
    const RunningServer running(server);
    const std::string whole = requestBytes("Take", {"abc"});
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const RawSocket socket = connected();
        socket.send(std::string_view(whole).substr(0, size));
        socket.finish();
        ASSERT_TRUE(socket.isEnded()) << size;
    }
    EXPECT_TRUE(byteCounts.empty());
    EXPECT_TRUE(isAlive());
}

TEST_F(ServerRequests, MayComeByteForByte)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    for (const char byte : requestBytes("Take", {"abc"}))
        socket.send(std::string_view(&byte, 1));

    EXPECT_EQ(socket.receive(16), netTests::receiptBytes(3));
}

TEST_F(ServerRequests, WhoseHeaderDoesNotComeToItsEndAreDropped)
{
    const RunningServer running(server);
    const RawSocket socket = connected();
    socket.send(netTests::headerBytes("Take").substr(0, 9));

    EXPECT_TRUE(until([&] {
        clock.advance(std::chrono::seconds(6));
        return socket.isEndedSoon();
    }));
    EXPECT_TRUE(isAlive());
}

TEST_F(ServerRequests, WhoseStringsDoNotComeToTheirEndAreDropped)
{
    const RunningServer running(server);
    const RawSocket within = connected();
    within.send(netTests::headerBytes("Take") +
                netTests::frameBytes(netTests::stringKind, 0, 1000) + "abc");
    const RawSocket between = connected();
    between.send(netTests::headerBytes("Take") + netTests::stringBytes("abc"));

    for (const RawSocket* socket : {&within, &between}) {
        EXPECT_TRUE(until([&] {
            clock.advance(std::chrono::seconds(11));
            return socket->isEndedSoon();
        }));
    }
    EXPECT_TRUE(isAlive());
}

TEST_F(ServerRequests, MayComeAfterALongTimeOfSilence)
{
    const RunningServer running(server);
    const RawSocket silent = connected();
    const RawSocket served = connected();
    ASSERT_TRUE(isServed(served));
    clock.advance(std::chrono::hours(1));
    ASSERT_TRUE(isAlive());

    EXPECT_TRUE(isServed(silent));
    EXPECT_TRUE(isServed(served));
}

TEST_F(ServerRequests, OfManyClientsAtOnceAreCountedRight)
{
    const RunningServer running(server);
    const netTests::EngineScope engine;
    constexpr std::size_t clients = 16;
    constexpr std::size_t requests = 20;
    std::atomic<int> failures{0};
    const auto client = [&](std::size_t number) {
        for (std::size_t i = 0; i < requests; ++i) {
            const Basis::string load(1000 * number + i, 'x', Basis::Allocator::global().get());
            Basis::string reply(Basis::Allocator::global().get());
            JoltNet::Request request("Echo", "127.0.0.1", server.port(), 0);
            request.writer().transferString(load);
            request.in().transferString(reply);
            if (reply != Basis::string(load.size(), '0', load.get_allocator()))
                ++failures;
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < clients; ++i)
        threads.emplace_back(client, i);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(failures, 0);
}

TEST_F(ServerRequests, LeaveNothingBehind)
{
    const RunningServer running(server);
    const auto descriptors = [] { return unitTests::openDescriptors().size(); };
    const std::size_t before = descriptors();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(isAlive());

    // Ended connections are put away when somebody comes.
    EXPECT_TRUE(until([&] { return isAlive() && descriptors() <= before + 1; }));
}

TEST_F(ServerRequests, AreServedOnceThereAreDescriptorsAgain)
{
    netTests::SocketHooks hooks;
    hooks.refusedAccepts = 3;
    const RunningServer running(server);

    EXPECT_TRUE(isAlive());
    EXPECT_EQ(hooks.accepts, 4);
}

TEST_F(ServerRequests, ComeOverSocketsThatCommandsDoNotInherit)
{
    const std::set<int> before = unitTests::openDescriptors();
    Server other("127.0.0.1", 0);
    const RunningServer running(other);
    const RawSocket socket = RawSocket::connectedTo(other.port());
    socket.send(requestBytes("Unknown", {}));

    // Until the connection has been accepted and ended, there is one descriptor more at times.
    int made = 0;
    for (const int descriptor : unitTests::openDescriptors()) {
        const int flags = ::fcntl(descriptor, F_GETFD);
        if (before.count(descriptor) != 0 || flags < 0)
            continue;
        ++made;
        EXPECT_NE(flags & FD_CLOEXEC, 0);
    }
    EXPECT_GE(made, 3);
    EXPECT_TRUE(socket.isEnded());
}

}  // namespace
