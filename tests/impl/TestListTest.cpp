#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "JoltUtils/Json.h"
#include "impl/UserConfig.h"
#include "tests/impl/DriverTest.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using Vetra::TestConfig;

/// The "tests" array of a configuration.
class TestListTest : public unitTests::ConfiguredTest {
protected:
    std::string readTests(const std::string& array) { return read("{\"tests\":" + array + "}"); }

    Vetra::TestConfigMap tests() const
    {
        Vetra::TestConfigMap map(domain.get());
        config.getTestConfigMap(map);
        return map;
    }
    /// "key: id class" for each entry, in the order of running.
    std::vector<std::string> entries() const
    {
        std::vector<std::string> lines;
        for (const auto& [key, test] : tests()) {
            std::ostringstream line;
            line << key << ": " << test->getTestId() << ' ' << test->getTestClass();
            lines.push_back(line.str());
        }
        return lines;
    }
    const TestConfig& only() const
    {
        const auto map = tests();
        EXPECT_EQ(map.size(), 1U);
        return *map.begin()->second;
    }
};

std::string refusalOf(const std::string& key)
{
    return "6 ERR_INVALID_USER_CONFIG: Invalid user config: " + key + " (UserConfig.cpp:";
}

TEST_F(TestListTest, EntryStartsWithItsDefaults)
{
    const TestConfig test(*domain);

    EXPECT_EQ(test.getTestPackage(), "");
    EXPECT_EQ(test.getTestTimeout(), 0);
    EXPECT_EQ(test.getTestId(), 0.0);
    EXPECT_EQ(test.getConfigString(), "");
    EXPECT_EQ(test.getTestClass(), "");
}

TEST_F(TestListTest, EntryGivesBackCopiesOfWhatItsSettersWereGiven)
{
    TestConfig test(*domain);

    test.setTestPackage(text("a package with a name of some length"));
    test.setTestTimeout(-5);
    test.setTestId(1.5);
    test.setConfigString(text("{}"));
    test.setTestClass(text("EvalOS"));

    EXPECT_EQ(test.getTestPackage(), "a package with a name of some length");
    EXPECT_EQ(test.getTestPackage().get_allocator().resource(), domain.get());
    EXPECT_EQ(test.getTestTimeout(), -5);
    EXPECT_EQ(test.getTestId(), 1.5);
    EXPECT_EQ(test.getConfigString(), "{}");
    EXPECT_EQ(test.getTestClass(), "EvalOS");
}

TEST_F(TestListTest, ReadsEachKey)
{
    EXPECT_EQ(readTests(R"([{"test_timeout":60,"package":"p","id":3.25,"config":{"a":1},
                             "class":"EvalOS"}])"),
              "");

    EXPECT_EQ(only().getTestTimeout(), 60);
    EXPECT_EQ(only().getTestPackage(), "p");
    EXPECT_EQ(only().getTestId(), 3.25);
    EXPECT_EQ(only().getConfigString(), R"({"a":1})");
    EXPECT_EQ(only().getTestClass(), "EvalOS");
}

TEST_F(TestListTest, EmptyArrayGivesNoTests)
{
    readTests(R"([{"id":1}])");

    EXPECT_EQ(readTests("[]"), "");

    EXPECT_THAT(entries(), testing::IsEmpty());
}

TEST_F(TestListTest, TestsRunInTheOrderOfTheirIds)
{
    EXPECT_EQ(readTests(R"([{"id":2,"class":"C"},{"id":1.5,"class":"B"},{"id":1,"class":"A"}])"),
              "");

    EXPECT_THAT(entries(), ElementsAre("1: 1 A", "1.5: 1.5 B", "2: 2 C"));
}

TEST_F(TestListTest, IdsMayBeNegativeAndZero)
{
    EXPECT_EQ(readTests(R"([{"id":0,"class":"B"},{"id":-1,"class":"A"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("-1: -1 A", "0: 0 B"));
}

TEST_F(TestListTest, OfTwoTestsWithoutIdsTheLaterStaysUnderKeyOne)
{
    EXPECT_EQ(readTests(R"([{"class":"A"},{"class":"B"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("1: 0 B"));
    EXPECT_THAT(std::string(config.printUserConfigToString()),
                testing::EndsWith("Configured tests:\n0 B\n"));
}

TEST_F(TestListTest, TestWithoutAnIdTakesThePlaceOfTheOneBeforeIt)
{
    EXPECT_EQ(readTests(R"([{"id":3,"class":"A"},{"class":"B"},{"id":4,"class":"C"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("3: 0 B", "4: 4 C"));
}

TEST_F(TestListTest, TheKeyIsNotCountedUp)
{
    EXPECT_EQ(readTests(R"([{"class":"A"},{"id":2,"class":"B"},{"class":"C"},{"class":"D"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("1: 0 A", "2: 0 D"));
}

TEST_F(TestListTest, IdOneDisplacesAFirstTestWithoutAnId)
{
    EXPECT_EQ(readTests(R"([{"class":"A"},{"id":1,"class":"B"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("1: 1 B"));
}

TEST_F(TestListTest, OfTwoTestsWithTheSameIdTheLaterStays)
{
    EXPECT_EQ(readTests(R"([{"id":2,"class":"A"},{"id":1,"class":"B"},{"id":2.0,"class":"C"}])"),
              "");

    EXPECT_THAT(entries(), ElementsAre("1: 1 B", "2: 2 C"));
}

TEST_F(TestListTest, OfDuplicateKeysInATestTheLastCounts)
{
    EXPECT_EQ(readTests(R"([{"id":"x","class":"A","id":2,"class":"B"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("2: 2 B"));
}

TEST_F(TestListTest, TimeoutIsCutTowardZero)
{
    EXPECT_EQ(readTests(R"([{"test_timeout":2.9}])"), "");
    EXPECT_EQ(only().getTestTimeout(), 2);
    EXPECT_EQ(readTests(R"([{"test_timeout":-2.9}])"), "");
    EXPECT_EQ(only().getTestTimeout(), -2);
}

TEST_F(TestListTest, TimeoutBeyond32BitsIsTheNearestThatFits)
{
    using Limits = std::numeric_limits<std::int32_t>;
    for (const char* number : {"2147483647", "2147483647.5", "2147483648", "1e300"}) {
        EXPECT_EQ(readTests(std::string("[{\"test_timeout\":") + number + "}]"), "");
        EXPECT_EQ(only().getTestTimeout(), Limits::max()) << number;
    }
    for (const char* number : {"-2147483648", "-2147483648.5", "-2147483649", "-1e300"}) {
        EXPECT_EQ(readTests(std::string("[{\"test_timeout\":") + number + "}]"), "");
        EXPECT_EQ(only().getTestTimeout(), Limits::min()) << number;
    }
}

TEST_F(TestListTest, TestWithoutAClassStaysWithAnEmptyOne)
{
    EXPECT_EQ(readTests(R"([{"id":1}])"), "");

    EXPECT_THAT(entries(), ElementsAre("1: 1 "));
}

TEST_F(TestListTest, TestWithoutAConfigHasAnEmptyText)
{
    EXPECT_EQ(readTests(R"([{"class":"EvalOS"}])"), "");

    EXPECT_EQ(only().getConfigString(), "");
}

TEST_F(TestListTest, EmptyConfigIsTheTextOfAnEmptyObject)
{
    EXPECT_EQ(readTests(R"([{"config":{}}])"), "");

    EXPECT_EQ(only().getConfigString(), "{}");
}

TEST_F(TestListTest, ConfigReadsBackAsItWasGiven)
{
    EXPECT_EQ(readTests(R"([{"config": {"InternHosts": ["h\"1", "é"], "duration": 0.1,
                             "deep": {"x": [null, true, 12345678]}, "mount": "/data\n"} }])"),
              "");
    const Basis::string json = only().getConfigString();
    JoltUtils::JsonAllocator allocator(*domain);
    JoltUtils::JsonObject members(allocator);

    ASSERT_TRUE(JoltUtils::jsonParse(json.data(), json.size(), members, allocator));

    EXPECT_EQ(members.at("InternHosts").array()[0].text(), "h\"1");
    EXPECT_EQ(members.at("InternHosts").array()[1].text(), "é");
    EXPECT_EQ(members.at("duration").number(), 0.1);
    EXPECT_EQ(members.at("deep").object().at("x").array()[2].number(), 12345678.0);
    EXPECT_EQ(members.at("mount").text(), "/data\n");
}

TEST_F(TestListTest, UnknownKeyIsRaisedWithoutALine)
{
    EXPECT_THAT(readTests(R"([{"clas":"EvalOS"}])"), StartsWith(refusalOf("clas")));

    EXPECT_EQ(output.text(), "");
}

TEST_F(TestListTest, ConfigThatIsATextIsRaisedWithoutALine)
{
    EXPECT_THAT(readTests(R"([{"config":"{}"}])"), StartsWith(refusalOf("config")));

    EXPECT_EQ(output.text(), "");
}

TEST_F(TestListTest, TimeoutThatIsATextIsRaisedWithoutALine)
{
    EXPECT_THAT(readTests(R"([{"test_timeout":"60"}])"), StartsWith(refusalOf("test_timeout")));

    EXPECT_EQ(output.text(), "");
}

TEST_F(TestListTest, EveryKeyRefusesOtherTypesAndNull)
{
    for (const char* member :
         {R"("class":1)", R"("class":null)", R"("config":[])", R"("config":null)", R"("id":"1")",
          R"("id":null)", R"("package":{})", R"("package":null)", R"("test_timeout":true)",
          R"("test_timeout":null)"}) {
        const std::string key(member + 1, std::string_view(member).find('"', 1) - 1);
        EXPECT_THAT(readTests(std::string("[{") + member + "}]"), StartsWith(refusalOf(key)));
    }
    EXPECT_EQ(output.text(), "");
}

TEST_F(TestListTest, OfTwoFaultsInATestTheOneOfTheLowerKeyIsRaised)
{
    EXPECT_THAT(readTests(R"([{"zzz":1,"id":"x"}])"), StartsWith(refusalOf("id")));
}

TEST_F(TestListTest, ElementThatIsNoObjectIsRaisedAsTests)
{
    for (const char* element : {"1", "\"EvalOS\"", "null", "[]", "true"})
        EXPECT_THAT(readTests(std::string("[") + element + "]"), StartsWith(refusalOf("tests")));

    EXPECT_EQ(output.text(), "");
}

TEST_F(TestListTest, FaultLeavesTheTestsThatWereThere)
{
    readTests(R"([{"id":7,"class":"Before"}])");

    EXPECT_NE(readTests(R"([{"id":8,"class":"New"},{"id":"x"}])"), "");

    EXPECT_THAT(entries(), ElementsAre("7: 7 Before"));
}

TEST_F(TestListTest, ManyTestsAreTaken)
{
    std::string array = "[";
    for (int id = 1; id <= 20000; ++id)
        array += "{\"id\":" + std::to_string(id) + ",\"class\":\"EvalOS\"},";
    array.back() = ']';

    EXPECT_EQ(readTests(array), "");

    EXPECT_EQ(tests().size(), 20000U);
}

}  // namespace
