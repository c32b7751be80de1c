#include "Diagnose/Statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Diagnose::StatisticsDomain;
using Diagnose::StatisticsRegistration;
using Diagnose::StatisticsRegistry;
using Diagnose::StatisticsSimpleCounter;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(StatisticsSimpleCounter, IsZeroAtFirst)
{
    const StatisticsSimpleCounter counter;

    EXPECT_EQ(counter.getValue(), 0U);
    EXPECT_EQ(counter.getValueSinceReset(1), 0U);
}

TEST(StatisticsSimpleCounter, ShowsTheValueThatWasPublishedLast)
{
    StatisticsSimpleCounter counter;

    for (const std::uint64_t value : {3U, 10U})
        counter.publish(value);

    EXPECT_EQ(counter.getValue(), 10U);
    EXPECT_EQ(counter.getValueSinceReset(1), 10U);
}

TEST(StatisticsSimpleCounter, CountsAnewAfterAReset)
{
    StatisticsSimpleCounter counter;
    counter.publish(10);

    counter.reset();
    EXPECT_EQ(counter.getValueSinceReset(1), 0U);

    counter.publish(14);
    EXPECT_EQ(counter.getValueSinceReset(1), 4U);
    EXPECT_EQ(counter.getValue(), 14U);

    counter.reset();
    EXPECT_EQ(counter.getValueSinceReset(1), 0U);
}

TEST(StatisticsSimpleCounterDeathTest, HasOneResetDomain)
{
    const StatisticsSimpleCounter counter;

    EXPECT_DEATH(counter.getValueSinceReset(0), "one reset domain");
    EXPECT_DEATH(counter.getValueSinceReset(2), "one reset domain");
}

// The registry is the process's; other domains are not ours.
class StatisticsRegistryTest : public testing::Test {
protected:
    StatisticsDomain domain(const std::string& name, const std::string& mark)
    {
        return {name, [this, mark] { log += "reset " + mark + ";"; },
                [mark](std::ostream& stream) { stream << mark << '\n'; }};
    }
    std::string print(const std::string& name)
    {
        std::ostringstream stream;
        return registry.print(name, stream) ? stream.str() : "(unknown)";
    }

    StatisticsRegistry& registry = StatisticsRegistry::instance();
    std::string log;
};

TEST_F(StatisticsRegistryTest, IsOneForTheProcess)
{
    EXPECT_EQ(&StatisticsRegistry::instance(), &registry);
}

TEST_F(StatisticsRegistryTest, KnowsNoDomainThatWasNotAdded)
{
    std::ostringstream stream;

    EXPECT_FALSE(registry.reset("A"));
    EXPECT_FALSE(registry.print("A", stream));
    EXPECT_EQ(stream.str(), "");
    EXPECT_THAT(registry.names(), IsEmpty());
}

TEST_F(StatisticsRegistryTest, ReachesADomainByItsWholeName)
{
    const StatisticsRegistration first(domain("A", "first"));
    const StatisticsRegistration second(domain("AB", "second"));

    EXPECT_TRUE(registry.reset("A"));
    EXPECT_EQ(log, "reset first;");
    EXPECT_EQ(print("AB"), "second\n");
    EXPECT_EQ(print("a"), "(unknown)");
    EXPECT_EQ(print(""), "(unknown)");
}

TEST_F(StatisticsRegistryTest, ReachesAllServicesOfOneNameInTheirOrder)
{
    const StatisticsRegistration first(domain("A", "first"));
    const StatisticsRegistration other(domain("B", "other"));
    const StatisticsRegistration second(domain("A", "second"));

    EXPECT_TRUE(registry.reset("A"));

    EXPECT_EQ(log, "reset first;reset second;");
    EXPECT_EQ(print("A"), "first\nsecond\n");
}

TEST_F(StatisticsRegistryTest, NamesEachDomainOnceInByteOrder)
{
    const StatisticsRegistration first(domain("b", "1"));
    const StatisticsRegistration second(domain("a", "2"));
    const StatisticsRegistration third(domain("b", "3"));
    const StatisticsRegistration fourth(domain("B", "4"));

    EXPECT_THAT(registry.names(), ElementsAre("B", "a", "b"));
}

TEST_F(StatisticsRegistryTest, ForgetsTheOneThatIsRemoved)
{
    const unsigned first = registry.add(domain("A", "first"));
    const unsigned second = registry.add(domain("A", "second"));
    EXPECT_NE(first, 0U);
    EXPECT_NE(second, 0U);
    EXPECT_NE(first, second);

    registry.remove(first);
    EXPECT_EQ(print("A"), "second\n");

    registry.remove(first);
    EXPECT_EQ(print("A"), "second\n");

    registry.remove(second);
    EXPECT_EQ(print("A"), "(unknown)");
}

TEST_F(StatisticsRegistryTest, KeepsADomainAsLongAsItsRegistration)
{
    std::optional<StatisticsRegistration> moved;
    {
        StatisticsRegistration first(domain("A", "first"));
        moved.emplace(std::move(first));
    }
    EXPECT_EQ(print("A"), "first\n");

    moved.reset();
    EXPECT_EQ(print("A"), "(unknown)");
}

// What a domain prints from may go as soon as the removal has returned.
TEST_F(StatisticsRegistryTest, WaitsForACommandThatIsUnderWayBeforeADomainGoes)
{
    for (int round = 0; round < 200; ++round) {
        std::atomic<bool> isInside{false};
        std::atomic<bool> isRemoving{false};
        std::atomic<bool> isOver{false};
        const unsigned handle = registry.add({"A", [] {},
                                              [&](std::ostream&) {
                                                  isInside = true;
                                                  isInside.notify_all();
                                                  isRemoving.wait(false);
                                                  for (int i = 0; i < 20; ++i)
                                                      std::this_thread::yield();
                                                  isOver = true;
                                              }});
        const std::jthread printer([&] { print("A"); });
        isInside.wait(false);
        isRemoving = true;
        isRemoving.notify_all();

        registry.remove(handle);

        ASSERT_TRUE(isOver);
    }
}

TEST_F(StatisticsRegistryTest, MayBeUsedByManyThreads)
{
    std::atomic<int> wrong{0};
    {
        std::vector<std::jthread> threads;
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back([&, number] {
                const std::string name = "domain " + std::to_string(number);
                for (int i = 0; i < 500; ++i) {
                    int resets = 0;
                    const StatisticsRegistration registration(
                        {name, [&] { ++resets; }, [&](std::ostream& stream) { stream << resets; }});
                    registry.reset(name);
                    wrong += print(name) == "1" ? 0 : 1;
                }
            });
        }
    }

    EXPECT_EQ(wrong, 0);
    EXPECT_THAT(registry.names(), IsEmpty());
}

}  // namespace
