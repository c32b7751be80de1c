#include "Configuration/TempConfiguration.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "Configuration/ConfigurationHandler.h"
#include "tests/services/support/Guards.h"

namespace {

using Configuration::ConfigurationHandler;
using Configuration::TempConfiguration;

class TempConfigurationTest : public testing::Test {
protected:
    // What is in force; "(not set)" if nothing is.
    std::string valueOf(std::string_view section, std::string_view key) const
    {
        const ConfigurationHandler& handler = configuration;
        Basis::string value("(untouched)", domain.get());
        const bool isSet = handler.getParameterValue(section, key, value);
        if (!isSet)
            return value == "(untouched)" ? "(not set)" : "(not set, but touched)";
        return std::string(value);
    }
    void set(std::string_view section, std::string_view key, std::string_view value)
    {
        configuration.setParameterValue(section, key, nullptr, value);
    }

    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "configuration", 0);
    TempConfiguration configuration{*domain, "fsperf", nullptr};
};

TEST_F(TempConfigurationTest, HasTheNameOfItsOwner)
{
    EXPECT_EQ(configuration.name(), "fsperf");
}

TEST_F(TempConfigurationTest, HasNoParametersAtFirst)
{
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "(not set)");

    configuration.reconfigure();
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "(not set)");
}

TEST_F(TempConfigurationTest, PutsAllValuesInForceAtOnce)
{
    set("fileio", "num_submit_queues", "2");
    set("fileio", "async_read_submit", "off");
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "(not set)");

    configuration.reconfigure();
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "2");
    EXPECT_EQ(valueOf("fileio", "async_read_submit"), "off");
}

TEST_F(TempConfigurationTest, KeepsTheOldValueInForceUntilTheNextReconfigure)
{
    set("fileio", "num_submit_queues", "2");
    configuration.reconfigure();

    set("fileio", "num_submit_queues", "3");
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "2");

    configuration.reconfigure();
    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "3");
}

TEST_F(TempConfigurationTest, TakesTheLastOfSeveralValues)
{
    for (const char* value : {"1", "22", ""})
        set("fileio", "num_submit_queues", value);
    configuration.reconfigure();

    EXPECT_EQ(valueOf("fileio", "num_submit_queues"), "");
}

TEST_F(TempConfigurationTest, KeepsSectionsAndKeysApart)
{
    set("fileio", "key", "one");
    set("network", "key", "two");
    set("fileio", "Key", "three");
    set("", "key", "four");
    configuration.reconfigure();

    EXPECT_EQ(valueOf("fileio", "key"), "one");
    EXPECT_EQ(valueOf("network", "key"), "two");
    EXPECT_EQ(valueOf("fileio", "Key"), "three");
    EXPECT_EQ(valueOf("", "key"), "four");
    EXPECT_EQ(valueOf("network", "Key"), "(not set)");
    EXPECT_EQ(valueOf("file", "key"), "(not set)");
    EXPECT_EQ(valueOf("fileio", "ke"), "(not set)");
}

TEST_F(TempConfigurationTest, WritesNumbersInDecimal)
{
    configuration.setParameterValue("fileio", "least", nullptr, std::uint64_t{0});
    configuration.setParameterValue("fileio", "most", nullptr,
                                    std::numeric_limits<std::uint64_t>::max());
    configuration.reconfigure();

    EXPECT_EQ(valueOf("fileio", "least"), "0");
    EXPECT_EQ(valueOf("fileio", "most"), "18446744073709551615");
}

TEST_F(TempConfigurationTest, KeepsAnyBytes)
{
    const std::string value("a\0b\n \xff", 6);
    set("fileio", "key", value);
    configuration.reconfigure();

    EXPECT_EQ(valueOf("fileio", "key"), value);
}

TEST_F(TempConfigurationTest, ForgetsAllWhenItIsCleared)
{
    set("fileio", "inForce", "1");
    configuration.reconfigure();
    set("fileio", "stored", "2");

    configuration.clear();
    EXPECT_EQ(valueOf("fileio", "inForce"), "(not set)");

    configuration.reconfigure();
    EXPECT_EQ(valueOf("fileio", "inForce"), "(not set)");
    EXPECT_EQ(valueOf("fileio", "stored"), "(not set)");
}

TEST_F(TempConfigurationTest, TakesValuesAgainAfterItWasCleared)
{
    configuration.clear();
    set("fileio", "key", "value");
    configuration.reconfigure();

    EXPECT_EQ(valueOf("fileio", "key"), "value");
}

TEST(TempConfiguration, TakesAllItsMemoryFromItsOwnersDomain)
{
    const auto domain = Basis::Allocator::createChild(Basis::Allocator::global(), "owner", 0);
    const std::string text(100, 'x');
    {
        const unitTests::NoDefaultResource guard;
        TempConfiguration configuration(*domain, text.c_str(), nullptr);
        configuration.setParameterValue(text, text, nullptr, std::string_view(text));
        configuration.setParameterValue(text, "number", nullptr, std::uint64_t{7});
        configuration.reconfigure();
        Basis::string value(domain.get());

        EXPECT_TRUE(configuration.getParameterValue(text, text, value));
        EXPECT_EQ(std::string(value), text);
        EXPECT_GT(domain->liveAllocations(), 0U);
    }
    EXPECT_EQ(domain->liveAllocations(), 0U);
}

TEST(TempConfiguration, IsIndependentOfOthers)
{
    Basis::Allocator& domain = *Basis::Allocator::global();
    TempConfiguration first(domain, "first", nullptr);
    TempConfiguration second(domain, "second", nullptr);
    first.setParameterValue("fileio", "key", nullptr, std::string_view("value"));
    first.reconfigure();
    second.reconfigure();
    Basis::string value(&domain);

    EXPECT_TRUE(first.getParameterValue("fileio", "key", value));
    EXPECT_FALSE(second.getParameterValue("fileio", "key", value));
}

TEST(TempConfigurationDeathTest, RefusesWhatIsReserved)
{
    Basis::Allocator& domain = *Basis::Allocator::global();
    TempConfiguration configuration(domain, "test", nullptr);

    EXPECT_DEATH(TempConfiguration(domain, "test", "second"), "has one name");
    EXPECT_DEATH(
        configuration.setParameterValue("fileio", "key", "layer", std::string_view("value")),
        "has one layer");
    EXPECT_DEATH(configuration.setParameterValue("fileio", "key", "layer", std::uint64_t{1}),
                 "has one layer");
}

}  // namespace
