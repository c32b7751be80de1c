// The whole program, in a child process and a network of its own.
#include "programs/VNSNetServerBidi/ServerProcess.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <initializer_list>
#include <iostream>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "JoltNet/Server.h"
#include "Version/Version.h"
#include "programs/VNSNetServerBidi/ServerOptions.h"
#include "tests/programs/VNSNetServerBidi/OwnNetwork.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/ChildProcess.h"

namespace {

using netTests::endKind;
using netTests::frameBytes;
using netTests::headerBytes;
using netTests::RawSocket;
using netTests::receiptBytes;
using netTests::stringKind;
using testing::StartsWith;
using unitTests::CapturedOutput;
using unitTests::ChildEnd;

const std::string listening = "VNSNetServerBidi: listening on port ";
const std::string joined = "VNSNetServerBidi: one more user of the server that listens on port ";

int runHere(std::initializer_list<const char*> words)
{
    std::vector<const char*> argv{"VNSNetServerBidi"};
    argv.insert(argv.end(), words);
    return NetServer::runServerProcess(static_cast<int>(argv.size()), argv.data());
}

// The last line of the output is the status. A server that goes to the background stays when this
// returns, and has let go of its streams.
ChildEnd run(std::initializer_list<const char*> words)
{
    return unitTests::inChild([words] {
        const pid_t starter = ::getpid();
        const int status = runHere(words);
        if (::getpid() != starter)
            ::_exit(status);
        std::cout << "status " << status << std::endl;
    });
}

bool ask(unsigned short port, const char* name)
{
    try {
        JoltNet::Request request(name, "127.0.0.1", port, 0);
        request.in();
        return true;
    } catch (const JoltNet::NetException&) {
        return false;
    }
}

TEST(ServerProcess, PrintsItsHelp)
{
    const CapturedOutput out;
    EXPECT_EQ(runHere({"--help"}), 0);
    EXPECT_EQ(out.text(), NetServer::helpText);
}

TEST(ServerProcess, PrintsItsVersion)
{
    const CapturedOutput out;
    EXPECT_EQ(runHere({"-v"}), 0);
    EXPECT_EQ(out.text(), std::string("VNSNetServerBidi-") + zdbver_version() + " (" +
                              zdbver_compiledate() + ")\n");
}

TEST(ServerProcess, RefusesOtherArgumentsWithOneLineOnStandardError)
{
    const CapturedOutput out;
    const CapturedOutput err(std::cerr);
    EXPECT_EQ(runHere({"--port", "x"}), 64);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(err.text(), "VNSNetServerBidi: --port takes a number from 0 to 65535, not 'x'\n");
}

TEST(ServerProcess, StartsNothingWhereNobodyCanReadItsLine)
{
    const CapturedOutput err(std::cerr);
    const char* const argv[] = {"VNSNetServerBidi", "--foreground"};
    EXPECT_EQ(NetServer::runServerProcess(2, argv, false), 1);
    EXPECT_EQ(err.text(), "VNSNetServerBidi: cannot write to standard output\n");
}

class ServerInBackground : public testing::Test {
protected:
    void SetUp() override
    {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the thread sanitizer allows a forked process no threads";
#endif
        if (!netTests::hasOwnNetwork())
            GTEST_SKIP() << "no network of its own";
    }

    netTests::EngineScope engine;
};

TEST_F(ServerInBackground, ListensBeforeTheProgramReturnsAndEndsWithItsUser)
{
    const ChildEnd start = run({});
    EXPECT_EQ(start.output, "VNSNetServerBidi: listening on port 4464\nstatus 0\n");
    EXPECT_EQ(start.errors, "");
    EXPECT_TRUE(ask(4464, "PrologueVNS"));

    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_FALSE(ask(4464, "PrologueVNS"));
}

TEST_F(ServerInBackground, TakesASecondStartForOneMoreUser)
{
    run({});
    const ChildEnd second = run({});
    EXPECT_EQ(second.output,
              "VNSNetServerBidi: one more user of the server that listens on port 4464\n"
              "status 0\n");
    EXPECT_EQ(second.errors, "");

    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_TRUE(ask(4464, "PrologueVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_FALSE(ask(4464, "PrologueVNS"));
}

TEST_F(ServerInBackground, MayBeStartedAgainAtOnceBehindItsEnd)
{
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(run({}).output, "VNSNetServerBidi: listening on port 4464\nstatus 0\n");
        EXPECT_TRUE(ask(4464, "StopVNS"));
    }
}

TEST_F(ServerInBackground, OnAPortOfItsOwnHasNoOtherUsers)
{
    run({});
    EXPECT_EQ(run({"--port", "30004", "--bind", "127.0.0.1"}).output,
              "VNSNetServerBidi: listening on port 30004\nstatus 0\n");
    EXPECT_TRUE(ask(30004, "StopVNS"));
    EXPECT_FALSE(ask(30004, "PrologueVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
}

TEST_F(ServerInBackground, AtAnAddressOfItsOwnHasNoOtherUsers)
{
    run({"--port", "30004"});
    const std::string line = "VNSNetServerBidi: listening on port ";
    EXPECT_EQ(run({"--bind", "127.0.0.1"}).output, line + "4464\nstatus 0\n");
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_FALSE(ask(4464, "PrologueVNS"));
    EXPECT_TRUE(ask(30004, "StopVNS"));
    EXPECT_FALSE(ask(30004, "PrologueVNS"));
}

TEST_F(ServerInBackground, AtAnAddressOfItsOwnIsNoServerForOthers)
{
    const std::string line = "VNSNetServerBidi: listening on port ";
    EXPECT_EQ(run({"--bind", "127.0.0.1", "--port", "30004"}).output, line + "30004\nstatus 0\n");
    EXPECT_EQ(run({}).output, line + "4464\nstatus 0\n");
    EXPECT_TRUE(ask(30004, "StopVNS"));
    EXPECT_FALSE(ask(30004, "PrologueVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
}

TEST_F(ServerInBackground, AtAnAddressOfItsOwnLeavesTheNameToOthers)
{
    run({"--bind", "127.0.0.1", "--port", "30004"});
    EXPECT_EQ(run({}).output, listening + "4464\nstatus 0\n");
    EXPECT_EQ(run({}).output, joined + "4464\nstatus 0\n");
    EXPECT_TRUE(ask(30004, "StopVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_FALSE(ask(4464, "PrologueVNS"));
}

TEST_F(ServerInBackground, LeavesNameAndPortToTheNextWhileItAnswersTheLastRequests)
{
    run({});
    const RawSocket underWay = RawSocket::connectedTo(4464);
    // More than the kernel keeps for both sides, so the server is in the midst of it.
    const std::string load(std::size_t{64} << 20, '0');
    underWay.send(headerBytes("MeasureVNS") + frameBytes(stringKind, 0, load.size() + 1) + load);
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_EQ(run({}).output, listening + "4464\nstatus 0\n");
    EXPECT_EQ(run({}).output, joined + "4464\nstatus 0\n");

    underWay.send("0" + frameBytes(endKind, 0, 0));
    EXPECT_EQ(underWay.receive(16), receiptBytes(load.size() + 1));
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_TRUE(ask(4464, "StopVNS"));
    EXPECT_FALSE(ask(4464, "PrologueVNS"));
}

TEST_F(ServerInBackground, TakesAnotherPortIfTheUsualOneIsTaken)
{
    const JoltNet::Server other("0.0.0.0", 4464);
    const ChildEnd start = run({});
    const std::string line = "VNSNetServerBidi: listening on port ";
    ASSERT_THAT(start.output, StartsWith(line));
    const auto port = static_cast<unsigned short>(std::stoi(start.output.substr(line.size())));

    EXPECT_NE(port, 4464);
    EXPECT_TRUE(ask(port, "StopVNS"));
}

TEST_F(ServerInBackground, FailsWithOneLineOnStandardErrorIfItCannotListen)
{
    const JoltNet::Server other("0.0.0.0", 30004);
    for (const bool isForeground : {false, true}) {
        const ChildEnd end =
            isForeground ? run({"--port", "30004", "--foreground"}) : run({"--port", "30004"});
        EXPECT_EQ(end.output, "status 1\n");
        EXPECT_THAT(end.errors, testing::MatchesRegex(
                                    "VNSNetServerBidi: [^\n]*listen on 0.0.0.0:30004[^\n]*\n"));
    }
}

}  // namespace
