#include "JoltNet/Request.h"

#include <gmock/gmock.h>

#include <array>
#include <memory>
#include <string>

#include "JoltNet/NetException.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/JoltNet/SocketHooks.h"

namespace {

using JoltNet::NetException;
using JoltNet::Request;
using netTests::RawSocket;
using netTests::ScriptedPeer;
using testing::HasSubstr;

// What the peer sends once it has all that it expects; then it looks at nothing more than the end.
ScriptedPeer::Script answering(std::string expected, std::string answer)
{
    return [expected, answer](RawSocket& socket) {
        EXPECT_EQ(socket.receive(expected.size()), expected);
        socket.send(answer);
        EXPECT_TRUE(socket.isEnded());
    };
}

template <class Work>
std::string failureOf(Work work)
{
    try {
        work();
    } catch (const NetException& exception) {
        return exception.what();
    }
    return "(no failure)";
}

class OutgoingRequest : public testing::Test {
protected:
    Basis::string text(std::string_view characters) const
    {
        return Basis::string(characters, domain.get());
    }

    // A request named "Take" with one string "abc", to a peer with this answer.
    std::string failureOfIn(const std::string& answer)
    {
        const ScriptedPeer peer(answering(netTests::requestBytes("Take", {"abc"}), answer));
        const Basis::string sent = text("abc");
        const std::string failure = failureOf([&] {
            Request request("Take", "127.0.0.1", peer.port(), 0);
            request.writer().transferString(sent);
            request.in();
        });
        EXPECT_THAT(failure, HasSubstr(" 127.0.0.1:" + std::to_string(peer.port())));
        return failure;
    }

    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "request", 0);
    const netTests::EngineScope engine;
};

TEST_F(OutgoingRequest, SendsHeaderNameStringsAndEnd)
{
    const ScriptedPeer peer(
        answering(netTests::requestBytes("Take", {"abc", "", "de"}), netTests::receiptBytes(5)));
    const Basis::string first = text("abc");
    const Basis::string second = text("");
    const Basis::string third = text("de");

    Request request("Take", "127.0.0.1", peer.port(), 0);
    request.writer().transferString(first);
    request.writer().transferString(second);
    request.writer().transferBytes(third.data(), third.size());

    EXPECT_EQ(request.in().stringsLeft(), 0U);
}

TEST_F(OutgoingRequest, SendsHeaderAndEndIfThereIsNoString)
{
    const ScriptedPeer peer(
        answering(netTests::requestBytes("Take", {}), netTests::receiptBytes(0)));

    Request request("Take", "127.0.0.1", peer.port(), 0);

    EXPECT_EQ(request.in().stringsLeft(), 0U);
}

TEST_F(OutgoingRequest, SendsItsHeaderOnceHoweverOftenItIsAskedFor)
{
    const ScriptedPeer peer(
        answering(netTests::requestBytes("Take", {"abc"}), netTests::receiptBytes(3)));
    const Basis::string sent = text("abc");

    Request request("Take", "127.0.0.1", peer.port(), 0);
    EXPECT_FALSE(request.isHeaderDone());
    request.writeHeader();
    EXPECT_TRUE(request.isHeaderDone());
    request.writeHeader();
    request.writer().transferString(sent);
    request.in();

    EXPECT_TRUE(request.isHeaderDone());
    EXPECT_FALSE(request.isIncoming());
    EXPECT_EQ(request.name(), "Take");
    EXPECT_EQ(request.channel()->peer(), "127.0.0.1:" + std::to_string(peer.port()));
}

TEST_F(OutgoingRequest, CarriesTheSecurityFlagInItsHeader)
{
    const ScriptedPeer peer(
        answering(netTests::headerBytes("Take", 1) + netTests::frameBytes(netTests::endKind, 0, 0),
                  netTests::receiptBytes(0)));

    Request request("Take", "127.0.0.1", peer.port(), 1);

    EXPECT_EQ(failureOf([&] { request.in(); }), "(no failure)");
}

TEST_F(OutgoingRequest, TakesNamesOfUpTo64LettersAndDigits)
{
    const std::string longest(64, 'x');
    const ScriptedPeer peer(
        answering(netTests::requestBytes(longest, {}), netTests::receiptBytes(0)));

    Request request(longest.c_str(), "127.0.0.1", peer.port(), 0);

    EXPECT_EQ(failureOf([&] { request.in(); }), "(no failure)");
}

TEST_F(OutgoingRequest, RefusesOtherNamesBeforeItConnects)
{
    const std::string tooLong(65, 'x');
    for (const char* name : {"", tooLong.c_str(), "Take it", "Take-it", "Take\n", "T\xc3\xa4ke"}) {
        EXPECT_THAT(failureOf([&] { Request(name, "no such host", 1, 0); }),
                    HasSubstr("a request's name must be up to 64 letters and digits; for "
                              "no such host:1"))
            << name;
    }
}

TEST_F(OutgoingRequest, ReadsTheStringsOfTheAnswer)
{
    const ScriptedPeer peer(answering(netTests::requestBytes("Take", {}),
                                      netTests::receiptBytes(0, 3) + netTests::stringBytes("one") +
                                          netTests::stringBytes("") +
                                          netTests::stringBytes("three")));
    Request request("Take", "127.0.0.1", peer.port(), 0);
    JoltNet::Reader& reader = request.in();
    EXPECT_EQ(reader.stringsLeft(), 3U);

    Basis::string received = text("what was there before");
    reader.transferString(received);
    EXPECT_EQ(received, "one");
    received = text("xxxx");
    reader.transferString(received);
    EXPECT_EQ(received, "");
    EXPECT_EQ(reader.stringsLeft(), 1U);
    std::array<char, 2> beginning{};
    EXPECT_EQ(reader.takeString(beginning), 5U);
    EXPECT_EQ(std::string(beginning.data(), 2), "th");
    EXPECT_EQ(reader.stringsLeft(), 0U);

    EXPECT_THAT(failureOf([&] { reader.transferString(received); }),
                HasSubstr("no more strings from 127.0.0.1:"));
    EXPECT_THAT(failureOf([&] { reader.takeString({}); }), HasSubstr("no more strings from"));
}

TEST_F(OutgoingRequest, ReadsAnAnswerOfExactlyTheMostThatItMayBe)
{
    const ScriptedPeer peer(answering(netTests::requestBytes("Take", {}),
                                      netTests::receiptBytes(0, 1) + netTests::stringBytes("abc")));
    Request request("Take", "127.0.0.1", peer.port(), 0);
    Basis::string received = text("");

    request.in().transferString(received, 3);

    EXPECT_EQ(received, "abc");
}

TEST_F(OutgoingRequest, RefusesAnAnswerLongerThanItMayBeBeforeItComes)
{
    // The string itself is not sent.
    const ScriptedPeer peer(
        answering(netTests::requestBytes("Take", {}),
                  netTests::receiptBytes(0, 1) + netTests::frameBytes(netTests::stringKind, 0, 4)));
    Request request("Take", "127.0.0.1", peer.port(), 0);
    JoltNet::Reader& reader = request.in();
    Basis::string received = text("as it was");

    EXPECT_THAT(failureOf([&] { reader.transferString(received, 3); }),
                HasSubstr("a string longer than it may be from 127.0.0.1:"));
    EXPECT_EQ(received, "as it was");
}

TEST_F(OutgoingRequest, RefusesAnnouncementsBeyondAllLimits)
{
    const ScriptedPeer peer(
        answering(netTests::requestBytes("Take", {}),
                  netTests::receiptBytes(0, 1) +
                      netTests::frameBytes(netTests::stringKind, 0, std::uint64_t{1} << 63)));
    Request request("Take", "127.0.0.1", peer.port(), 0);
    JoltNet::Reader& reader = request.in();
    Basis::string received = text("");

    EXPECT_THAT(failureOf([&] { reader.transferString(received); }), HasSubstr("a broken frame"));
    EXPECT_LT(domain->peakBytes(), 4096U);
}

TEST_F(OutgoingRequest, RefusesAnAnswerThatIsNoString)
{
    const std::string answer =
        netTests::receiptBytes(0, 1) + netTests::frameBytes(netTests::endKind, 0, 0);
    const ScriptedPeer peer(answering(netTests::requestBytes("Take", {}), answer));
    Basis::string received = text("");
    {
        Request request("Take", "127.0.0.1", peer.port(), 0);
        JoltNet::Reader& reader = request.in();
        EXPECT_THAT(failureOf([&] { reader.transferString(received); }),
                    HasSubstr("no string from 127.0.0.1:"));
    }
    Request request("Take", "127.0.0.1", peer.port(), 0);
    JoltNet::Reader& reader = request.in();
    EXPECT_THAT(failureOf([&] { reader.takeString({}); }), HasSubstr("no string from 127.0.0.1:"));
}

TEST_F(OutgoingRequest, RefusesAReceiptForFewerOrMoreBytes)
{
    for (const std::uint64_t count : {0U, 2U, 4U}) {
        EXPECT_THAT(failureOfIn(netTests::receiptBytes(count)),
                    HasSubstr("no receipt for what was sent from"))
            << count;
    }
}

TEST_F(OutgoingRequest, RefusesAnAnswerThatIsNoReceipt)
{
    EXPECT_THAT(failureOfIn(netTests::frameBytes(netTests::stringKind, 0, 3)),
                HasSubstr("no receipt for what was sent from"));
    EXPECT_THAT(failureOfIn(std::string(16, 'x')), HasSubstr("a broken frame from"));
    EXPECT_THAT(failureOfIn(netTests::receiptBytes(3, 1025)), HasSubstr("a broken frame from"));
}

TEST_F(OutgoingRequest, FailsIfThePeerEndsBeforeItsReceipt)
{
    const auto end = [](RawSocket& socket) {
        socket.receive(netTests::requestBytes("Take", {}).size());
        socket.send(netTests::receiptBytes(0).substr(0, 15));
    };
    const ScriptedPeer peer(end);
    Request request("Take", "127.0.0.1", peer.port(), 0);

    EXPECT_THAT(failureOf([&] { request.in(); }),
                HasSubstr("connection ended by 127.0.0.1:" + std::to_string(peer.port())));
}

TEST_F(OutgoingRequest, WaitsTenSecondsForTheReceiptOfAPeerThatIsSilent)
{
    netTests::ShiftedClock clock;
    const ScriptedPeer peer([&clock](RawSocket& socket) {
        socket.receive(netTests::requestBytes("Take", {}).size());
        clock.advance(std::chrono::seconds(11));
        EXPECT_TRUE(socket.isEnded());
    });
    const std::string failure = failureOf([&] {
        Request request("Take", "127.0.0.1", peer.port(), 0);
        request.in();
    });

    EXPECT_THAT(failure, HasSubstr("receive from 127.0.0.1:" + std::to_string(peer.port())));
    EXPECT_THAT(failure, HasSubstr("timed out"));
}

TEST_F(OutgoingRequest, WaitsLongerForTheReceiptOfMore)
{
    netTests::ShiftedClock clock;
    const Basis::string load(20'000'000, '0', domain.get());
    const ScriptedPeer peer([&clock, &load](RawSocket& socket) {
        socket.receive(netTests::requestBytes("Take", {load}).size());
        clock.advance(std::chrono::seconds(11));
        // Time for the waiting side to look at its clock.
        EXPECT_FALSE(socket.isEndedSoon());
        socket.send(netTests::receiptBytes(load.size()));
        EXPECT_TRUE(socket.isEnded());
    });
    Request request("Take", "127.0.0.1", peer.port(), 0);
    request.writer().transferString(load);

    EXPECT_EQ(failureOf([&] { request.in(); }), "(no failure)");
}

}  // namespace
