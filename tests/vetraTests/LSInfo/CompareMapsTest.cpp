// The comparison of measured distributions with the allowed ones.

#include <gtest/gtest.h>

#include <vector>

#include "RuleTest.h"

namespace vetraTests {

namespace {

struct Row {
    std::string_view outer;
    std::string_view inner;
    std::string_view value;
};

class CompareMaps : public RuleTest {
protected:
    // Each row has an outer entry of its own.
    void add(CheckReport& report, std::initializer_list<Row> rows)
    {
        for (const Row& row : rows)
            report.emplace(row.outer, CheckOutcomes(domain.get()))
                ->second.emplace(row.inner, row.value);
    }

    bool compare() { return rules.compareMaps(allowed, measured); }

    std::vector<std::string> measuredValues()
    {
        std::vector<std::string> values;
        for (const auto& [outer, entries] : measured) {
            for (const auto& [inner, value] : entries)
                values.push_back(plain(value));
        }
        return values;
    }

    CheckReport allowed{domain.get()};
    CheckReport measured{domain.get()};
};

}  // namespace

TEST_F(CompareMaps, FindAnEntryThatIsEqualInAllThree)
{
    add(allowed, {{"x86", "A", "1"}, {"x86", "B", "2"}});
    add(measured, {{"x86", "B", "2"}});

    EXPECT_TRUE(compare());
}

TEST_F(CompareMaps, FindNoEntryThatDiffersInOne)
{
    add(allowed, {{"x86", "A", "1"}, {"x86", "B", "2"}});

    for (const Row& row :
         {Row{"x86_64", "A", "1"}, Row{"x8", "A", "1"}, Row{"x86", "AA", "1"}, Row{"x86", "", "1"},
          Row{"x86", "a", "1"}, Row{"x86", "A", "2"}, Row{"x86", "A", "11"}, Row{"x86", "A", ""},
          Row{" x86", "A", "1"}, Row{"x86", " A", "1"}}) {
        measured.clear();
        add(measured, {row});
        EXPECT_FALSE(compare()) << row.outer << '|' << row.inner << '|' << row.value;
    }
}

TEST_F(CompareMaps, CompareTheTrimmedValueAndStoreItBack)
{
    add(allowed, {{"x86", "A", "1"}});
    add(measured, {{"x86", "A", " \t1\r\n"}});

    EXPECT_TRUE(compare());

    EXPECT_EQ(measuredValues(), std::vector<std::string>{"1"});
}

TEST_F(CompareMaps, TrimAValueThatMatchesNothing)
{
    add(allowed, {{"x86", "A", "1"}});
    add(measured, {{"x86", "B", " 7 "}});

    EXPECT_FALSE(compare());

    EXPECT_EQ(measuredValues(), std::vector<std::string>{"7"});
}

TEST_F(CompareMaps, LeaveAValueUnderAnUnknownOuterKeyAsItIs)
{
    add(allowed, {{"x86", "A", "1"}});
    add(measured, {{"arm", "A", " 1 "}});

    EXPECT_FALSE(compare());

    EXPECT_EQ(measuredValues(), std::vector<std::string>{" 1 "});
}

TEST_F(CompareMaps, DoNotTrimAllowedValues)
{
    add(allowed, {{"x86", "A", " 1 "}});
    add(measured, {{"x86", "A", " 1 "}});

    EXPECT_FALSE(compare());
}

TEST_F(CompareMaps, FindNothingInNothing)
{
    EXPECT_FALSE(compare());

    add(allowed, {{"x86", "A", "1"}});
    EXPECT_FALSE(compare());
}

TEST_F(CompareMaps, FindNothingWithoutAllowedEntries)
{
    add(measured, {{"x86", "A", "1"}});

    EXPECT_FALSE(compare());
}

TEST_F(CompareMaps, LookUnderEveryOuterKey)
{
    add(allowed, {{"arm", "A", "1"}, {"x86", "B", "2"}, {"x86", "C", "3"}});
    add(measured, {{"arm", "B", "2"}, {"ppc64le", "B", "2"}, {"x86", "C", " 3 "}});

    EXPECT_TRUE(compare());
    EXPECT_EQ(measuredValues(), (std::vector<std::string>{"2", "2", "3"}));
}

TEST_F(CompareMaps, LookAtEveryEntryOfAnOuterKey)
{
    add(allowed, {{"x86", "B", "2"}});
    measured.emplace("x86", CheckOutcomes(domain.get()));
    measured.begin()->second.emplace("A", " 1 ");
    measured.begin()->second.emplace("B", " 2 ");
    measured.begin()->second.emplace("B", " 3 ");

    EXPECT_TRUE(compare());
    EXPECT_EQ(measuredValues(), (std::vector<std::string>{"1", "2", "3"}));
}

TEST_F(CompareMaps, KeepAMatchWhateverFollows)
{
    add(allowed, {{"x86", "A", "1"}, {"x86", "B", "2"}, {"zz", "C", "3"}});
    add(measured, {{"x86", "A", "1"}, {"x86", "B", "9"}, {"zz", "C", "8"}});

    EXPECT_TRUE(compare());
}

}  // namespace vetraTests
