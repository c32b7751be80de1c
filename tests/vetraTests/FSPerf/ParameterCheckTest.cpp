#include <gtest/gtest.h>

#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

struct Check {
    bool matches = false;
    Printed printed;
};

Check check(const char* config, std::string_view word)
{
    Check result;
    const OpenHandler handler;
    result.printed =
        printedBy([&] { result.matches = handler.checkFileIOParam(config, text(word)); });
    return result;
}

// A word that is refused without a message.
void expectSilentlyRefused(const char* config, std::string_view word)
{
    const Check result = check(config, word);
    EXPECT_FALSE(result.matches) << config << " " << word;
    EXPECT_EQ(result.printed.output + result.printed.errors, "") << config << " " << word;
}

void expectAccepted(const char* config, std::string_view word)
{
    const Check result = check(config, word);
    EXPECT_TRUE(result.matches) << config << " " << word;
    EXPECT_EQ(result.printed.output + result.printed.errors, "") << config << " " << word;
}

std::string numberMessage(const std::string& value, const std::string& word)
{
    return "Parameter value \"" + value +
           "\" in file factory does not match specified\n"
           "value for parameter \"" +
           word + "\"\n";
}

void expectNumberMessage(const char* config, const std::string& word, const std::string& value)
{
    const Check result = check(config, word);
    EXPECT_FALSE(result.matches) << config << " " << word;
    EXPECT_EQ(result.printed.errors, numberMessage(value, word));
    EXPECT_EQ(result.printed.output, "");
}

void expectTextMessage(const char* config, const std::string& word, const std::string& value)
{
    const Check result = check(config, word);
    EXPECT_FALSE(result.matches) << config << " " << word;
    EXPECT_EQ(result.printed.errors,
              "Parameter value\n\n" + value +
                  "\n\nin file factory does not match specified value for parameter!\n"
                  "Parameter is specified as:\n\n" +
                  word + "\n");
    EXPECT_EQ(result.printed.output, "");
}

class ConfigCheck : public testing::Test {
protected:
    bool run()
    {
        bool succeeded = false;
        printed = printedBy([&] {
            OpenHandler handler;
            succeeded = handler.init(options);
        });
        return succeeded;
    }

    FakeFileLayer layer;
    TestOptions options;
    Printed printed;
};

}  // namespace

TEST(IsInteger, IsATextOfDigits)
{
    const OpenHandler handler;
    for (const char* digits : {"", "0", "01", "18446744073709551616"})
        EXPECT_TRUE(handler.isInteger(text(digits))) << digits;
    for (const char* other : {"on", "1 ", " 1", "+1", "-1", "1.0", "0x1", "1K"})
        EXPECT_FALSE(handler.isInteger(text(other))) << other;
}

TEST(CheckFileIOParam, RefusesAWordWithoutEqualsSign)
{
    expectSilentlyRefused("num=1", "num");
    expectSilentlyRefused("num=1", "");
}

TEST(CheckFileIOParam, RefusesAKeyThatIsNotThere)
{
    expectSilentlyRefused("num_submit_queues=1", "no_such_key=1");
    expectSilentlyRefused("", "num=1");
    expectSilentlyRefused("num", "num=1");
}

TEST(CheckFileIOParam, RefusesTheTailOfALongerKey)
{
    expectSilentlyRefused("num_submit_queues=1", "queues=1");
    expectSilentlyRefused("a=1,num_submit_queues=1", "submit_queues=1");
    expectSilentlyRefused("ab#num=1", "num=1");
}

TEST(CheckFileIOParam, RefusesTheBeginningOfALongerKey)
{
    expectSilentlyRefused("num_submit_queues=1", "num=1");
    expectSilentlyRefused("num_submit_queues=1", "num_submit=1");
}

TEST(CheckFileIOParam, FindsAKeyWhereAWordBegins)
{
    expectAccepted("num=1", "num=1");
    expectAccepted("#num=1", "num=1");
    expectAccepted("xnum=1", "num=1");
    expectAccepted("a=2,num=1", "num=1");
    expectAccepted("a=2,#num=1,b=3", "num=1");
}

TEST(CheckFileIOParam, SearchesOnBehindAHitThatDoesNotCount)
{
    expectAccepted("max_num=7,num_x=8,num=1", "num=1");
    expectAccepted("abaa=2,ab_aba=3,aba=4", "aba=4");
    expectAccepted("aaa=5", "aa=5");
    expectAccepted("a,a,a=5", "a,a=5");
}

TEST(CheckFileIOParam, EmptyKeyEndsTheSearch)
{
    expectSilentlyRefused("num=1,b=2", "=1");
    expectSilentlyRefused("", "=");
    expectAccepted("a,=5", "=5");
}

TEST(CheckFileIOParam, ValueRunsToTheCommaOrTheEnd)
{
    expectAccepted("mode=on,b=off", "mode=on");
    expectAccepted("b=off,mode=on", "mode=on");
    expectTextMessage("mode=on,b=off", "mode=o", "on");
}

TEST(CheckFileIOParam, ValueOfTheWordRunsBehindItsFirstEqualsSign)
{
    expectAccepted("mode=a=b", "mode=a=b");
    expectTextMessage("mode=a", "mode=a=b", "a");
}

TEST(CheckFileIOParam, ComparesIntegersAsNumbers)
{
    expectAccepted("num_submit_queues=1", "num_submit_queues=01");
    expectAccepted("num_submit_queues=001", "num_submit_queues=1");
    expectAccepted("n=18446744073709551615", "n=00018446744073709551615");
    expectAccepted("n=0", "n=");
    expectAccepted("n=0", "n=000000000000000000000000000000");
}

TEST(CheckFileIOParam, NamesANumberThatDoesNotMatch)
{
    expectNumberMessage("num_submit_queues=16", "num_submit_queues=17", "16");
    expectNumberMessage("num_submit_queues=0016", "num_submit_queues=17", "16");
    expectNumberMessage("num_submit_queues=16", "num_submit_queues=", "16");
}

TEST(CheckFileIOParam, NumberBeyond64BitsCountsAsTheLargest)
{
    const std::string huge = "n=18446744073709551616";
    expectAccepted("n=18446744073709551615", huge);
    expectNumberMessage("n=0", huge, "0");
    expectAccepted("n=18446744073709551616", huge);
    expectNumberMessage("n=5", "n=" + std::string(100000, '9'), "5");
}

TEST(CheckFileIOParam, AgainstANumberOnlyTheDigitsAtTheBeginningOfATextCount)
{
    expectAccepted("mode=on", "mode=0");
    expectAccepted("mode=on", "mode=");
    expectAccepted("mode=64K", "mode=64");
    expectAccepted("mode=", "mode=0");
    expectNumberMessage("mode=on", "mode=1", "0");
    expectNumberMessage("mode=64K", "mode=65", "64");
}

TEST(CheckFileIOParam, ComparesTextsWithTheirCase)
{
    expectAccepted("async_read_submit=on", "async_read_submit=on");
    expectTextMessage("async_read_submit=on", "async_read_submit=off", "on");
    expectTextMessage("async_read_submit=on", "async_read_submit=On", "on");
    expectTextMessage("async_read_submit=on", "async_read_submit=on ", "on");
    expectTextMessage("n=5", "n=5K", "5");
}

TEST_F(ConfigCheck, AcceptsWhatIsInForce)
{
    layer.configuration = "num_submit_queues=2,async_read_submit=off";
    options.parameter("async_read_submit=off").parameter("num_submit_queues=02");

    EXPECT_TRUE(run());

    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(ConfigCheck, EndsAtTheFirstParameterThatDoesNotMatch)
{
    layer.configuration = "a=1,b=2,c=3";
    options.parameter("a=1").parameter("b=7").parameter("c=8");

    EXPECT_FALSE(run());

    EXPECT_EQ(printed.errors, numberMessage("2", "b=7") + "ERROR: Parameter check failed!\n");
}

TEST_F(ConfigCheck, DoesNotCompareTheEnginesDefaults)
{
    layer.configuration = "num_submit_queues=16";

    EXPECT_TRUE(run());
}

TEST_F(ConfigCheck, RefusesAFactoryWithoutConfigurationOnlyIfSomethingWasSet)
{
    layer.configuration.clear();
    EXPECT_TRUE(run());

    options.parameter("a=1");
    EXPECT_FALSE(run());

    EXPECT_EQ(printed.errors,
              "Configuration parameter string empty although parameters set!\n"
              "ERROR: Parameter check failed!\n");
}

TEST_F(ConfigCheck, TakesAFactoryWithoutStatisticsForOneWithoutConfiguration)
{
    layer.keepsStatistics = false;
    EXPECT_TRUE(run());

    options.parameter("a=1");
    EXPECT_FALSE(run());

    EXPECT_EQ(printed.errors,
              "Configuration parameter string empty although parameters set!\n"
              "ERROR: Parameter check failed!\n");
}

TEST_F(ConfigCheck, ShowsTheConfigurationWhenTalkative)
{
    layer.configuration = "a=1,b=2";
    for (const OutputType type : {OutputType::VERBOSE, OutputType::FULL}) {
        options.output(type);
        EXPECT_TRUE(run());
        EXPECT_EQ(printed.output, "The configuration parameters set are:\n   a=1,b=2\n\n");
    }
    for (const OutputType type : {OutputType::SHORT, OutputType::JSON, OutputType::JSON_SHORT}) {
        options.output(type);
        EXPECT_TRUE(run());
        EXPECT_EQ(printed.output, "");
    }
}

TEST_F(ConfigCheck, ShowsTheConfigurationBeforeItIsRefused)
{
    layer.configuration.clear();
    options.output(OutputType::VERBOSE).parameter("a=1");

    EXPECT_FALSE(run());

    EXPECT_EQ(printed.output, "The configuration parameters set are:\n   \n\n");
}

TEST_F(ConfigCheck, KeepsTheFirst1023CharactersOfTheConfiguration)
{
    layer.configuration = "a=" + std::string(1020, 'x') + "yz";  // 1024
    options.output(OutputType::VERBOSE).parameter(("a=" + std::string(1020, 'x') + "y").c_str());

    EXPECT_TRUE(run());

    EXPECT_EQ(printed.output,
              "The configuration parameters set are:\n   a=" + std::string(1020, 'x') + "y\n\n");
}

}  // namespace vetraTests
