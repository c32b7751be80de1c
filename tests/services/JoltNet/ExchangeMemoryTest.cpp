// What an exchange costs once its channel is warm. Counts the allocations of the whole program.
#include <gtest/gtest.h>

#include <string>

#include "JoltNet/Request.h"
#include "JoltNet/Server.h"
#include "tests/services/JoltNet/EngineScope.h"
#include "tests/services/JoltNet/RunningServer.h"
#include "tests/vetraTests/FSPerf/CountedAllocations.h"

namespace {

using JoltNet::Answer;
using JoltNet::Received;
using vetraTests::CountedAllocations;

class ExchangeMemory : public testing::Test {
protected:
    ExchangeMemory()
    {
        server.onRequest("Take", [](const Received&) { return Answer{}; });
        server.onRequest("Echo",
                         [](const Received& received) { return Answer{.length = received.bytes}; });
    }

    void take()
    {
        JoltNet::Request request("Take", "127.0.0.1", server.port(), 0);
        request.writeHeader();
        request.writer().transferString(load);
        request.in();
    }
    void echo()
    {
        JoltNet::Request request("Echo", "127.0.0.1", server.port(), 0);
        request.writeHeader();
        request.writer().transferString(load);
        request.in().transferString(reply, load.size());
    }

    netTests::EngineScope engine;
    JoltNet::Server server{"127.0.0.1", 0};
    Basis::string load{65535, '0', Basis::Allocator::global().get()};
    Basis::string reply{Basis::Allocator::global().get()};
};

TEST_F(ExchangeMemory, IsNoneOnAWarmChannelOnBothSides)
{
    const netTests::RunningServer running(server);
    take();
    CountedAllocations::begin();
    for (int i = 0; i < 1000; ++i)
        take();

    EXPECT_EQ(CountedAllocations::end(), 0U);
}

TEST_F(ExchangeMemory, IsNoneForAnAnswerThatFitsTheTextOfTheOneBefore)
{
    const netTests::RunningServer running(server);
    echo();
    CountedAllocations::begin();
    for (int i = 0; i < 1000; ++i)
        echo();

    EXPECT_EQ(CountedAllocations::end(), 0U);
    EXPECT_EQ(reply, load);
}

TEST_F(ExchangeMemory, IsCountedForAChannelThatIsNew)
{
    const netTests::RunningServer running(server);
    CountedAllocations::begin();
    take();

    EXPECT_GT(CountedAllocations::end(), 0U);
}

}  // namespace
