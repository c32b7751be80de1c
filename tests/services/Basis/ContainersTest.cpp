#include "Basis/Containers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tests/services/support/Guards.h"

namespace {

using Basis::Allocator;

constexpr std::string_view longText = "longer than what a string keeps within itself";

class Containers : public testing::Test {
protected:
    void TearDown() override
    {
        EXPECT_EQ(own->bytes(), 0U);
        EXPECT_EQ(own->liveAllocations(), 0U);
    }

    std::shared_ptr<Allocator> own = Allocator::createChild(Allocator::global(), "containers", 0);
    unitTests::NoDefaultResource guard;
};

TEST_F(Containers, StringTakesItsTextFromItsDomain)
{
    const Basis::string text(longText, own.get());

    EXPECT_EQ(text, longText);
    EXPECT_GT(own->bytes(), longText.size());
}

TEST_F(Containers, CopyThatNamesItsDomainNeedsNoDefaultResource)
{
    const Basis::string text(longText, own.get());

    const Basis::string copy(text, own.get());

    EXPECT_EQ(copy, longText);
    EXPECT_EQ(own->liveAllocations(), 2U);
}

TEST_F(Containers, ElementsTakeTheDomainOfTheirVector)
{
    Basis::vector<Basis::string> list(own.get());

    list.emplace_back(longText);

    EXPECT_EQ(list.front().get_allocator().resource(), own.get());
    EXPECT_EQ(own->liveAllocations(), 2U);
}

TEST_F(Containers, KeysAndValuesTakeTheDomainOfTheirMap)
{
    Basis::map<Basis::string, Basis::string> facts(own.get());
    Basis::multimap<Basis::string, Basis::string> outcomes(own.get());

    facts.emplace(longText, longText);
    outcomes.emplace(longText, longText);
    outcomes.emplace(longText, longText);

    EXPECT_EQ(facts.begin()->first.get_allocator().resource(), own.get());
    EXPECT_EQ(facts.begin()->second.get_allocator().resource(), own.get());
    EXPECT_EQ(outcomes.size(), 2U);
    EXPECT_EQ(outcomes.begin()->second.get_allocator().resource(), own.get());
}

TEST_F(Containers, StringKeysOrderByBytesAndShorterOnesFirst)
{
    Basis::map<Basis::string, int> keys(own.get());
    for (const char* key : {"b", "ab", "\xc3\xa9", "a", "B", "_"})
        keys.emplace(key, 0);

    std::string order;
    for (const auto& [key, ignored] : keys)
        order.append(key).append(" ");

    EXPECT_EQ(order, "B _ a ab b \xc3\xa9 ");
}

TEST_F(Containers, StreamAndItsTextStayInTheDomain)
{
    Basis::ostringstream stream = Basis::outputStream(*own);

    stream << longText << ' ' << 1.5 << ' ' << std::int64_t{42};
    const Basis::string text = stream.str();

    EXPECT_EQ(std::string_view(text), std::string(longText) + " 1.5 42");
    EXPECT_EQ(text.get_allocator().resource(), own.get());
}

TEST_F(Containers, ReferenceCountAndObjectStandInOneBlockOfTheDomain)
{
    const auto number = std::allocate_shared<int>(std::pmr::polymorphic_allocator<int>(own.get()));

    EXPECT_EQ(*number, 0);
    EXPECT_EQ(own->liveAllocations(), 1U);
}

}  // namespace
