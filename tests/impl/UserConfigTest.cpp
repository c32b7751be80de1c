#include "impl/UserConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/impl/DriverTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using unitTests::namesIn;
using Vetra::TestConfig;
using Vetra::UserConfig;

static_assert(std::has_virtual_destructor_v<UserConfig>);
static_assert(std::has_virtual_destructor_v<TestConfig>);

constexpr const char* longText = "longer than what a string keeps within itself";

class UserConfigTest : public unitTests::ConfiguredTest {
protected:
    std::vector<std::string> blades() const
    {
        Basis::vector<Basis::string> list(domain.get());
        config.getBladesList(list);
        return {list.begin(), list.end()};
    }
    std::size_t testCount() const
    {
        Vetra::TestConfigMap tests(domain.get());
        config.getTestConfigMap(tests);
        return tests.size();
    }
};

std::string refusalOf(const std::string& key)
{
    return "6 ERR_INVALID_USER_CONFIG: Invalid user config: " + key + " (UserConfig.cpp:";
}

TEST_F(UserConfigTest, StartsWithItsDefaults)
{
    EXPECT_FALSE(config.getUseZdb());
    EXPECT_THAT(blades(), IsEmpty());
    EXPECT_EQ(testCount(), 0U);
    EXPECT_EQ(std::string_view(config.getOutputDir()), directory.path());
    EXPECT_EQ(config.getReportID(), "");
}

TEST_F(UserConfigTest, OutputDirectoryIsTheCurrentOneOfTheConstruction)
{
    std::filesystem::create_directory("elsewhere");
    std::filesystem::current_path("elsewhere");

    EXPECT_EQ(std::string_view(config.getOutputDir()), directory.path());
}

TEST_F(UserConfigTest, GivesBackWhatItsSettersWereGiven)
{
    config.setUseZdb(true);
    config.setOutputDir(text("/results"));
    config.setReportID(text(longText));

    EXPECT_TRUE(config.getUseZdb());
    EXPECT_EQ(config.getOutputDir(), "/results");
    EXPECT_EQ(config.getReportID(), longText);
    EXPECT_EQ(config.getReportID().get_allocator().resource(), domain.get());
}

TEST_F(UserConfigTest, CopiesListsOfBladesElementByElement)
{
    Basis::vector<Basis::string> list(domain.get());
    list.emplace_back("one");
    config.setBladesList(list);
    list.front() = "changed";

    EXPECT_THAT(blades(), ElementsAre("one"));
    config.getBladesList(list);
    list.front() = "changed again";
    EXPECT_THAT(blades(), ElementsAre("one"));
}

TEST_F(UserConfigTest, CopiesOfTheTestMapShareTheirEntries)
{
    Vetra::TestConfigMap tests(domain.get());
    tests.emplace(7.0, std::allocate_shared<TestConfig>(
                           std::pmr::polymorphic_allocator<TestConfig>(domain.get()), *domain));
    config.setTestConfigMap(tests);
    tests.clear();

    config.getTestConfigMap(tests);
    tests.at(7.0)->setTestClass(text("Changed"));

    Vetra::TestConfigMap again(domain.get());
    config.getTestConfigMap(again);
    EXPECT_EQ(again.at(7.0)->getTestClass(), "Changed");
    EXPECT_EQ(again.at(7.0), tests.at(7.0));
}

TEST_F(UserConfigTest, EmptyObjectIsValidAndLeavesTheDefaults)
{
    EXPECT_EQ(read("{}"), "");

    EXPECT_EQ(testCount(), 0U);
    EXPECT_EQ(std::string_view(config.getOutputDir()), directory.path());
    EXPECT_EQ(output.text(), "");
}

TEST_F(UserConfigTest, ReadsEachKey)
{
    EXPECT_EQ(read(R"({"use_zdb":true,"report_id":"r-1","output_dir":"out","blades":["b1"],
                       "tests":[{"class":"EvalOS"}]})"),
              "");

    EXPECT_TRUE(config.getUseZdb());
    EXPECT_EQ(config.getReportID(), "r-1");
    EXPECT_EQ(config.getOutputDir(), "out");
    EXPECT_THAT(blades(), ElementsAre("b1"));
    EXPECT_EQ(testCount(), 1U);
    EXPECT_EQ(output.text(), "");
}

TEST_F(UserConfigTest, KeepsTheTextsAmongTheBladesInTheirOrder)
{
    EXPECT_EQ(read(R"({"blades":["host b",17,"host a",null,true,["c"],{"d":"e"},""]})"), "");

    EXPECT_THAT(blades(), ElementsAre("host b", "host a", ""));
}

TEST_F(UserConfigTest, BladesReplaceThoseThatWereThere)
{
    read(R"({"blades":["one","two"]})");

    read(R"({"blades":["three"]})");
    EXPECT_THAT(blades(), ElementsAre("three"));
    read(R"({"blades":[]})");
    EXPECT_THAT(blades(), IsEmpty());
}

TEST_F(UserConfigTest, MissingKeyLeavesWhatWasThere)
{
    read(R"({"blades":["one"],"report_id":"r","use_zdb":true})");

    read("{}");

    EXPECT_THAT(blades(), ElementsAre("one"));
    EXPECT_EQ(config.getReportID(), "r");
    EXPECT_TRUE(config.getUseZdb());
}

TEST_F(UserConfigTest, OfDuplicateKeysTheLastCounts)
{
    EXPECT_EQ(read(R"({"report_id":5,"use_zdb":true,"report_id":"last","use_zdb":false})"), "");

    EXPECT_EQ(config.getReportID(), "last");
    EXPECT_FALSE(config.getUseZdb());
}

TEST_F(UserConfigTest, UseZdbTakesABooleanAndNoNumber)
{
    EXPECT_THAT(read(R"({"use_zdb":1})"), StartsWith(refusalOf("use_zdb")));

    EXPECT_EQ(output.text(), "Invalid user configuration use_zdb\n");
    EXPECT_FALSE(config.getUseZdb());
}

TEST_F(UserConfigTest, KeysDifferInCase)
{
    EXPECT_THAT(read(R"({"Tests":[]})"), StartsWith(refusalOf("Tests")));

    EXPECT_EQ(output.text(), "Invalid user configuration Tests\n");
}

TEST_F(UserConfigTest, UnknownKeyIsPrintedAndRaised)
{
    EXPECT_THAT(read(R"({"test":[]})"),
                MatchesRegex("6 ERR_INVALID_USER_CONFIG: Invalid user config: test "
                             "\\(UserConfig\\.cpp:[0-9]+\\)"));

    EXPECT_EQ(output.text(), "Invalid user configuration test\n");
}

TEST_F(UserConfigTest, EmptyKeyIsUnknown)
{
    EXPECT_THAT(read(R"({"":1})"), StartsWith(refusalOf("")));

    EXPECT_EQ(output.text(), "Invalid user configuration \n");
}

struct WrongType {
    const char* key;
    const char* value;
};

void PrintTo(const WrongType& member, std::ostream* stream)
{
    *stream << member.key << ' ' << member.value;
}

class WrongTypeAtTheTop : public unitTests::ConfiguredTest,
                          public testing::WithParamInterface<WrongType> {};

TEST_P(WrongTypeAtTheTop, IsPrintedAndRaisedWithTheKey)
{
    const std::string key = GetParam().key;

    EXPECT_THAT(read("{\"" + key + "\":" + GetParam().value + "}"), StartsWith(refusalOf(key)));

    EXPECT_EQ(output.text(), "Invalid user configuration " + key + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, WrongTypeAtTheTop,
    testing::Values(WrongType{"blades", "\"b1\""}, WrongType{"blades", "{}"},
                    WrongType{"blades", "null"}, WrongType{"output_dir", "1"},
                    WrongType{"output_dir", "[\"out\"]"}, WrongType{"output_dir", "null"},
                    WrongType{"report_id", "17"}, WrongType{"report_id", "true"},
                    WrongType{"report_id", "null"}, WrongType{"tests", "{}"},
                    WrongType{"tests", "\"EvalOS\""}, WrongType{"tests", "null"},
                    WrongType{"use_zdb", "0"}, WrongType{"use_zdb", "\"true\""},
                    WrongType{"use_zdb", "null"}));

TEST_F(UserConfigTest, KeysBeforeAFaultHaveTakenEffect)
{
    EXPECT_THAT(read(R"({"zzz":1,"use_zdb":true,"report_id":"r","output_dir":"made","blades":["b"],
                         "tests":[{}]})"),
                StartsWith(refusalOf("zzz")));

    EXPECT_THAT(blades(), ElementsAre("b"));
    EXPECT_EQ(config.getOutputDir(), "made");
    EXPECT_TRUE(std::filesystem::is_directory("made"));
    EXPECT_EQ(config.getReportID(), "r");
    EXPECT_EQ(testCount(), 1U);
    EXPECT_TRUE(config.getUseZdb());
}

TEST_F(UserConfigTest, KeysBehindAFaultHaveNot)
{
    EXPECT_THAT(
        read(R"({"use_zdb":true,"report_id":"r","output_dir":"made","c":1,"blades":["b"]})"),
        StartsWith(refusalOf("c")));

    EXPECT_THAT(blades(), ElementsAre("b"));
    EXPECT_EQ(std::string_view(config.getOutputDir()), directory.path());
    EXPECT_THAT(namesIn("."), IsEmpty());
    EXPECT_EQ(config.getReportID(), "");
    EXPECT_FALSE(config.getUseZdb());
}

TEST_F(UserConfigTest, OutputDirectoryIsMadeWithItsParents)
{
    EXPECT_EQ(read(R"({"output_dir":"a/b/c"})"), "");

    EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
    EXPECT_EQ(config.getOutputDir(), "a/b/c");
}

TEST_F(UserConfigTest, OutputDirectoryThatIsThereIsLeftAsItIs)
{
    std::filesystem::create_directory("out");
    unitTests::writeFile("out/file", "kept");

    EXPECT_EQ(read(R"({"output_dir":"out/"})"), "");

    EXPECT_EQ(unitTests::contentOf("out/file"), "kept");
    EXPECT_EQ(config.getOutputDir(), "out/");
}

TEST_F(UserConfigTest, OutputDirectoryThatCannotBeMadeIsStoredAllTheSame)
{
    unitTests::writeFile("file", "");

    EXPECT_EQ(read(R"({"output_dir":"file/below"})"), "");

    EXPECT_EQ(config.getOutputDir(), "file/below");
    EXPECT_EQ(output.text(), "");
}

TEST_F(UserConfigTest, EmptyOutputDirectoryIsStored)
{
    EXPECT_EQ(read(R"({"output_dir":""})"), "");

    EXPECT_EQ(config.getOutputDir(), "");
}

TEST_F(UserConfigTest, TextThatIsNoJsonIsPrintedWithItsSizeAndRaised)
{
    EXPECT_THAT(read("{\"é\":\n"),
                MatchesRegex("5 ERR_INVALID_JSON: Invalid json: Failed to parse user config json "
                             "\\(UserConfig\\.cpp:[0-9]+\\)"));

    EXPECT_EQ(output.text(), "Failed to parse json size=7 ,data={\"é\":\n\n");
}

TEST_F(UserConfigTest, EmptyTextIsNoJson)
{
    EXPECT_THAT(read(""), StartsWith("5 ERR_INVALID_JSON: "));

    EXPECT_EQ(output.text(), "Failed to parse json size=0 ,data=\n");
}

struct FaultyText {
    const char* what;
    std::string text;
};

void PrintTo(const FaultyText& faulty, std::ostream* stream)
{
    *stream << faulty.what;
}

class NoConfiguration : public unitTests::ConfiguredTest,
                        public testing::WithParamInterface<FaultyText> {};

TEST_P(NoConfiguration, IsInvalidJson)
{
    const std::string& json = GetParam().text;

    EXPECT_THAT(read(json), StartsWith("5 ERR_INVALID_JSON: Invalid json: Failed to parse"));

    EXPECT_EQ(output.text(),
              "Failed to parse json size=" + std::to_string(json.size()) + " ,data=" + json + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    All, NoConfiguration,
    testing::Values(FaultyText{"empty array", "[]"},
                    FaultyText{"array of an object", "[{\"use_zdb\":true}]"},
                    FaultyText{"number", "17"}, FaultyText{"text", "\"text\""},
                    FaultyText{"null", "null"}, FaultyText{"two objects", "{} {}"},
                    FaultyText{"open object", "{\"use_zdb\":true"},
                    FaultyText{"invalid UTF-8", "{\"report_id\":\"\xff\"}"},
                    FaultyText{"NUL within", std::string("{\"a\":1\0}", 8)},
                    FaultyText{"NUL behind", std::string("{}\0", 3)},
                    FaultyText{"deep nesting", "{\"tests\":" + std::string(100000, '[')}));

TEST_F(UserConfigTest, FaultyTextLeavesTheConfigurationAsItWas)
{
    read(R"({"report_id":"before"})");

    read(R"({"report_id":"after")");

    EXPECT_EQ(config.getReportID(), "before");
}

TEST_F(UserConfigTest, LeavesTheTextAsItIs)
{
    Basis::string content = text(R"({"report_id":"r"})");

    config.readJsonUserConfig(content);

    EXPECT_EQ(content, R"({"report_id":"r"})");
}

TEST_F(UserConfigTest, NothingOfTheJsonValuesSurvives)
{
    const auto& global = *Basis::Allocator::global();
    const auto ofOthers = global.bytes() - domain->bytes();

    EXPECT_EQ(read(R"({"report_id":"a text that no string keeps within itself","blades":["x"],
                       "tests":[{"class":"Another text that no string keeps within itself"}]})"),
              "");
    EXPECT_NE(read(R"({"blades":["a text that no string keeps within itself"],"tests":[1]})"), "");

    EXPECT_EQ(global.bytes() - domain->bytes(), ofOthers);
}

TEST_F(UserConfigTest, SummaryOfTheDefaults)
{
    EXPECT_EQ(
        std::string_view(config.printUserConfigToString()),
        "useZdb: 0\nblades: \noutput directory: " + directory.path() + "\n\nConfigured tests:\n");
}

TEST_F(UserConfigTest, SummaryShowsIdAndClassInTheOrderOfTheKeys)
{
    read(R"({"use_zdb":true,"blades":["b2","b1"],"output_dir":"out","report_id":"not shown",
             "tests":[{"id":1000000,"class":"M"},{"id":2,"class":"B","package":"p"},
                      {"id":0.1,"class":"A"},{"id":1234567.5,"class":"N"},{"id":-3,"class":""}]})");

    EXPECT_EQ(config.printUserConfigToString(),
              "useZdb: 1\nblades: b2 b1 \noutput directory: out\n\nConfigured tests:\n"
              "-3 \n0.1 A\n2 B\n1e+06 M\n1.23457e+06 N\n");
}

TEST_F(UserConfigTest, SummaryStandsInTheDomainOfTheConfiguration)
{
    EXPECT_EQ(config.printUserConfigToString().get_allocator().resource(), domain.get());
}

}  // namespace
