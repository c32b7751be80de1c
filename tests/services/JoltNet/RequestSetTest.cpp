#include "JoltNet/RequestSet.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltNet/Server.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/RunningServer.h"

namespace {

using JoltNet::Answer;
using JoltNet::AutonomousRequest;
using JoltNet::AutonomousRequestObject;
using JoltNet::NetException;
using JoltNet::Received;
using JoltNet::RequestSet;
using testing::HasSubstr;

// Sends a text, and keeps what it gets of each string.
class TextObject : public AutonomousRequestObject {
public:
    explicit TextObject(std::string sent = "", std::size_t mostBytes = 100'000)
        : text(std::move(sent)), most(mostBytes)
    {
    }
    void serialize(JoltUtils::Serializer& serializer) const override
    {
        // In two writes, which nothing on the wire tells apart.
        const std::size_t half = text.size() / 2;
        serializer.write(text.data(), half);
        serializer.write(text.data() + half, text.size() - half);
    }
    void deserialize(JoltUtils::Deserializer& deserializer) override
    {
        std::string one(most, '\0');
        one.resize(deserializer.read(one.data(), one.size()));
        EXPECT_EQ(deserializer.read(one.data(), 0), 0U);
        received.push_back(one);
    }
    void destruct() override { ++destructions; }

    std::vector<std::string> received;
    int destructions = 0;

private:
    std::string text;
    std::size_t most;
};

class AutonomousRequests : public testing::Test {
protected:
    AutonomousRequests()
    {
        server.onRequest("Echo", [this](const Received& received) {
            ++asked;
            return Answer{.length = received.bytes};
        });
    }
    std::string address() const { return "127.0.0.1:" + std::to_string(server.port()); }
    std::shared_ptr<AutonomousRequest> requestTo(const std::string& place)
    {
        return std::make_shared<AutonomousRequest>("Echo", place,
                                                   std::make_shared<TextObject>("abc"), response);
    }

    netTests::EngineScope engine;
    JoltNet::Server server{"127.0.0.1", 0};
    std::atomic<int> asked{0};
    std::shared_ptr<TextObject> response = std::make_shared<TextObject>();
};

TEST_F(AutonomousRequests, SendAnObjectAsOneStringAndGiveTheOtherTheAnswer)
{
    const std::string expected = netTests::requestBytes("Name", {"abcde"});
    std::string received;
    const netTests::ScriptedPeer peer([&](netTests::RawSocket& socket) {
        received = socket.receive(expected.size());
        socket.send(netTests::receiptBytes(5, 3) + netTests::stringBytes("one") +
                    netTests::stringBytes("") + netTests::stringBytes("three"));
        socket.isEnded();
    });
    AutonomousRequest request("Name", "127.0.0.1:" + std::to_string(peer.port()),
                              std::make_shared<TextObject>("abcde"), response);
    request.carryOut();

    EXPECT_EQ(received, expected);
    EXPECT_THAT(response->received, testing::ElementsAre("one", "", "three"));
}

TEST_F(AutonomousRequests, GiveNoMoreThanTheBeginningOfALongAnswer)
{
    const netTests::RunningServer running(server);
    AutonomousRequest request("Echo", address(),
                              std::make_shared<TextObject>(std::string(10'000, 'x')), response);
    request.carryOut();
    request.carryOut();

    ASSERT_EQ(response->received.size(), 2U);
    EXPECT_EQ(response->received.back(), std::string(4096, '0'));
}

TEST_F(AutonomousRequests, ReadAllOfAnAnswerThatTheObjectDoesNotWant)
{
    const netTests::RunningServer running(server);
    const auto indifferent = std::make_shared<TextObject>("", 0);
    AutonomousRequest request("Echo", address(),
                              std::make_shared<TextObject>(std::string(500'000, 'x')), indifferent);
    request.carryOut();

    EXPECT_EQ(indifferent->received.size(), 1U);
    // The channel is ready for the next one.
    EXPECT_TRUE(JoltNet::Engine::takeChannel("127.0.0.1", server.port())->isQuiet());
}

TEST_F(AutonomousRequests, DestructTheirObjectsOnceWhenTheyGo)
{
    const auto sent = std::make_shared<TextObject>("abc");
    {
        const AutonomousRequest request("Echo", address(), sent, response);
        EXPECT_EQ(sent->destructions, 0);
    }
    EXPECT_EQ(sent->destructions, 1);
    EXPECT_EQ(response->destructions, 1);
}

TEST_F(AutonomousRequests, TakeAddressesOfHostAndPortAlone)
{
    for (const char* address : {"", "host", "host:", "host:x", "host:1x", "host: 1", "host:-1",
                                "host:65536", "host:1:"}) {
        try {
            requestTo(address);
            FAIL() << address;
        } catch (const NetException& exception) {
            EXPECT_THAT(exception.what(),
                        HasSubstr(std::string("an address must be HOST:PORT, not ") + address));
        }
    }
    EXPECT_NO_THROW(requestTo("host:0"));
    EXPECT_NO_THROW(requestTo("host:65535"));
    EXPECT_NO_THROW(requestTo("::1:4464"));
}

TEST_F(AutonomousRequests, FailWithoutAPeer)
{
    const std::string nobody = "127.0.0.1:" + std::to_string(netTests::unusedPort());
    EXPECT_THROW(requestTo(nobody)->carryOut(), NetException);
    EXPECT_TRUE(response->received.empty());
}

TEST_F(AutonomousRequests, OfASetAreCarriedOutAtTheSameTime)
{
    // Nobody is answered before all have asked.
    constexpr int many = 8;
    server.onRequest("Echo", [this](const Received&) {
        ++asked;
        return Answer{.isAccepted = netTests::until([this] { return asked == many; })};
    });
    const netTests::RunningServer running(server);
    RequestSet set;
    for (int i = 0; i < many; ++i)
        set.addRequest(requestTo(address()));
    set.go(nullptr, -1);

    EXPECT_NE(set.join(), 0);
    EXPECT_EQ(asked, many);
}

TEST_F(AutonomousRequests, OfASetMayGoAgain)
{
    const netTests::RunningServer running(server);
    RequestSet set;
    set.addRequest(requestTo(address()));
    set.go(nullptr, -1);
    EXPECT_NE(set.join(), 0);
    set.go(nullptr, -1);
    EXPECT_NE(set.join(), 0);
    // Without a join between them it waits by itself.
    set.go(nullptr, -1);
    set.go(nullptr, -1);
    EXPECT_NE(set.join(), 0);

    EXPECT_EQ(asked, 4);
}

TEST_F(AutonomousRequests, OfASetFailItsJoinUntilTheyGoWell)
{
    RequestSet set;
    set.addRequest(requestTo(address()));
    server.onRequest("Echo", [this](const Received&) { return Answer{.isAccepted = ++asked > 1}; });
    const netTests::RunningServer running(server);
    set.go(nullptr, -1);
    EXPECT_EQ(set.join(), 0);
    EXPECT_EQ(set.join(), 0);
    set.go(nullptr, -1);
    EXPECT_NE(set.join(), 0);
}

TEST_F(AutonomousRequests, OfASetFailItsJoinIfOneOfThemDoes)
{
    const netTests::RunningServer running(server);
    RequestSet set;
    set.addRequest(requestTo(address()));
    set.addRequest(requestTo("127.0.0.1:" + std::to_string(netTests::unusedPort())));
    // They run at the same time, and each has the objects that it fills to itself.
    response = std::make_shared<TextObject>();
    set.addRequest(requestTo(address()));
    set.go(nullptr, -1);

    EXPECT_EQ(set.join(), 0);
    EXPECT_EQ(asked, 2);
}

TEST_F(AutonomousRequests, OfASetThatWasNotSetGoingHaveNotFailed)
{
    RequestSet set;
    EXPECT_NE(set.join(), 0);
    set.addRequest(requestTo("127.0.0.1:1"));
    EXPECT_NE(set.join(), 0);
}

TEST_F(AutonomousRequests, OfASetAreWaitedForWhenItGoes)
{
    const netTests::RunningServer running(server);
    {
        RequestSet set;
        set.addRequest(requestTo(address()));
        set.go(nullptr, -1);
    }
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(response->received.size(), 1U);
}

class Listener : public JoltNet::RequestSetCallback {
public:
    void requestEnded(AutonomousRequest& request, const std::exception* failure) override
    {
        const std::scoped_lock lock(mutex);
        (failure ? failed : succeeded).push_back(&request);
        if (failure)
            reason = failure->what();
    }
    std::mutex mutex;
    std::vector<const AutonomousRequest*> succeeded;
    std::vector<const AutonomousRequest*> failed;
    std::string reason;
};

TEST_F(AutonomousRequests, OfASetTellTheCallbackHowTheyEnded)
{
    const netTests::RunningServer running(server);
    const auto good = requestTo(address());
    const auto bad = requestTo("127.0.0.1:" + std::to_string(netTests::unusedPort()));
    Listener listener;
    RequestSet set;
    set.addRequest(good);
    set.addRequest(bad);
    set.go(&listener, -1);

    EXPECT_EQ(set.join(), 0);
    EXPECT_THAT(listener.succeeded, testing::ElementsAre(good.get()));
    EXPECT_THAT(listener.failed, testing::ElementsAre(bad.get()));
    EXPECT_THAT(listener.reason, HasSubstr("connect to 127.0.0.1:"));
}

}  // namespace
