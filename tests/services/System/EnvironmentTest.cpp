#include "System/Environment.h"

#include <gtest/gtest.h>

#include "tests/services/support/Guards.h"

namespace {

using System::Environment;
using unitTests::EnvironmentVariable;

constexpr const char* name = "VETRA_UNIT_TEST_VARIABLE";

TEST(Environment, GivesTheValueOfAVariable)
{
    const EnvironmentVariable variable(name, "a value");

    EXPECT_STREQ(Environment::getenv(name, "fallback"), "a value");
    EXPECT_STREQ(Environment::getenv(name, nullptr), "a value");
}

TEST(Environment, GivesTheFallbackForAnUnsetVariable)
{
    const EnvironmentVariable variable(name, nullptr);

    EXPECT_STREQ(Environment::getenv(name, "fallback"), "fallback");
}

TEST(Environment, FallbackMayBeNull)
{
    const EnvironmentVariable variable(name, nullptr);

    EXPECT_EQ(Environment::getenv(name, nullptr), nullptr);
}

TEST(Environment, EmptyVariableIsSet)
{
    const EnvironmentVariable variable(name, "");

    EXPECT_STREQ(Environment::getenv(name, "fallback"), "");
}

}  // namespace
