#include "Diagnose/ArgumentHelper.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <utility>

namespace {

using Diagnose::ArgumentHelper;

constexpr unsigned long untouched = 77;

unsigned long sizeOf(const char* text)
{
    unsigned long value = untouched;
    EXPECT_TRUE(ArgumentHelper::decodeSizeArgument(text, value)) << text;
    return value;
}

TEST(ArgumentHelper, ReadsANumberOfBytes)
{
    EXPECT_EQ(sizeOf("0"), 0U);
    EXPECT_EQ(sizeOf("1"), 1U);
    EXPECT_EQ(sizeOf("4096"), 4096U);
    EXPECT_EQ(sizeOf("007"), 7U);
    EXPECT_EQ(sizeOf("18446744073709551615"), 18446744073709551615UL);
}

TEST(ArgumentHelper, ReadsUnitsInPowersOf1024InEitherCase)
{
    const std::pair<const char*, unsigned> units[] = {
        {"B", 0},   {"b", 0},   {"K", 10}, {"KB", 10}, {"k", 10}, {"kb", 10},
        {"Kb", 10}, {"kB", 10}, {"M", 20}, {"MB", 20}, {"m", 20}, {"mb", 20},
        {"G", 30},  {"GB", 30}, {"g", 30}, {"gb", 30}, {"T", 40}, {"TB", 40},
        {"t", 40},  {"tb", 40}, {"P", 50}, {"PB", 50}, {"p", 50}, {"pb", 50}};

    for (const auto& [unit, shift] : units)
        EXPECT_EQ(sizeOf((std::string("3") + unit).c_str()), 3UL << shift) << unit;
}

TEST(ArgumentHelper, ReadsTheLargestSizeOfEachUnit)
{
    EXPECT_EQ(sizeOf("18446744073709551615B"), 18446744073709551615UL);
    EXPECT_EQ(sizeOf("18014398509481983K"), 18014398509481983UL << 10);
    EXPECT_EQ(sizeOf("17592186044415M"), 17592186044415UL << 20);
    EXPECT_EQ(sizeOf("17179869183G"), 17179869183UL << 30);
    EXPECT_EQ(sizeOf("16777215T"), 16777215UL << 40);
    EXPECT_EQ(sizeOf("16383P"), 16383UL << 50);
}

class RefusedSize : public testing::TestWithParam<const char*> {};

TEST_P(RefusedSize, LeavesTheValue)
{
    unsigned long value = untouched;

    EXPECT_FALSE(ArgumentHelper::decodeSizeArgument(GetParam(), value));

    EXPECT_EQ(value, untouched);
}

// Letters and digits as they are, all else by its number.
std::string nameOf(const testing::TestParamInfo<const char*>& tested)
{
    std::string name = "Text";
    for (const char* letter = tested.param; *letter != 0; ++letter) {
        const auto byte = static_cast<unsigned char>(*letter);
        name += std::isalnum(byte) != 0 ? std::string(1, *letter) : "_" + std::to_string(byte);
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(NoNumber, RefusedSize,
                         testing::Values("", "K", "KB", "abc", "-1", "+1", " 1", "\t1", "0x10",
                                         ".5"),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(NoUnit, RefusedSize,
                         testing::Values("1.5", "1.5K", "1,5", "1e3", "1E", "1Z", "1KK", "1KBB",
                                         "1BB", "1BK", "1KiB", "1K ", "1 K", "1K\n", "1\xc2\xb5"),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(TooLarge, RefusedSize,
                         testing::Values("18446744073709551616", "99999999999999999999999",
                                         "18014398509481984K", "17592186044416MB", "17179869184G",
                                         "16777216T", "16384P", "18446744073709551615P"),
                         nameOf);

}  // namespace
