#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "Version/Version.h"
#include "impl/vetra.h"
#include "tests/services/support/CapturedOutput.h"
#include "vetraTests/LandscapeTest.h"

namespace {

const char* versionOfBuild = nullptr;
const char* dateOfBuild = nullptr;

}  // namespace

// These stand in for those of the Version library, which the linker then leaves out.
const char* zdbver_version()
{
    return versionOfBuild;
}

const char* zdbver_compiledate()
{
    return dateOfBuild;
}

namespace {

class NullVersionTest : public testing::Test {
protected:
    std::string versionLine(const char* version, const char* date)
    {
        versionOfBuild = version;
        dateOfBuild = date;
        unitTests::CapturedOutput output;
        Vetra::vetraVersion();
        isStreamGood = std::cout.good();
        return output.text();
    }
    std::string versionOfTest(const char* version, const char* date)
    {
        versionOfBuild = version;
        dateOfBuild = date;
        const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "test", 0);
        return std::string(vetraTests::EvalOS(*domain).getTestVersion());
    }

    bool isStreamGood = false;
};

TEST_F(NullVersionTest, BothGivenMakeAWholeLine)
{
    EXPECT_EQ(versionLine("1.2", "2020-01-02"), "vetra-1.2 (2020-01-02)\n");
    EXPECT_TRUE(isStreamGood);
}

// A null text sets the stream's error state, which nobody checks; from there on nothing is printed.
TEST_F(NullVersionTest, NullVersionSetsTheErrorStateOfTheStream)
{
    EXPECT_EQ(versionLine(nullptr, "2020-01-02"), "vetra-");
    EXPECT_FALSE(isStreamGood);
}

TEST_F(NullVersionTest, NullDateSetsTheErrorStateOfTheStream)
{
    EXPECT_EQ(versionLine("1.2", nullptr), "vetra-1.2 (");
    EXPECT_FALSE(isStreamGood);
}

TEST_F(NullVersionTest, BothNullDoNoHarm)
{
    EXPECT_EQ(versionLine(nullptr, nullptr), "vetra-");
    EXPECT_FALSE(isStreamGood);
}

TEST_F(NullVersionTest, TestOfTheHostHasAVersionTextAllTheSame)
{
    EXPECT_EQ(versionOfTest("1.2", "2020-01-02"), "evalOS-1.2 (2020-01-02)");
    EXPECT_EQ(versionOfTest(nullptr, "2020-01-02"), "evalOS-");
    EXPECT_EQ(versionOfTest("1.2", nullptr), "evalOS-1.2 (");
}

}  // namespace
