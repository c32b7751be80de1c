// A whole run of the network test, with a command ssh that stays on this host.
#include <gmock/gmock.h>

#include <memory>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltUtils/Json.h"
#include "impl/network/NetworkTest.h"
#include "tests/impl/network/FakeSsh.h"
#include "tests/programs/VNSNetServerBidi/RunningMeasuringServer.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/RunningServer.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using Basis::string;
using JoltNet::Answer;
using JoltNet::Received;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using unitTests::CapturedOutput;
using vetraTests::NetworkTest;

// A host that passes the check of names, and that nobody can resolve.
constexpr const char* nowhere = "no..host";

class NetworkTestRun : public testing::Test {
protected:
    NetworkTestRun() { ssh.printsWhenStarting("listening\n"); }

    void configure(std::string_view config)
    {
        const CapturedOutput quiet;
        string given(config, domain.get());
        test.setTestConfig(given);
    }
    void configurePeer(const std::string& host)
    {
        configure(R"({"InternHosts":{"localhost":")" + host + "\"}}");
    }
    void showPort(unsigned short port)
    {
        ssh.printsWhenAskedForPorts("tcp 0 0 127.0.0.1:" + std::to_string(port) +
                                    " 0.0.0.0:* LISTEN 17/VNSNetServerBidi\n");
    }

    // The port that is probed when netstat shows this.
    std::string portIn(const std::string& netstat)
    {
        configurePeer(nowhere);
        ssh.printsWhenAskedForPorts(netstat);
        const CapturedOutput lines;
        EXPECT_EQ(test.runTest(), -1);
        const std::string text = lines.text();
        const std::string name = std::string(nowhere) + ":";
        const std::size_t begin = text.find(name);
        if (begin == std::string::npos)
            return "(not probed)";
        return text.substr(begin + name.size(), text.find(' ', begin) - begin - name.size());
    }

    JoltUtils::JsonObject results()
    {
        JoltUtils::JsonObject object{JoltUtils::JsonAllocator(*domain)};
        test.getTestJsonResult(object);
        return object;
    }
    double number(const char* host, const char* member)
    {
        const JoltUtils::JsonObject all = results();
        return all.at(string(host, domain.get()))
            .object()
            .at(string(member, domain.get()))
            .number();
    }

    netTests::FakeSsh ssh;
    netTests::CountedSleeps sleeps;
    unitTests::EnvironmentVariable ownName{"HOST", "here"};
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "network test", 0);
    NetworkTest test{*domain};
    CapturedOutput out;
};

// A server that keeps the names of what it was asked for.
class RecordingServer {
public:
    explicit RecordingServer(std::vector<const char*> answeredNames)
    {
        for (const char* const name : answeredNames) {
            server.onRequest(name, [this, name](const Received& received) {
                const std::scoped_lock lock(mutex);
                names.emplace_back(name);
                sizes.push_back(received.bytes);
                const bool isBidi = std::string_view(name) == "BidiVNS";
                return isBidi ? Answer{.length = received.bytes} : Answer{};
            });
        }
    }
    unsigned short port() const { return server.port(); }

    std::vector<std::string> names;
    std::vector<std::uint64_t> sizes;

private:
    std::mutex mutex;
    JoltNet::Server server{"127.0.0.1", 0};
    netTests::RunningServer running{server};
};

TEST_F(NetworkTestRun, ProbesMeasuresBothWaysThenOneWayAndStops)
{
    const RecordingServer server({"PrologueVNS", "MeasureVNS", "BidiVNS", "StopVNS"});
    showPort(server.port());
    configurePeer("127.0.0.1");

    EXPECT_EQ(test.runTest(), 0);

    std::vector<std::string> expected{"PrologueVNS"};
    expected.insert(expected.end(), 10, "BidiVNS");
    expected.insert(expected.end(), 10, "MeasureVNS");
    expected.emplace_back("StopVNS");
    EXPECT_EQ(server.names, expected);
    EXPECT_EQ(server.sizes.front(), 1U);
    EXPECT_EQ(server.sizes[1], 65535U);
    EXPECT_EQ(server.sizes[20], 65535U);
    EXPECT_EQ(server.sizes.back(), 1U);
}

TEST_F(NetworkTestRun, AsksForThePortAndWaitsASecondBeforeItProbes)
{
    const netTests::RunningMeasuringServer server;
    showPort(server.port());
    configurePeer("127.0.0.1");
    test.runTest();

    ASSERT_EQ(ssh.calls().size(), 2U);
    EXPECT_THAT(ssh.calls()[0], EndsWith("/lib/VNSNetServerBidi &"));
    EXPECT_EQ(ssh.calls()[1], "127.0.0.1 netstat -tulpn | grep VNSNetServer ");
    EXPECT_EQ(sleeps.seconds(), 1U);
}

TEST_F(NetworkTestRun, MeasuresTheRealServerOfEachPeerAndStopsIt)
{
    netTests::RunningMeasuringServer server;
    server.addUser();
    showPort(server.port());
    configure(R"({"InternHosts":{"here":"localhost","localhost":"127.0.0.1"}})");

    EXPECT_EQ(test.runTest(), 0);
    EXPECT_TRUE(test.getTestResult());
    EXPECT_TRUE(netTests::until([&] { return server.hasEnded(); }));

    EXPECT_EQ(results().size(), 2U);
    for (const char* host : {"localhost", "127.0.0.1"}) {
        EXPECT_EQ(number(host, "LoadSize"), 65535);
        EXPECT_GT(number(host, "Throughput"), 0);
        EXPECT_GT(number(host, "ThroughputBidi"), 0);
    }
}

TEST_F(NetworkTestRun, SaysWhatItDoesAndWhatItHasMeasured)
{
    const netTests::RunningMeasuringServer server;
    showPort(server.port());
    configurePeer("127.0.0.1");
    test.runTest();

    std::ostringstream expected;
    expected << "VNSNetServer starting on 127.0.0.1\nlistening\n"
             << "Average throughtput (MBit/s): " << number("127.0.0.1", "Throughput")
             << "\nAverage bidi throughtput (MBit/s): " << number("127.0.0.1", "ThroughputBidi")
             << "\n";
    EXPECT_EQ(out.text(), expected.str());
}

TEST_F(NetworkTestRun, GivesItsResultsAsJsonAndAsText)
{
    const netTests::RunningMeasuringServer server;
    showPort(server.port());
    configurePeer("127.0.0.1");
    test.runTest();

    std::ostringstream rates;
    rates << "    Throughput(MBits/s): " << number("127.0.0.1", "Throughput")
          << "\n    ThroughputBidi(MBits/s): " << number("127.0.0.1", "ThroughputBidi") << "\n";
    EXPECT_EQ(
        std::string(test.getTestHumanReadableResult()),
        "NetworkTest Result:\nResult for: 127.0.0.1\n    LoadSize(Bytes): 65535\n" + rates.str());

    const string json = test.getTestJsonResult();
    EXPECT_THAT(std::string(json), HasSubstr("\"LoadSize\":65535,"));
    JoltUtils::JsonAllocator source(*domain);
    JoltUtils::JsonObject parsed(source);
    ASSERT_TRUE(JoltUtils::jsonParse(json.data(), json.size(), parsed, source));
    const auto& members = parsed.at(string("127.0.0.1", domain.get())).object();
    ASSERT_EQ(members.size(), 3U);
    EXPECT_EQ(members.at(string("Throughput", domain.get())).number(),
              number("127.0.0.1", "Throughput"));
}

TEST_F(NetworkTestRun, ReportsAPeerThatIsNamedTwiceWithItsFirstRecord)
{
    netTests::RunningMeasuringServer server;
    server.addUser();
    showPort(server.port());
    configure(R"({"InternHosts":{"here":"127.0.0.1","localhost":"127.0.0.1"}})");

    EXPECT_EQ(test.runTest(), 0);
    EXPECT_EQ(ssh.calls().size(), 4U);
    EXPECT_EQ(results().size(), 1U);
    const std::string first = "Average throughtput (MBit/s): ";
    std::istringstream printed(out.text().substr(out.text().find(first) + first.size()));
    double rate = 0;
    printed >> rate;
    EXPECT_EQ(rate, number("127.0.0.1", "Throughput"));
}

TEST_F(NetworkTestRun, KeepsTheRecordsOfARunBefore)
{
    netTests::RunningMeasuringServer server;
    server.addUser();
    showPort(server.port());
    configurePeer("127.0.0.1");
    test.runTest();
    const double rate = number("127.0.0.1", "Throughput");
    configurePeer("localhost");
    EXPECT_EQ(results().size(), 1U);
    test.runTest();

    EXPECT_EQ(results().size(), 2U);
    EXPECT_EQ(number("127.0.0.1", "Throughput"), rate);
}

TEST_F(NetworkTestRun, FailsIfAServerCannotBeStarted)
{
    ssh.printsWhenStarting("accepting requests\n");
    configure(R"({"InternHosts":{"here":"peer","localhost":"never reached"}})");
    test.setTestResult(true);

    EXPECT_EQ(test.runTest(), -1);
    EXPECT_FALSE(test.getTestResult());
    EXPECT_EQ(out.text(),
              "VNSNetServer starting on peer\naccepting requests\n"
              "VNSNetServer starting on remote host failed\n");
    EXPECT_EQ(ssh.calls().size(), 1U);
    EXPECT_EQ(test.getTestJsonResult(), "{}");
}

TEST_F(NetworkTestRun, FailsWithoutACommandForAHostThatIsNone)
{
    configurePeer("peer; reboot");
    const CapturedOutput err(std::cerr);

    EXPECT_EQ(test.runTest(), -1);
    EXPECT_THAT(ssh.calls(), IsEmpty());
    EXPECT_THAT(err.text(), HasSubstr("\"peer; reboot\" is no host name"));
    EXPECT_THAT(out.text(), EndsWith("VNSNetServer starting on remote host failed\n"));
}

TEST_F(NetworkTestRun, FailsIfTheServerDoesNotAnswerTheProbe)
{
    const RecordingServer server({"CheckVNS", "MeasureVNS", "BidiVNS", "StopVNS"});
    showPort(server.port());
    configurePeer("127.0.0.1");

    EXPECT_EQ(test.runTest(), -1);
    EXPECT_FALSE(test.getTestResult());
    EXPECT_THAT(out.text(), EndsWith("\nServer is not running properly on host 127.0.0.1\n"));
    EXPECT_THAT(server.names, IsEmpty());
}

TEST_F(NetworkTestRun, FailsWithItsRecordIfTheServerCannotBeStopped)
{
    const RecordingServer server({"PrologueVNS", "MeasureVNS", "BidiVNS"});
    showPort(server.port());
    configure(R"({"InternHosts":{"here":"127.0.0.1","localhost":"peer"}})");

    EXPECT_EQ(test.runTest(), -1);
    EXPECT_FALSE(test.getTestResult());
    EXPECT_THAT(out.text(), EndsWith("\nStopping Server failed on host 127.0.0.1\n"));
    EXPECT_EQ(results().size(), 1U);
    EXPECT_EQ(ssh.calls().size(), 2U);
}

TEST_F(NetworkTestRun, LetsTheLossOfAPeerInAMeasurementThrough)
{
    const RecordingServer server({"PrologueVNS", "BidiVNS", "StopVNS"});
    showPort(server.port());
    configurePeer("127.0.0.1");

    EXPECT_THROW(test.runTest(), JoltNet::NetException);
    EXPECT_THAT(server.names, testing::Contains("BidiVNS").Times(10));
    EXPECT_THAT(server.names, Not(testing::Contains("StopVNS")));
    // The engine has gone with the tester.
    EXPECT_TRUE(JoltNet::Engine::initialize(nullptr, 1, false));
    JoltNet::Engine::terminate();
}

TEST_F(NetworkTestRun, FailsIfTheEngineIsNotToBeHad)
{
    const netTests::EngineScope engine;
    configurePeer("127.0.0.1");
    test.setTestResult(true);

    EXPECT_EQ(test.runTest(), -1);
    EXPECT_FALSE(test.getTestResult());
    EXPECT_EQ(out.text(), "initialization failed!\n");
    EXPECT_THAT(ssh.calls(), IsEmpty());
}

TEST_F(NetworkTestRun, ProbesPort4464IfNetstatShowsNoLine)
{
    EXPECT_EQ(portIn(""), "4464");
    EXPECT_EQ(portIn("\n\t\nVNSNetServer\n"), "4464");
}

TEST_F(NetworkTestRun, ProbesThePortBetweenTheFirstColonAndTheNextBlank)
{
    EXPECT_EQ(portIn("tcp        0      0 0.0.0.0:30004           0.0.0.0:*               LISTEN"
                     "      4711/VNSNetServerBi \n"),
              "30004");
    EXPECT_EQ(portIn("0.0.0.0:30004 0.0.0.0:1\n"), "30004");
}

TEST_F(NetworkTestRun, ProbesThePortOfTheFirstLineThatHasOne)
{
    EXPECT_EQ(portIn("no colon here\ntcp 0.0.0.0:7 x\ntcp 0.0.0.0:8 x\n"), "7");
    // Neither a blank before the colon counts nor a tab.
    EXPECT_EQ(portIn("tcp 0.0.0.0:6\ntcp 0.0.0.0:6\t\ntcp 0.0.0.0:7 x\n"), "7");
    EXPECT_EQ(portIn("tcp 0.0.0.0:6"), "4464");
}

TEST_F(NetworkTestRun, TakesNumbersLikeTheStandardConversion)
{
    EXPECT_EQ(portIn("x:30004abc y\n"), "30004");
    EXPECT_EQ(portIn("x:+7 y\n"), "7");
    EXPECT_EQ(portIn("x:\t8 y\n"), "8");
    EXPECT_EQ(portIn("x:0x10 y\n"), "0");
}

TEST_F(NetworkTestRun, CutsThePortTo16BitsWhenItProbes)
{
    EXPECT_EQ(portIn("x:65537 y\n"), "1");
    EXPECT_EQ(portIn("x:-1 y\n"), "65535");
    EXPECT_EQ(portIn("x:2147483647 y\n"), "65535");
}

TEST_F(NetworkTestRun, ThrowsForAPortThatIsNoNumber)
{
    configurePeer(nowhere);
    for (const char* line :
         {"tcp6 0 0 :::30004 :::* LISTEN 1/VNSNetServer\n", "x: 5\n", "x:a 1\n"}) {
        ssh.printsWhenAskedForPorts(line);
        try {
            test.runTest();
            FAIL() << line;
        } catch (const std::invalid_argument& exception) {
            EXPECT_THAT(exception.what(), HasSubstr("stoi"));
        }
    }
    EXPECT_EQ(sleeps.seconds(), 0U);
    EXPECT_FALSE(test.getTestResult());
}

TEST_F(NetworkTestRun, ThrowsForAPortOutOfRange)
{
    configurePeer(nowhere);
    for (const char* line : {"x:2147483648 y\n", "x:99999999999999999999 y\n"}) {
        ssh.printsWhenAskedForPorts(line);
        try {
            test.runTest();
            FAIL() << line;
        } catch (const std::out_of_range& exception) {
            EXPECT_THAT(exception.what(), HasSubstr("stoi"));
        }
    }
}

}  // namespace
