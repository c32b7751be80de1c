// One timed exchange: the order of its steps with a request that records them, and its figures with
// the real server.
#include "impl/network/SingleExchange.h"

#include <gmock/gmock.h>

#include <iostream>
#include <string>
#include <vector>

#include "JoltNet/NetException.h"
#include "JoltNet/Request.h"
#include "tests/programs/VNSNetServerBidi/RunningMeasuringServer.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using Basis::string;
using testing::ElementsAre;
using unitTests::CapturedOutput;
using vetraTests::doSingleTestWithString;

Basis::Allocator& domain()
{
    return *Basis::Allocator::global();
}

string text(std::string_view characters)
{
    return string(characters, &domain());
}

std::vector<std::string> steps;

void step(std::string_view what, std::string_view detail = "")
{
    steps.push_back(std::string(what).append(detail));
}

// Plays a request, and writes down what is done to it. `Kind` tells the cases apart.
enum class Kind { outgoing, incoming, done };

template <Kind kind>
class RecordedRequest {
public:
    struct Writer {
        void transferString(const string& sent) { step("send ", sent); }
    };
    struct Reader {
        void transferString(string& received, std::uint64_t mostBytes = 1000)
        {
            step("receive up to ", std::to_string(mostBytes));
            received = response;
        }
    };
    RecordedRequest(const char* name, const char* host, unsigned short port, char isSecure)
        : isDone(kind == Kind::done)
    {
        step("make ", std::string(name) + " " + host + ":" + std::to_string(port));
        EXPECT_EQ(isSecure, 0);
    }
    ~RecordedRequest() { step("destroy"); }

    bool isHeaderDone() const { return isDone; }
    bool isIncoming() const { return kind == Kind::incoming; }
    JoltNet::Channel* channel() const { return nullptr; }
    Writer& writer() { return ownWriter; }
    void writeHeader()
    {
        step("write header");
        isDone = true;
    }
    bool readHeader(JoltNet::Channel* channel, bool isBlocking)
    {
        step("read header");
        EXPECT_EQ(channel, nullptr);
        EXPECT_TRUE(isBlocking);
        isDone = ++headerReads == 3;
        return isDone;
    }
    Reader& in()
    {
        step("in");
        // The header before the reply is a step of its own.
        isDone = kind == Kind::done;
        return ownReader;
    }

    static inline const char* response = "3";

private:
    bool isDone;
    int headerReads = 0;
    Writer ownWriter;
    Reader ownReader;
};

class RecordedReceiver : public vetraTests::Receiver {
public:
    RecordedReceiver() : Receiver(domain(), text("127.0.0.1"), 1, 1) {}
    bool start() override
    {
        step("start receiver");
        return false;
    }
    bool join() override
    {
        step("join receiver");
        return false;
    }
};

template <Kind kind>
long exchange(bool checkResponse, bool readBack, vetraTests::Receiver* receiver = nullptr)
{
    steps.clear();
    const string payload = text("abc");
    return doSingleTestWithString<RecordedRequest<kind>>(3, &payload, text("Name"), text("host"), 5,
                                                         checkResponse, readBack, receiver);
}

TEST(SingleExchangeSteps, SendHeaderAndPayloadAndWaitForTheReceipt)
{
    EXPECT_GE(exchange<Kind::outgoing>(false, false), 0);
    EXPECT_THAT(steps,
                ElementsAre("make Name host:5", "write header", "send abc", "in", "destroy"));
}

TEST(SingleExchangeSteps, LeaveAHeaderThatIsDone)
{
    exchange<Kind::done>(false, true);
    EXPECT_THAT(steps,
                ElementsAre("make Name host:5", "send abc", "in", "receive up to 3", "destroy"));
}

TEST(SingleExchangeSteps, RepeatTheHeaderBeforeTheReply)
{
    exchange<Kind::outgoing>(false, true);
    EXPECT_THAT(steps, ElementsAre("make Name host:5", "write header", "send abc", "in",
                                   "write header", "receive up to 3", "destroy"));
}

TEST(SingleExchangeSteps, ReadTheHeaderOfAnIncomingRequestUntilItIsThere)
{
    exchange<Kind::incoming>(false, false);
    EXPECT_THAT(steps, ElementsAre("make Name host:5", "read header", "read header", "read header",
                                   "send abc", "in", "destroy"));
}

TEST(SingleExchangeSteps, StartTheReceiverFirstAndJoinItBehindTheReceipt)
{
    RecordedReceiver receiver;
    exchange<Kind::outgoing>(false, true, &receiver);
    EXPECT_THAT(steps,
                ElementsAre("make Name host:5", "start receiver", "write header", "send abc", "in",
                            "join receiver", "write header", "receive up to 3", "destroy"));
}

TEST(SingleExchangeSteps, CheckTheResponseBehindAllOthers)
{
    const CapturedOutput out;
    EXPECT_GE(exchange<Kind::done>(true, true), 0);
    EXPECT_THAT(steps, ElementsAre("make Name host:5", "send abc", "in", "receive up to 3",
                                   "receive up to 20", "destroy"));
    EXPECT_EQ(out.text(), "");
}

TEST(SingleExchangeResponse, OfAnotherSizeFailsWithALine)
{
    const CapturedOutput out;
    RecordedRequest<Kind::done>::response = "4";
    EXPECT_EQ(exchange<Kind::done>(true, false), -1);
    RecordedRequest<Kind::done>::response = "";
    EXPECT_EQ(exchange<Kind::done>(true, false), -1);
    RecordedRequest<Kind::done>::response = "18446744073709551615";
    EXPECT_EQ(exchange<Kind::done>(true, false), -1);
    RecordedRequest<Kind::done>::response = "3";

    EXPECT_EQ(out.text(),
              "Received wrong response: SendSize = 3 ReceiveSize = 4\n"
              "Received wrong response: SendSize = 3 ReceiveSize = 0\n"
              "Received wrong response: SendSize = 3 ReceiveSize = 18446744073709551615\n");
}

TEST(SingleExchangeResponse, IsNotLookedAtUnlessItIsToBe)
{
    const CapturedOutput out;
    RecordedRequest<Kind::done>::response = "4";
    EXPECT_GE(exchange<Kind::done>(false, true), 0);
    RecordedRequest<Kind::done>::response = "3";
    EXPECT_EQ(out.text(), "");
}

TEST(SingleExchangeReply, ThatIsShortIsSaidOnceForAPeer)
{
    const CapturedOutput out;
    const CapturedOutput err(std::cerr);
    EXPECT_GE(exchange<Kind::done>(false, true), 0);
    EXPECT_GE(exchange<Kind::done>(false, true), 0);
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(err.text(),
              "vetra: host:5 sends back 1 of 3 bytes: the rate in both directions is too high\n");
}

TEST(SingleExchangeReply, AsLongAsWhatWasSentIsNotSpokenOf)
{
    const CapturedOutput err(std::cerr);
    RecordedRequest<Kind::outgoing>::response = "abc";
    EXPECT_GE(exchange<Kind::outgoing>(false, true), 0);
    RecordedRequest<Kind::outgoing>::response = "3";
    EXPECT_EQ(err.text(), "");
}

class SingleExchange : public testing::Test {
protected:
    long exchangeWith(unsigned short port, const char* name, unsigned long size,
                      bool checkResponse = false, bool readBack = false,
                      vetraTests::Receiver* receiver = nullptr)
    {
        const string payload(size, '0', &domain());
        return doSingleTestWithString<JoltNet::Request>(
            size, &payload, text(name), text("127.0.0.1"), port, checkResponse, readBack, receiver);
    }

    // A peer that answers one load of so many bytes with these strings.
    static netTests::ScriptedPeer::Script answering(std::size_t size,
                                                    std::vector<std::string> strings)
    {
        return [size, strings](netTests::RawSocket& socket) {
            socket.receive(netTests::requestBytes("BidiVNS", {std::string(size, '0')}).size());
            std::string answer =
                netTests::receiptBytes(size, static_cast<std::uint32_t>(strings.size()));
            for (const std::string& one : strings)
                answer += netTests::stringBytes(one);
            socket.send(answer);
            socket.isEnded();
        };
    }

    netTests::EngineScope engine;
};

TEST_F(SingleExchange, WithTheRealServerTakesTime)
{
    const netTests::RunningMeasuringServer server;
    // So much cannot take less than a microsecond.
    EXPECT_GT(exchangeWith(server.port(), "MeasureVNS", 1 << 20), 0);
    EXPECT_GT(exchangeWith(server.port(), "BidiVNS", 1 << 20, false, true), 0);
}

TEST_F(SingleExchange, OfNoBytesIsStillTimed)
{
    const netTests::RunningMeasuringServer server;
    EXPECT_GE(exchangeWith(server.port(), "MeasureVNS", 0), 0);
    EXPECT_GE(exchangeWith(server.port(), "BidiVNS", 0, false, true), 0);
}

TEST_F(SingleExchange, FetchesWithTheReceiverMeanwhile)
{
    const netTests::RunningMeasuringServer server;
    vetraTests::Receiver receiver(domain(), text("127.0.0.1"), server.port(), 1 << 20);
    EXPECT_GT(exchangeWith(server.port(), "MeasureVNS", 1 << 20, false, false, &receiver), 0);
    EXPECT_TRUE(receiver.join());
}

TEST_F(SingleExchange, ComparesTheSizeThatThePeerHasReceived)
{
    const CapturedOutput out;
    const netTests::ScriptedPeer right(answering(5, {"00000", "5"}));
    EXPECT_GE(exchangeWith(right.port(), "BidiVNS", 5, true, true), 0);
    EXPECT_EQ(out.text(), "");

    const netTests::ScriptedPeer wrong(answering(5, {"4"}));
    EXPECT_EQ(exchangeWith(wrong.port(), "BidiVNS", 5, true, false), -1);
    EXPECT_EQ(out.text(), "Received wrong response: SendSize = 5 ReceiveSize = 4\n");
}

TEST_F(SingleExchange, TakesAShorterReplyAndRefusesALongerOne)
{
    const netTests::ScriptedPeer shorter(answering(5, {"0"}));
    EXPECT_GE(exchangeWith(shorter.port(), "BidiVNS", 5, false, true), 0);

    const netTests::ScriptedPeer longer(answering(5, {"000000"}));
    EXPECT_THROW(exchangeWith(longer.port(), "BidiVNS", 5, false, true), JoltNet::NetException);
}

TEST_F(SingleExchange, FailsWithoutAPeer)
{
    EXPECT_THROW(exchangeWith(netTests::unusedPort(), "MeasureVNS", 1), JoltNet::NetException);
}

TEST_F(SingleExchange, FailsWithoutAnAnswerToReadBack)
{
    const netTests::RunningMeasuringServer server;
    EXPECT_THROW(exchangeWith(server.port(), "MeasureVNS", 5, false, true), JoltNet::NetException);
}

}  // namespace
