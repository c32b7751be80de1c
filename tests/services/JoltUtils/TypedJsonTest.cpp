#include "JoltUtils/TypedJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "tests/services/support/Guards.h"

namespace {

using JoltUtils::JsonArray;
using JoltUtils::JsonObject;
using JoltUtils::JsonType;
using JoltUtils::TypedJson;

static_assert(static_cast<int>(JsonType::Boolean) == 1);
static_assert(static_cast<int>(JsonType::Number) == 2);
static_assert(static_cast<int>(JsonType::String) == 3);
static_assert(static_cast<int>(JsonType::Array) == 4);
static_assert(static_cast<int>(JsonType::Object) == 5);
static_assert(sizeof(TypedJson) == 16);
static_assert(!std::is_copy_constructible_v<TypedJson> && !std::is_copy_assignable_v<TypedJson>);
static_assert(std::is_nothrow_move_constructible_v<TypedJson>);

constexpr const char* longText = "longer than what a string keeps within itself";

class TypedJsonTest : public testing::Test {
protected:
    void TearDown() override
    {
        value.setNull();
        EXPECT_EQ(domain->bytes(), 0U);
        EXPECT_EQ(domain->liveAllocations(), 0U);
    }

    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "values", 0);
    JoltUtils::JsonAllocator allocator{*domain};
    TypedJson value;
    unitTests::NoDefaultResource guard;
};

using TypedJsonDeathTest = TypedJsonTest;

TEST_F(TypedJsonTest, IsNullAtFirst)
{
    EXPECT_EQ(value.type(), JsonType::Null);
}

TEST_F(TypedJsonTest, HoldsWhatWasSetLast)
{
    value.setBoolean(true);
    EXPECT_TRUE(value.boolean());
    value.setNumber(2.5);
    EXPECT_EQ(value.number(), 2.5);
    value.setString(longText, allocator);
    EXPECT_EQ(value.text(), longText);
    value.setArray(allocator).emplace_back().setNumber(1);
    EXPECT_EQ(value.array().at(0).number(), 1);
    value.setObject(allocator)["k"].setString(longText, allocator);
    EXPECT_EQ(value.object().at("k").text(), longText);
    value.setNull();
    EXPECT_EQ(value.type(), JsonType::Null);
}

TEST_F(TypedJsonTest, SettingAnewGivesBackWhatWasHeld)
{
    value.setArray(allocator).emplace_back().setString(longText, allocator);
    EXPECT_GT(domain->liveAllocations(), 2U);

    value.setBoolean(false);

    EXPECT_EQ(domain->bytes(), 0U);
}

TEST_F(TypedJsonTest, StringMayHoldNulBytes)
{
    value.setString(std::string_view("a\0b", 3), allocator);

    EXPECT_EQ(value.text().size(), 3U);
}

TEST_F(TypedJsonTest, MoveTakesEachTypeAndLeavesNull)
{
    TypedJson source[5];
    source[0].setBoolean(true);
    source[1].setNumber(4);
    source[2].setString(longText, allocator);
    source[3].setArray(allocator).emplace_back().setNumber(1);
    source[4].setObject(allocator)["k"].setNumber(2);
    const auto before = domain->liveAllocations();

    TypedJson target[5] = {std::move(source[0]), std::move(source[1]), std::move(source[2]),
                           std::move(source[3]), std::move(source[4])};

    EXPECT_EQ(domain->liveAllocations(), before);
    EXPECT_TRUE(target[0].boolean());
    EXPECT_EQ(target[1].number(), 4);
    EXPECT_EQ(target[2].text(), longText);
    EXPECT_EQ(target[3].array().size(), 1U);
    EXPECT_EQ(target[4].object().size(), 1U);
    for (const TypedJson& emptied : source)
        EXPECT_EQ(emptied.type(), JsonType::Null);
}

TEST_F(TypedJsonTest, MoveAssignmentGivesBackWhatTheTargetHeld)
{
    TypedJson source;
    source.setString(longText, allocator);
    value.setArray(allocator).emplace_back().setString(longText, allocator);

    value = std::move(source);

    EXPECT_EQ(value.text(), longText);
    EXPECT_EQ(domain->liveAllocations(), 2U);
}

TEST_F(TypedJsonTest, MoveToItselfChangesNothing)
{
    value.setString(longText, allocator);
    TypedJson& same = value;

    value = std::move(same);

    EXPECT_EQ(value.text(), longText);
}

TEST_F(TypedJsonTest, MovedElementsOfAGrowingArrayAreNotLost)
{
    JsonArray& list = value.setArray(allocator);
    for (int i = 0; i < 100; ++i)
        list.emplace_back().setString(longText, allocator);

    for (const TypedJson& element : value.array())
        EXPECT_EQ(element.text(), longText);
}

TEST_F(TypedJsonTest, ContainersOfAContainerStandInItsDomain)
{
    JsonObject& object = value.setObject(allocator);
    JsonArray& list = object["list"].setArray(allocator);

    EXPECT_EQ(object.get_allocator().resource(), domain.get());
    EXPECT_EQ(object.begin()->first.get_allocator().resource(), domain.get());
    EXPECT_EQ(list.get_allocator().resource(), domain.get());
}

/// Asks the value for every type but the one that it holds.
void expectStop(const TypedJson& value)
{
    const std::pair<const char*, void (*)(const TypedJson&)> questions[] = {
        {"a boolean", [](const TypedJson& asked) { asked.boolean(); }},
        {"a number", [](const TypedJson& asked) { asked.number(); }},
        {"a string", [](const TypedJson& asked) { asked.text(); }},
        {"an array", [](const TypedJson& asked) { asked.array(); }},
        {"an object", [](const TypedJson& asked) { asked.object(); }},
    };
    int type = static_cast<int>(JsonType::Boolean);
    for (const auto& [name, ask] : questions) {
        if (static_cast<int>(value.type()) != type++) {
            EXPECT_EXIT(ask(value), testing::KilledBySignal(SIGABRT),
                        testing::HasSubstr(std::string("vetra: fatal: the JSON value is ") + name +
                                           " (TypedJson.cpp:"));
        }
    }
}

TEST_F(TypedJsonDeathTest, AskingANullForAnythingStopsTheProgram)
{
    expectStop(value);
}

TEST_F(TypedJsonDeathTest, AskingANumberForAnotherTypeStopsTheProgram)
{
    value.setNumber(1);
    expectStop(value);
}

TEST_F(TypedJsonDeathTest, AskingABooleanForAnotherTypeStopsTheProgram)
{
    value.setBoolean(true);
    expectStop(value);
}

TEST_F(TypedJsonDeathTest, AskingAStringForAnotherTypeStopsTheProgram)
{
    value.setString("x", allocator);
    expectStop(value);
}

TEST_F(TypedJsonDeathTest, AskingAnArrayForAnotherTypeStopsTheProgram)
{
    value.setArray(allocator);
    expectStop(value);
}

TEST_F(TypedJsonDeathTest, AskingAnObjectForAnotherTypeStopsTheProgram)
{
    value.setObject(allocator);
    expectStop(value);
}

}  // namespace
