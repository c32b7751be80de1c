#include <gtest/gtest.h>

#include "vetraTests/FSPerf/FSPerfHelper.h"
#include "vetraTests/FSPerf/ToBeDeleted.h"

namespace vetraTests {

namespace {

Basis::vector<Basis::string> parameters(std::initializer_list<const char*> words)
{
    Basis::vector<Basis::string> list(&fsperfAllocator());
    for (const char* word : words)
        list.emplace_back(word);
    return list;
}

}  // namespace

TEST(RetrieveAccessModeValue, GivesWhatStandsBehindTheFirstEqualsSign)
{
    Basis::string value("before", &fsperfAllocator());
    EXPECT_TRUE(retrieveAccessModeValue(parameters({"noise", "keys=1", "ke=2", "key=a=b", "key=c"}),
                                        "key", value));
    EXPECT_EQ(value, "a=b");
    EXPECT_TRUE(retrieveAccessModeValue(parameters({"key="}), "key", value));
    EXPECT_EQ(value, "");
    EXPECT_TRUE(retrieveAccessModeValue(parameters({"=x"}), "", value));
    EXPECT_EQ(value, "x");
}

TEST(RetrieveAccessModeValue, LeavesTheValueIfThereIsNoSuchKey)
{
    Basis::string value("before", &fsperfAllocator());
    EXPECT_FALSE(retrieveAccessModeValue(parameters({}), "key", value));
    EXPECT_FALSE(retrieveAccessModeValue(parameters({"key", "a=key", "", "KEY=1"}), "key", value));
    EXPECT_EQ(value, "before");
}

TEST(RetrieveAccessMode, TellsThreeModesOfWriting)
{
    EXPECT_EQ(retrieveAccessMode(parameters({"async_write_submit_active=off"}), true), 10);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_write_submit_active=on"}), true), 12);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_write_submit_active=auto"}), true), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_write_submit_active=ON"}), true), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_read_submit=off"}), true), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({}), true), 11);
}

TEST(RetrieveAccessMode, TellsTwoModesOfReading)
{
    EXPECT_EQ(retrieveAccessMode(parameters({"async_read_submit=off"}), false), 10);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_read_submit=on"}), false), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_read_submit=maybe"}), false), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({"async_write_submit_active=off"}), false), 11);
    EXPECT_EQ(retrieveAccessMode(parameters({}), false), 11);
}

}  // namespace vetraTests
