// The rate of a series of exchanges, and the search for the best load.
#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "impl/network/VNSNetTester.h"

namespace {

using Basis::string;
using testing::Each;
using testing::ElementsAre;
using vetraTests::VNSNetTester;

Basis::Allocator& domain()
{
    return *Basis::Allocator::global();
}

// Its exchanges take as long as the test says, the last one of the list as often as it is needed.
class TimedTester : public VNSNetTester {
public:
    explicit TimedTester(std::vector<long> microseconds)
        : VNSNetTester(domain()), durations(std::move(microseconds))
    {
        setIterNo(static_cast<int>(durations.size()));
    }
    std::int32_t rate(unsigned long size, bool bidi = false)
    {
        return getAverageThroughPut(string("peer", &domain()), 4464, size, bidi);
    }
    int getIterNo() override
    {
        return changingIterations ? changingIterations() : VNSNetTester::getIterNo();
    }

    std::function<int()> changingIterations;
    std::size_t exchanges = 0;
    std::vector<const char*> payloads;
    std::vector<bool> directions;
    std::string lastPayload;

private:
    long exchange(const string& payload, const string& host, unsigned short port,
                  bool bidi) override
    {
        EXPECT_EQ(host, "peer");
        EXPECT_EQ(port, 4464);
        payloads.push_back(payload.data());
        directions.push_back(bidi);
        if (payload.size() < 100)
            lastPayload = payload;
        return durations[std::min(exchanges++, durations.size() - 1)];
    }

    std::vector<long> durations;
};

TEST(AverageThroughPut, IsBitsPerMicrosecondOfTheMean)
{
    EXPECT_EQ(TimedTester({100}).rate(65535), 5242);
    EXPECT_EQ(TimedTester({50, 100, 150}).rate(65535), 5242);
    EXPECT_EQ(TimedTester({1000000}).rate(1), 0);
}

TEST(AverageThroughPut, TruncatesTheMean)
{
    EXPECT_EQ(TimedTester({1, 2}).rate(10), 80);
    EXPECT_EQ(TimedTester({2, 3, 3}).rate(10), 40);
}

TEST(AverageThroughPut, OfBothDirectionsIsTwiceThatOfOneForTheSameTime)
{
    EXPECT_EQ(TimedTester({100}).rate(1000, false), 80);
    EXPECT_EQ(TimedTester({100}).rate(1000, true), 160);
    EXPECT_EQ(TimedTester({100}).rate(65535, true), 10485);
}

TEST(AverageThroughPut, HasTenExchangesByDefault)
{
    TimedTester tester({100});
    tester.setIterNo(0);
    EXPECT_EQ(tester.rate(1000), 80);
    EXPECT_EQ(tester.exchanges, 10U);
}

TEST(AverageThroughPut, SendsOnePayloadOfZerosInAllExchanges)
{
    TimedTester tester({100, 100, 100});
    tester.rate(50, true);

    EXPECT_EQ(tester.lastPayload, std::string(50, '0'));
    EXPECT_THAT(tester.payloads, Each(tester.payloads.front()));
    EXPECT_THAT(tester.directions, ElementsAre(true, true, true));
}

TEST(AverageThroughPut, OfAnEmptyLoadIsZero)
{
    TimedTester tester({100, 100});
    EXPECT_EQ(tester.rate(0), 0);
    EXPECT_EQ(tester.exchanges, 2U);
}

TEST(AverageThroughPut, IsZeroAndTheSeriesOverOnceAnExchangeFails)
{
    const std::vector<std::pair<std::vector<long>, std::size_t>> cases = {
        {{-1, 5, 5}, 1}, {{5, -1, 5}, 2}, {{5, 5, -1}, 3}};
    for (const auto& [durations, expectedExchanges] : cases) {
        TimedTester tester(durations);
        EXPECT_EQ(tester.rate(1000), 0);
        EXPECT_EQ(tester.exchanges, expectedExchanges);
    }
}

TEST(AverageThroughPut, IsZeroIfTheBestTookNoTime)
{
    EXPECT_EQ(TimedTester({0, 0}).rate(10), 0);
    EXPECT_EQ(TimedTester({5, 0}).rate(10), 0);
}

TEST(AverageThroughPut, GoesOnBehindAnExchangeThatTookNoTime)
{
    // A best of nothing is replaced by the next.
    EXPECT_EQ(TimedTester({0, 5}).rate(10), 40);
}

TEST(AverageThroughPut, IsZeroIfTheMeanIs)
{
    EXPECT_EQ(TimedTester({0, 1}).rate(10), 0);
}

TEST(AverageThroughPut, CutsTheMeanTo32Bits)
{
    EXPECT_EQ(TimedTester({(std::int64_t{1} << 32) + 5}).rate(10), 16);
}

TEST(AverageThroughPut, CutsTheRateTo32Bits)
{
    EXPECT_EQ(TimedTester({1}).rate((1UL << 27) + 1, true),
              std::numeric_limits<std::int32_t>::min() + 16);
}

TEST(AverageThroughPut, AsksForTheIterationsBeforeEachExchange)
{
    TimedTester tester({30, 50});
    std::vector<int> answers = {5, 4, 2};
    tester.changingIterations = [&answers, asked = 0U]() mutable { return answers.at(asked++); };

    // The mean is by the last answer.
    EXPECT_EQ(tester.rate(100), 20);
    EXPECT_EQ(tester.exchanges, 2U);
}

TEST(AverageThroughPut, EndsWhenTheIterationsBecomeFewerThanHaveBeen)
{
    TimedTester tester({30, 50});
    tester.changingIterations = [&tester] { return tester.exchanges < 2 ? 3 : 1; };

    EXPECT_EQ(tester.rate(100), 10);
    EXPECT_EQ(tester.exchanges, 2U);
}

// Its rates are those of a table.
class RatedTester : public VNSNetTester {
public:
    explicit RatedTester(std::function<std::int32_t(std::uint64_t)> rateOfSize)
        : VNSNetTester(domain()), rateOf(std::move(rateOfSize))
    {
    }
    std::int32_t search()
    {
        return getOptimalAverageThroughPut(string("peer", &domain()), 4464, &optimum);
    }
    std::int32_t getAverageThroughPut(const string&, unsigned short, unsigned long size,
                                      bool bidi) override
    {
        EXPECT_FALSE(bidi);
        sizes.push_back(size);
        return rateOf(size);
    }

    std::vector<std::uint64_t> sizes;
    unsigned long optimum = 12345;

private:
    std::function<std::int32_t(std::uint64_t)> rateOf;
};

constexpr std::uint64_t KiB = 1024;
constexpr std::uint64_t MiB = 1024 * KiB;

TEST(OptimalThroughPut, ScansInHalfMegabytesAroundABestOfOneMegabyte)
{
    RatedTester tester([](std::uint64_t size) {
        return static_cast<std::int32_t>(size <= MiB ? size / KiB : 1000);
    });

    EXPECT_EQ(tester.search(), 1024);
    EXPECT_EQ(tester.optimum, MiB);
    EXPECT_THAT(tester.sizes,
                ElementsAre(KiB, 2 * KiB, 4 * KiB, 8 * KiB, 16 * KiB, 32 * KiB, 64 * KiB, 128 * KiB,
                            256 * KiB, 512 * KiB, MiB, 2 * MiB, 4 * MiB, 8 * MiB,
                            // the scan, until five sizes in a row bring no more
                            512 * KiB, MiB, 1536 * KiB, 2 * MiB, 2560 * KiB, 3 * MiB, 3584 * KiB));
}

TEST(OptimalThroughPut, DoublesUpToOneBelow16GiBAndScansUpTo16GiB)
{
    RatedTester tester([](std::uint64_t size) { return static_cast<std::int32_t>(size / KiB); });

    EXPECT_EQ(tester.search(), 16384 * KiB);
    EXPECT_EQ(tester.optimum, 16384 * MiB);
    ASSERT_EQ(tester.sizes.size(), 24U + 32U);
    EXPECT_EQ(tester.sizes[23], 8192 * MiB);
    // The step is 32 bytes for each KiB of the last load, and the scan begins with it.
    EXPECT_EQ(tester.sizes[24], 512 * MiB);
    EXPECT_EQ(tester.sizes[25], 1024 * MiB);
    EXPECT_EQ(tester.sizes.back(), 16384 * MiB);
}

TEST(OptimalThroughPut, TakesAnEqualRateForNoImprovement)
{
    RatedTester tester([](std::uint64_t) { return 5; });

    EXPECT_EQ(tester.search(), 5);
    EXPECT_EQ(tester.optimum, 512U);
    EXPECT_THAT(tester.sizes,
                ElementsAre(1024, 2048, 4096, 8192, 512, 1024, 1536, 2048, 2560, 3072));
}

TEST(OptimalThroughPut, MeasuresFiveTimesNothingIfAllRatesAreZero)
{
    RatedTester tester([](std::uint64_t) { return 0; });

    EXPECT_EQ(tester.search(), 0);
    EXPECT_EQ(tester.optimum, 12345U);
    EXPECT_THAT(tester.sizes, ElementsAre(1024, 2048, 4096, 0, 0, 0, 0, 0));
}

TEST(OptimalThroughPut, GoesOnDoublingThroughTwoLoadsThatBringNoMore)
{
    RatedTester tester([](std::uint64_t size) {
        if (size == KiB)
            return 10;
        return size == 8 * KiB ? 11 : 1;
    });

    EXPECT_EQ(tester.search(), 11);
    EXPECT_EQ(tester.optimum, 8 * KiB);
    EXPECT_EQ(tester.sizes[6], 64 * KiB);
    EXPECT_EQ(tester.sizes[7], 4 * KiB);
    EXPECT_EQ(tester.sizes[8], 8 * KiB);
}

}  // namespace
