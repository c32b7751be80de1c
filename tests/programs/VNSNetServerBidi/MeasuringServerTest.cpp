// What the server answers, asked by the client of the tool.
#include "programs/VNSNetServerBidi/MeasuringServer.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <initializer_list>
#include <optional>
#include <string>

#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "tests/programs/VNSNetServerBidi/OwnNetwork.h"
#include "tests/programs/VNSNetServerBidi/RunningMeasuringServer.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"

namespace {

using Basis::string;
using JoltNet::NetException;
using NetServer::MeasuringServer;
using netTests::until;

// The strings of an answer with commas between them, "-" for none, "dropped" without an answer.
std::string ask(unsigned short port, const char* name, std::initializer_list<std::string> strings)
{
    try {
        JoltNet::Request request(name, "127.0.0.1", port, 0);
        for (const std::string& text : strings)
            request.writer().transferBytes(text.data(), text.size());
        JoltNet::Reader& reader = request.in();
        std::string answer = reader.stringsLeft() == 0 ? "-" : "";
        while (reader.stringsLeft() != 0) {
            string text(Basis::Allocator::global().get());
            reader.transferString(text);
            answer.append(text).append(reader.stringsLeft() == 0 ? "" : ",");
        }
        return answer;
    } catch (const NetException&) {
        return "dropped";
    }
}

class MeasuringServerAnswers : public testing::Test {
protected:
    std::string answer(const char* name, std::initializer_list<std::string> strings)
    {
        return ask(server.port(), name, strings);
    }

    netTests::EngineScope engine;
    netTests::RunningMeasuringServer server;
};

TEST_F(MeasuringServerAnswers, ConfirmWhatIsOnlySent)
{
    for (const char* name : {"MeasureVNS", "CheckVNS", "PrologueVNS"}) {
        EXPECT_EQ(answer(name, {"0"}), "-") << name;
        EXPECT_EQ(answer(name, {}), "-") << name;
        EXPECT_EQ(answer(name, {"", "abc"}), "-") << name;
    }
    EXPECT_EQ(answer("MeasureVNS", {std::string(1'000'000, '0')}), "-");
}

TEST_F(MeasuringServerAnswers, SendBackAsMuchAsCameIn)
{
    EXPECT_EQ(answer("BidiVNS", {"abc"}), "000");
    EXPECT_EQ(answer("BidiVNS", {""}), "");
    EXPECT_EQ(answer("BidiVNS", {}), "");
    EXPECT_EQ(answer("BidiVNS", {"abc", "de"}), "00000");
    const std::string load(1'000'000, '0');
    EXPECT_TRUE(answer("BidiVNS", {load}) == load);
}

TEST_F(MeasuringServerAnswers, SendAsMuchAsIsNamed)
{
    EXPECT_EQ(answer("DualVNS", {"5"}), "00000");
    EXPECT_EQ(answer("DualVNS", {"0"}), "");
    EXPECT_EQ(answer("DualVNS", {"012"}), std::string(12, '0'));
    EXPECT_EQ(answer("DualVNS", {"300000"}).size(), 300'000U);
}

TEST_F(MeasuringServerAnswers, AreNotGivenForASizeThatIsNoNumber)
{
    for (const char* size :
         {"", "x", "5x", " 5", "-1", "+1", "0x5", "17179869185", "18446744073709551616"})
        EXPECT_EQ(answer("DualVNS", {size}), "dropped") << size;
    EXPECT_EQ(answer("DualVNS", {}), "dropped");
    EXPECT_EQ(answer("DualVNS", {"1", "2"}), "dropped");
    EXPECT_EQ(answer("DualVNS", {std::string(65, '0')}), "dropped");
    EXPECT_EQ(answer("DualVNS", {std::string(64, '0')}), "");
}

TEST_F(MeasuringServerAnswers, AreNotGivenForOtherNames)
{
    for (const char* name : {"measureVNS", "VNS", "Stop", "StopVNS2"})
        EXPECT_EQ(answer(name, {"0"}), "dropped") << name;
    EXPECT_EQ(answer("PrologueVNS", {"0"}), "-");
}

TEST_F(MeasuringServerAnswers, EndWithTheStopOfTheOnlyUser)
{
    EXPECT_EQ(answer("StopVNS", {"0"}), "-");
    EXPECT_TRUE(until([&] { return server.hasEnded(); }));
    EXPECT_EQ(answer("PrologueVNS", {"0"}), "dropped");
}

TEST_F(MeasuringServerAnswers, GoOnUntilTheLastUserStopsThem)
{
    server.addUser();
    server.addUser();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(answer("StopVNS", {"0"}), "-");
        EXPECT_EQ(answer("PrologueVNS", {"0"}), "-");
        EXPECT_FALSE(server.hasEnded());
    }
    EXPECT_EQ(answer("StopVNS", {"0"}), "-");
    EXPECT_TRUE(until([&] { return server.hasEnded(); }));
}

TEST(MeasuringServerUsers, AreCountedUntilTheLastHasGone)
{
    const netTests::EngineScope engine;
    MeasuringServer server(netTests::localOptions());
    int lastUsers = 0;
    server.onLastUser([&lastUsers] { ++lastUsers; });
    EXPECT_EQ(server.addUser(), server.port());
    std::thread thread([&server] { server.run(); });

    EXPECT_EQ(ask(server.port(), "StopVNS", {"0"}), "-");
    EXPECT_EQ(lastUsers, 0);
    EXPECT_EQ(server.addUser(), server.port());
    ask(server.port(), "StopVNS", {"0"});
    EXPECT_EQ(ask(server.port(), "StopVNS", {"0"}), "-");
    // Called before the answer came.
    EXPECT_EQ(lastUsers, 1);
    EXPECT_EQ(server.addUser(), std::nullopt);
    thread.join();
}

TEST(MeasuringServerUsers, AreOneFewerForOneWhoDidNotHearOfTheServer)
{
    const netTests::EngineScope engine;
    MeasuringServer server(netTests::localOptions());
    server.addUser();
    server.addUser();
    server.dropUser();
    std::thread thread([&server] { server.run(); });

    EXPECT_EQ(ask(server.port(), "StopVNS", {"0"}), "-");
    EXPECT_EQ(server.addUser(), server.port());
    server.dropUser();
    // Whoever has started the server is one of its users, and cannot be dropped.
    server.dropUser();
    EXPECT_EQ(ask(server.port(), "PrologueVNS", {"0"}), "-");
    EXPECT_EQ(ask(server.port(), "StopVNS", {"0"}), "-");
    thread.join();
}

TEST(MeasuringServerIdleTime, IsThatOfTheOptions)
{
    NetServer::ServerOptions options = netTests::localOptions();
    options.idleTimeout = std::chrono::seconds(0);
    MeasuringServer server(options);

    // Returns at once.
    server.run();
    EXPECT_EQ(server.addUser(), std::nullopt);
}

class MeasuringServerPort : public testing::Test {
protected:
    void SetUp() override
    {
        if (!netTests::hasOwnNetwork())
            GTEST_SKIP() << "no network of its own";
        options.bindAddress = "127.0.0.1";
    }

    int refusal()
    {
        try {
            MeasuringServer server(options);
        } catch (const NetException& exception) {
            return exception.systemError();
        }
        return 0;
    }

    NetServer::ServerOptions options;
};

TEST_F(MeasuringServerPort, IsTheAssumedOneOrOneOfTheSystem)
{
    const MeasuringServer first(options);
    EXPECT_EQ(first.port(), 4464);
    const MeasuringServer second(options);
    EXPECT_NE(second.port(), 4464);
    EXPECT_NE(second.port(), 0);
}

TEST_F(MeasuringServerPort, IsNoOtherThanTheOneAskedFor)
{
    options.port = static_cast<unsigned short>(30004);
    const MeasuringServer first(options);
    EXPECT_EQ(first.port(), 30004);
    EXPECT_EQ(refusal(), EADDRINUSE);

    options.port = static_cast<unsigned short>(0);
    const MeasuringServer chosen(options);
    EXPECT_NE(chosen.port(), 4464);
}

TEST_F(MeasuringServerPort, IsNotReplacedIfTheAddressIsWrong)
{
    options.bindAddress = "192.0.2.1";
    EXPECT_EQ(refusal(), EADDRNOTAVAIL);
}

}  // namespace
