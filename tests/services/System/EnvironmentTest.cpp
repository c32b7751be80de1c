#include "System/Environment.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <iostream>

#include "tests/services/support/ChildProcess.h"
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

TEST(EnvironmentOfCommands, LacksWhatWouldSteerThem)
{
    const char* const steering[] = {"LD_PRELOAD_X", "LD_", "GREP_OPTIONS", "GREP_COLOR",
                                    "BASH_ENV",     "ENV", "CDPATH"};
    const char* const harmless[] = {"LDX", "GREPX", "ENVIRONMENT", "MY_LD_PATH", "BASH", "cdpath"};
    const auto end = unitTests::inChild([&] {
        for (const char* variable : steering)
            ::setenv(variable, "x", 1);
        for (const char* variable : harmless)
            ::setenv(variable, "x", 1);
        Environment::dropWhatSteersCommands();
        for (const char* variable : steering)
            std::cout << (std::getenv(variable) ? variable : "");
        for (const char* variable : harmless)
            std::cout << (std::getenv(variable) ? "+" : variable);
        std::cout << std::flush;
    });
    EXPECT_EQ(end.output, "++++++");
}

}  // namespace
