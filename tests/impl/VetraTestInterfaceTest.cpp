#include "VetraTestInterface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Basis::string;
using Contract = Vetra::VetraTestInterface;

static_assert(std::is_abstract_v<Contract>);
static_assert(std::has_virtual_destructor_v<Contract>);
static_assert(sizeof(Contract) == sizeof(void*), "the contract has no data of its own");

static_assert(std::is_same_v<decltype(&Contract::getTestName), string (Contract::*)() const>);
static_assert(std::is_same_v<decltype(&Contract::getTestVersion), string (Contract::*)() const>);
static_assert(std::is_same_v<decltype(&Contract::getTestUsage), string (Contract::*)() const>);
static_assert(
    std::is_same_v<decltype(&Contract::getDefaultTestConfig), string (Contract::*)() const>);
static_assert(std::is_same_v<decltype(&Contract::setTestTrigger), void (Contract::*)(string&)>);
static_assert(std::is_same_v<decltype(&Contract::getTestTrigger), string (Contract::*)() const>);
static_assert(std::is_same_v<decltype(&Contract::setTestConfig), void (Contract::*)(string&)>);
static_assert(std::is_same_v<decltype(&Contract::getTestConfig), string (Contract::*)() const>);
static_assert(
    std::is_same_v<decltype(&Contract::getTestEstimatedDuration), std::int64_t (Contract::*)()>);
static_assert(
    std::is_same_v<decltype(&Contract::getTestProgressPercentage), float (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::setUp), void (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::tearDown), void (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::interruptTest), std::int32_t (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::runTest), std::int32_t (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::setTestResult), void (Contract::*)(bool)>);
static_assert(std::is_same_v<decltype(&Contract::getTestResult), bool (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::getTestJsonResult), string (Contract::*)()>);
static_assert(
    std::is_same_v<decltype(&Contract::getTestHumanReadableResult), string (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::Destroy), void (Contract::*)()>);
static_assert(
    std::is_same_v<decltype(&Contract::setTestOutputLocation), void (Contract::*)(string&)>);
static_assert(std::is_same_v<decltype(&Contract::getTestOutputLocation), string (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::setTestHost), void (Contract::*)(string&)>);
static_assert(std::is_same_v<decltype(&Contract::getTestHost), string (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::setTestContactInfo), void (Contract::*)(string&)>);
static_assert(std::is_same_v<decltype(&Contract::getTestContactInfo), string (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::notifyTestStatus), void (Contract::*)()>);
static_assert(std::is_same_v<decltype(&Contract::postTestAction), void (Contract::*)()>);

// A pointer to a virtual member holds, in the common C++ ABI, one more than the offset of its entry
// in the table of virtual functions, and no adjustment in a class with one table.
template <class Member>
std::size_t virtualIndex(Member member)
{
    struct {
        std::size_t offsetPlusOne;
        std::size_t adjustment;
    } parts{};
    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
    EXPECT_EQ(parts.offsetPlusOne % sizeof(void*), 1U) << "not a virtual member";
    EXPECT_EQ(parts.adjustment, 0U);
    return (parts.offsetPlusOne - 1) / sizeof(void*);
}

// The destructor, the first operation, has the entries 0 and 1, so that the number of every further
// operation is its index.
TEST(VetraTestInterface, OperationsStandInTheirOrder)
{
    EXPECT_EQ(virtualIndex(&Contract::getTestName), 2U);
    EXPECT_EQ(virtualIndex(&Contract::getTestVersion), 3U);
    EXPECT_EQ(virtualIndex(&Contract::getTestUsage), 4U);
    EXPECT_EQ(virtualIndex(&Contract::getDefaultTestConfig), 5U);
    EXPECT_EQ(virtualIndex(&Contract::setTestTrigger), 6U);
    EXPECT_EQ(virtualIndex(&Contract::getTestTrigger), 7U);
    EXPECT_EQ(virtualIndex(&Contract::setTestConfig), 8U);
    EXPECT_EQ(virtualIndex(&Contract::getTestConfig), 9U);
    EXPECT_EQ(virtualIndex(&Contract::getTestEstimatedDuration), 10U);
    EXPECT_EQ(virtualIndex(&Contract::getTestProgressPercentage), 11U);
    EXPECT_EQ(virtualIndex(&Contract::setUp), 12U);
    EXPECT_EQ(virtualIndex(&Contract::tearDown), 13U);
    EXPECT_EQ(virtualIndex(&Contract::interruptTest), 14U);
    EXPECT_EQ(virtualIndex(&Contract::runTest), 15U);
    EXPECT_EQ(virtualIndex(&Contract::setTestResult), 16U);
    EXPECT_EQ(virtualIndex(&Contract::getTestResult), 17U);
    EXPECT_EQ(virtualIndex(&Contract::getTestJsonResult), 18U);
    EXPECT_EQ(virtualIndex(&Contract::getTestHumanReadableResult), 19U);
    EXPECT_EQ(virtualIndex(&Contract::Destroy), 20U);
    EXPECT_EQ(virtualIndex(&Contract::setTestOutputLocation), 21U);
    EXPECT_EQ(virtualIndex(&Contract::getTestOutputLocation), 22U);
    EXPECT_EQ(virtualIndex(&Contract::setTestHost), 23U);
    EXPECT_EQ(virtualIndex(&Contract::getTestHost), 24U);
    EXPECT_EQ(virtualIndex(&Contract::setTestContactInfo), 25U);
    EXPECT_EQ(virtualIndex(&Contract::getTestContactInfo), 26U);
    EXPECT_EQ(virtualIndex(&Contract::notifyTestStatus), 27U);
    EXPECT_EQ(virtualIndex(&Contract::postTestAction), 28U);
}

/// Notes the number of each operation that is called.
class RecordingTest : public Contract {
public:
    explicit RecordingTest(std::vector<int>& calls) : noted(calls) {}
    ~RecordingTest() override { noted.push_back(1); }

    string getTestName() const override { return note(2); }
    string getTestVersion() const override { return note(3); }
    string getTestUsage() const override { return note(4); }
    string getDefaultTestConfig() const override { return note(5); }
    void setTestTrigger(string&) override { note(6); }
    string getTestTrigger() const override { return note(7); }
    void setTestConfig(string&) override { note(8); }
    string getTestConfig() const override { return note(9); }
    std::int64_t getTestEstimatedDuration() override { return number(10); }
    float getTestProgressPercentage() override { return static_cast<float>(number(11)); }
    void setUp() override { note(12); }
    void tearDown() override { note(13); }
    std::int32_t interruptTest() override { return number(14); }
    std::int32_t runTest() override { return number(15); }
    void setTestResult(bool) override { note(16); }
    bool getTestResult() override { return number(17) != 0; }
    string getTestJsonResult() override { return note(18); }
    string getTestHumanReadableResult() override { return note(19); }
    void Destroy() override { note(20); }
    void setTestOutputLocation(string&) override { note(21); }
    string getTestOutputLocation() override { return note(22); }
    void setTestHost(string&) override { note(23); }
    string getTestHost() override { return note(24); }
    void setTestContactInfo(string&) override { note(25); }
    string getTestContactInfo() override { return note(26); }
    void notifyTestStatus() override { note(27); }
    void postTestAction() override { note(28); }

private:
    string note(int operation) const
    {
        noted.push_back(operation);
        return {};
    }
    int number(int operation)
    {
        note(operation);
        return operation;
    }

    std::vector<int>& noted;
};

void** tableOf(Contract& test)
{
    void** table = nullptr;
    std::memcpy(&table, static_cast<void*>(&test), sizeof table);
    return table;
}

template <class Function, class... Arguments>
auto callEntry(Contract& test, std::size_t index, Arguments&&... arguments)
{
    Function* function = nullptr;
    void* const entry = tableOf(test)[index];
    std::memcpy(&function, &entry, sizeof function);
    return function(&test, std::forward<Arguments>(arguments)...);
}

// Behind the interface's back: what a caller with nothing but the order of the table would reach.
TEST(VetraTestInterface, EntriesOfTheTableReachTheOperationOfTheirNumber)
{
    std::vector<int> calls;
    RecordingTest test(calls);
    string text;
    std::vector<int> expected;
    for (int index = 2; index <= 28; ++index) {
        expected.push_back(index);
        const auto entry = static_cast<std::size_t>(index);
        if (index == 6 || index == 8 || index == 21 || index == 23 || index == 25)
            callEntry<void(Contract*, string&)>(test, entry, text);
        else if (index == 16)
            callEntry<void(Contract*, bool)>(test, entry, true);
        else if (index == 10 || index == 14 || index == 15)
            EXPECT_EQ(callEntry<int(Contract*)>(test, entry), index);
        else if (index == 11)
            EXPECT_EQ(callEntry<float(Contract*)>(test, entry), 11.0F);
        else if (index == 17)
            EXPECT_TRUE(callEntry<bool(Contract*)>(test, entry));
        else if (index == 12 || index == 13 || index == 20 || index >= 27)
            callEntry<void(Contract*)>(test, entry);
        else
            EXPECT_EQ(callEntry<string(Contract*)>(test, entry), "");
    }

    EXPECT_EQ(calls, expected);
}

TEST(VetraTestInterface, FirstEntryDestroysInPlace)
{
    std::vector<int> calls;
    alignas(RecordingTest) std::byte place[sizeof(RecordingTest)];
    auto* test = new (place) RecordingTest(calls);

    callEntry<void(Contract*)>(*test, 0);

    EXPECT_EQ(calls, std::vector<int>{1});
}

TEST(VetraTestInterface, SecondEntryDestroysAndGivesTheMemoryBack)
{
    std::vector<int> calls;
    Contract* const test = new RecordingTest(calls);

    callEntry<void(Contract*)>(*test, 1);

    EXPECT_EQ(calls, std::vector<int>{1});
}

TEST(TestMap, OrdersTestsByTheirIds)
{
    std::vector<int> calls;
    Vetra::TestMap tests;
    for (const double id : {2.0, 1.5, -1.0, 10.0})
        tests.emplace(id, std::make_shared<RecordingTest>(calls));

    std::vector<double> order;
    for (const auto& [id, test] : tests)
        order.push_back(id);

    EXPECT_THAT(order, testing::ElementsAre(-1.0, 1.5, 2.0, 10.0));
}

}  // namespace
