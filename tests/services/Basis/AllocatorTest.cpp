#include "Basis/Allocator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <thread>
#include <vector>

#include "tests/services/support/Guards.h"

namespace {

using Basis::Allocator;
using testing::MatchesRegex;

std::shared_ptr<Allocator> domain(const char* name)
{
    return Allocator::createChild(Allocator::global(), name, 0);
}

TEST(Allocator, CountsBytesAndBlocksThatItsUsersHold)
{
    const auto own = domain("counted");

    void* const first = own->allocate(100);
    void* const second = own->allocate(28);
    EXPECT_EQ(own->bytes(), 128U);
    EXPECT_EQ(own->liveAllocations(), 2U);

    own->deallocate(first, 100);
    EXPECT_EQ(own->bytes(), 28U);
    EXPECT_EQ(own->liveAllocations(), 1U);
    own->deallocate(second, 28);
    EXPECT_EQ(own->bytes(), 0U);
    EXPECT_EQ(own->liveAllocations(), 0U);
}

TEST(Allocator, RemembersTheHighestBytesAndNotTheLast)
{
    const auto own = domain("peak");
    EXPECT_EQ(own->peakBytes(), 0U);

    own->deallocate(own->allocate(300), 300);
    void* const small = own->allocate(10);

    EXPECT_EQ(own->peakBytes(), 300U);
    own->deallocate(small, 10);
    EXPECT_EQ(own->peakBytes(), 300U);
}

TEST(Allocator, KeepsTheNameItWasGiven)
{
    EXPECT_EQ(domain("VETRA")->name(), "VETRA");
}

TEST(Allocator, GivesBlocksOfTheAlignmentAskedFor)
{
    const auto own = domain("aligned");

    void* const block = own->allocate(64, 4096);

    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 4096, 0U);
    own->deallocate(block, 64, 4096);
    EXPECT_EQ(own->bytes(), 0U);
}

TEST(Allocator, ChildTakesItsMemoryFromItsParent)
{
    const auto parent = domain("parent");
    const auto child = Allocator::createChild(parent, "child", 0);

    void* const block = child->allocate(50);
    EXPECT_EQ(child->bytes(), 50U);
    EXPECT_EQ(parent->bytes(), 50U);
    EXPECT_EQ(parent->liveAllocations(), 1U);

    child->deallocate(block, 50);
    EXPECT_EQ(parent->bytes(), 0U);
    EXPECT_EQ(parent->peakBytes(), 50U);
}

TEST(Allocator, ParentsOwnMemoryDoesNotShowInTheChild)
{
    const auto parent = domain("parent");
    const auto child = Allocator::createChild(parent, "child", 0);

    void* const block = parent->allocate(50);

    EXPECT_EQ(child->bytes(), 0U);
    parent->deallocate(block, 50);
}

TEST(Allocator, ChildKeepsItsParentAlive)
{
    auto parent = domain("parent");
    const std::weak_ptr<Allocator> watch = parent;
    auto child = Allocator::createChild(parent, "child", 0);

    parent.reset();
    ASSERT_FALSE(watch.expired());
    child->deallocate(child->allocate(8), 8);

    child.reset();
    EXPECT_TRUE(watch.expired());
}

TEST(Allocator, GlobalDomainIsTheSameAtEachCallAndFeedsItsChildren)
{
    const auto& global = Allocator::global();
    EXPECT_EQ(&global, &Allocator::global());
    const auto before = global->bytes();
    const auto own = domain("below global");

    void* const block = own->allocate(77);

    EXPECT_EQ(global->bytes(), before + 77);
    own->deallocate(block, 77);
    EXPECT_EQ(global->bytes(), before);
}

TEST(Allocator, IsEqualToItselfAlone)
{
    const auto one = domain("one");
    const auto other = domain("one");

    EXPECT_TRUE(one->is_equal(*one));
    EXPECT_FALSE(one->is_equal(*other));
}

TEST(Allocator, RefusedRequestLeavesTheCountersAsTheyWere)
{
    const auto own = Allocator::createChild(std::make_shared<unitTests::RefusingDomain>(),
                                            "below a refusing one", 0);

    EXPECT_THROW(own->deallocate(own->allocate(16), 16), std::bad_alloc);

    EXPECT_EQ(own->bytes(), 0U);
    EXPECT_EQ(own->peakBytes(), 0U);
    EXPECT_EQ(own->liveAllocations(), 0U);
}

TEST(Allocator, CountersAreExactWhenThreadsShareADomain)
{
    const auto own = domain("shared");
    std::vector<std::thread> threads;
    for (std::size_t size = 1; size <= 4; ++size) {
        threads.emplace_back([&own, size] {
            for (int round = 0; round < 2000; ++round)
                own->deallocate(own->allocate(size), size);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(own->bytes(), 0U);
    EXPECT_EQ(own->liveAllocations(), 0U);
    EXPECT_GE(own->peakBytes(), 4U);
    EXPECT_LE(own->peakBytes(), 1U + 2U + 3U + 4U);
}

TEST(AllocatorDeathTest, StopsTheProgramIfItEndsWhileMemoryIsHeld)
{
    EXPECT_EXIT(
        {
            auto own = domain("forgetful");
            static_cast<void>(own->allocate(12));
            static_cast<void>(own->allocate(30));
            own.reset();
        },
        testing::KilledBySignal(SIGABRT),
        MatchesRegex("vetra: fatal: allocation domain forgetful ends with 42 bytes in 2 "
                     "allocations still held \\(Allocator\\.cpp:[0-9]+\\)\n"));
}

TEST(AllocatorDeathTest, StopsTheProgramIfABlockOfNoBytesIsStillHeld)
{
    EXPECT_EXIT(
        {
            auto own = domain("empty block");
            static_cast<void>(own->allocate(0));
            own.reset();
        },
        testing::KilledBySignal(SIGABRT), testing::HasSubstr("0 bytes in 1 allocations"));
}

TEST(AllocatorDeathTest, RefusesFlags)
{
    EXPECT_EXIT(Allocator::createChild(Allocator::global(), "flagged", 1),
                testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("an allocation domain has no flags"));
}

}  // namespace
