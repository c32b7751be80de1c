#include "impl/network/VNSNetTester.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Diagnose/TraceTopic.h"
#include "impl/network/NetworkFailure.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using Basis::string;
using netTests::RawSocket;
using netTests::ScriptedPeer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using unitTests::CapturedOutput;
using vetraTests::VNSNetTester;

Basis::Allocator& domain()
{
    return *Basis::Allocator::global();
}

string text(std::string_view characters)
{
    return string(characters, &domain());
}

TEST(NetTesterEngine, IsUpAsLongAsTheTesterLives)
{
    const CapturedOutput out;
    {
        VNSNetTester tester(domain());
        EXPECT_TRUE(tester.IsInitialized());
        EXPECT_FALSE(JoltNet::Engine::initialize(nullptr, 1, false));
    }
    EXPECT_TRUE(JoltNet::Engine::initialize(nullptr, 1, false));
    JoltNet::Engine::terminate();
    EXPECT_EQ(out.text(), "");
}

TEST(NetTesterEngine, ThatIsUpAlreadyFailsTheTesterAndOutlivesIt)
{
    const netTests::EngineScope engine;
    const CapturedOutput out;
    {
        VNSNetTester tester(domain());
        EXPECT_FALSE(tester.IsInitialized());
        EXPECT_EQ(out.text(), "initialization failed!\n");
    }
    EXPECT_FALSE(JoltNet::Engine::initialize(nullptr, 1, false));
}

TEST(NetTesterEngine, LeavesTheTraceLevelAtWarning)
{
    Diagnose::TraceTopic::setGlobalTraceLevel(Diagnose::TraceLevel::Error);
    const VNSNetTester tester(domain());

    EXPECT_EQ(Diagnose::TraceTopic::globalTraceLevel(), Diagnose::TraceLevel::Warning);
    Diagnose::TraceTopic::setGlobalTraceLevel(Diagnose::TraceLevel::Error);
}

TEST(NetTesterIterations, AreTenUnlessSetToOneOrMore)
{
    VNSNetTester tester(domain());
    EXPECT_EQ(tester.getIterNo(), 10);
    for (const int iterations : {1, 3, 1000}) {
        tester.setIterNo(iterations);
        EXPECT_EQ(tester.getIterNo(), iterations);
    }
    for (const int iterations : {0, -1, std::numeric_limits<int>::min()}) {
        tester.setIterNo(iterations);
        EXPECT_EQ(tester.getIterNo(), 10);
    }
}

TEST(NetTesterThroughPut, IsBitsPerMicrosecond)
{
    VNSNetTester tester(domain());
    EXPECT_EQ(tester.getThroughPut(65535, 100), 5242);
    EXPECT_EQ(tester.getThroughPut(0, 1), 0);
    EXPECT_EQ(tester.getThroughPut(1, 9), 0);
    EXPECT_EQ(tester.getThroughPut(std::uint64_t{1} << 40, 1), std::int64_t{1} << 43);
}

class NetTesterNotices : public testing::Test {
protected:
    VNSNetTester tester{domain()};
    CapturedOutput out;
};

// Answers one request with one byte; false in `wasAsked` if it was another one.
ScriptedPeer::Script confirming(const char* name, bool& wasAsked)
{
    return [name, &wasAsked](RawSocket& socket) {
        const std::string expected = netTests::requestBytes(name, {"0"});
        wasAsked = socket.receive(expected.size()) == expected;
        socket.send(netTests::receiptBytes(1));
        socket.isEnded();
    };
}

TEST_F(NetTesterNotices, ProbeWithThePrologue)
{
    bool wasAsked = false;
    const ScriptedPeer peer(confirming("PrologueVNS", wasAsked));

    EXPECT_TRUE(tester.checkServer(text("127.0.0.1"), peer.port()));
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(out.text(), "");
}

TEST_F(NetTesterNotices, StopTheServer)
{
    bool wasAsked = false;
    const ScriptedPeer peer(confirming("StopVNS", wasAsked));

    EXPECT_TRUE(tester.stopServer(text("127.0.0.1"), peer.port()));
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(out.text(), "");
}

TEST_F(NetTesterNotices, FailWithALineIfNobodyListens)
{
    const unsigned short port = netTests::unusedPort();
    EXPECT_FALSE(tester.checkServer(text("127.0.0.1"), port));
    EXPECT_FALSE(tester.stopServer(text("127.0.0.1"), port));

    const std::string peer = "connect to 127.0.0.1:" + std::to_string(port);
    EXPECT_THAT(out.text(), testing::ContainsRegex(peer + ".*\n(.|\n)*" + peer + ".*\n$"));
}

TEST_F(NetTesterNotices, FailIfThePeerDoesNotConfirm)
{
    const ScriptedPeer peer([](RawSocket& socket) { socket.receive(10); });

    EXPECT_FALSE(tester.checkServer(text("127.0.0.1"), peer.port()));
    EXPECT_FALSE(tester.stopServer(text("127.0.0.1"), peer.port()));
}

TEST(NetworkFailure, IsALineOnStandardOutput)
{
    const CapturedOutput out;
    EXPECT_TRUE(vetraTests::succeeds([] {}));
    EXPECT_EQ(out.text(), "");
    EXPECT_FALSE(vetraTests::succeeds([] { JoltNet::throwProtocolError("no answer of", "a:1"); }));
    EXPECT_THAT(out.text(), HasSubstr("exchange failed: no answer of a:1"));
    EXPECT_EQ(out.text().back(), '\n');
}

TEST(NetworkFailure, OfAnotherServiceIsMarked)
{
    const CapturedOutput out;
    EXPECT_FALSE(vetraTests::succeeds([] { throw Basis::Exception("file.cpp", 1, ENOENT); }));
    EXPECT_THAT(out.text(), StartsWith(" qrv "));
    EXPECT_THAT(out.text(), HasSubstr("No such file or directory"));
}

TEST(NetworkFailure, OfTheProgramIsNotCaught)
{
    EXPECT_THROW(vetraTests::succeeds([] { throw std::logic_error("slip"); }), std::logic_error);
}

}  // namespace
