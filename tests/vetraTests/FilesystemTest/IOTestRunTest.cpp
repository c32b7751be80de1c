#include <gtest/gtest.h>

#include "tests/vetraTests/FilesystemTest/ScriptedEngine.h"

namespace ioTests {

using vetraTests::BackupIO;
using vetraTests::DataVolumeIO;
using vetraTests::LogVolumeIO;
using vetraTests::MixedStressIO;

namespace {

std::string configFor(const char* duration)
{
    return std::string(R"({"mount":{"db1":["/x"]},"duration":")") + duration + "\"}";
}

template <class Test>
std::vector<std::string> sizesOf(const char* duration)
{
    OnHost<Test> host("db1");
    host.configure(configFor(duration));
    host.run();
    EXPECT_EQ(host.status, 0);
    std::vector<std::string> sizes;
    for (const std::string& line : engine().commandLines) {
        const std::size_t begin = line.find("-b ") + 3;
        sizes.push_back(line.substr(begin, line.find(" -o") - begin));
    }
    return sizes;
}

using Sizes = std::vector<std::string>;

const std::string tableHead =
    "************************************************************\n"
    "Block  Test Initial    Over       Read       Latency        \n"
    "Size   File Write      Write      (MB/s)     (micro         \n"
    "       Size (MB/s)     (MB/s)                sec)           \n"
    "************************************************************\n";

}  // namespace

TEST(IOTestSizes, OfADataVolumeRunInByteOrder)
{
    EXPECT_EQ(sizesOf<DataVolumeIO>("short"),
              (Sizes{"16K -f 5G", "16M -f 5G", "1M -f 5G", "4K -f 1G", "64K -f 5G", "64M -f 5G"}));
    EXPECT_EQ(sizesOf<DataVolumeIO>("long"), (Sizes{"16K -f 16G", "16M -f 16G", "1M -f 16G",
                                                    "4K -f 5G", "64K -f 16G", "64M -f 16G"}));
    EXPECT_EQ(sizesOf<DataVolumeIO>("verylong"), (Sizes{"16K -f 32G", "16M -f 32G", "1M -f 32G",
                                                        "4K -f 10G", "64K -f 32G", "64M -f 32G"}));
}

TEST(IOTestSizes, OfALogVolumeAndOfMixedStressAreTheSame)
{
    for (const char* duration : {"short", "long", "verylong"})
        EXPECT_EQ(sizesOf<LogVolumeIO>(duration), sizesOf<MixedStressIO>(duration));
    EXPECT_EQ(sizesOf<LogVolumeIO>("short"), (Sizes{"16K -f 5G", "1M -f 5G", "4K -f 1G"}));
    EXPECT_EQ(sizesOf<LogVolumeIO>("long"), (Sizes{"16K -f 16G", "1M -f 16G", "4K -f 5G"}));
    EXPECT_EQ(sizesOf<LogVolumeIO>("verylong"), (Sizes{"16K -f 32G", "1M -f 32G", "4K -f 10G"}));
}

TEST(IOTestSizes, OfABackupAreOneBlock)
{
    EXPECT_EQ(sizesOf<BackupIO>("short"), Sizes{"64M -f 5G"});
    EXPECT_EQ(sizesOf<BackupIO>("long"), Sizes{"64M -f 16G"});
    EXPECT_EQ(sizesOf<BackupIO>("verylong"), Sizes{"64M -f 32G"});
}

TEST(IOTestOrder, IsThatOfTheClass)
{
    const auto isRandom = [](auto host) {
        host.configure(configFor("short"));
        host.run();
        return engine().commandLines.front().find(" -i random ") != std::string::npos;
    };
    EXPECT_TRUE(isRandom(OnHost<DataVolumeIO>("db1")));
    EXPECT_FALSE(isRandom(OnHost<LogVolumeIO>("db1")));
    EXPECT_FALSE(isRandom(OnHost<BackupIO>("db1")));
    EXPECT_TRUE(isRandom(OnHost<MixedStressIO>("db1")));
}

TEST(IOTestRun, JoinsTheTextsOfItsMeasurements)
{
    OnHost<LogVolumeIO> host("db1");
    host.configure(configFor("short"));
    host.run();

    EXPECT_EQ(host.status, 0);
    EXPECT_EQ(host.json(), "{\njson1\n,\njson2\n,\njson3\n}");
    EXPECT_EQ(host.report(),
              "report1\nreport2\nreport3\n"
              "************************************************************\n"
              "         Summary of Log Volume Test            \n" +
                  tableHead + "row1\nrow2\nrow3\n");
    EXPECT_TRUE(host.test->getTestResult());
}

TEST(IOTestRun, HasTheTitleOfTheClass)
{
    OnHost<BackupIO> backup("db1");
    backup.configure(configFor("short"));
    backup.run();
    EXPECT_NE(backup.report().find("\n         Summary of BackupIO Test            \n"),
              std::string::npos);

    OnHost<MixedStressIO> mixed("db1");
    mixed.configure(configFor("short"));
    mixed.run();
    EXPECT_NE(mixed.report().find("\n         Summary of MixedStressIO Test            \n"),
              std::string::npos);
}

TEST(IOTestRun, StoresNothingIfAMeasurementFails)
{
    OnHost<LogVolumeIO> host("db1");
    host.configure(configFor("short"));
    engine().failAt = 1;
    host.run();

    EXPECT_EQ(host.status, -1);
    EXPECT_EQ(engine().commandLines.size(), 2U);
    EXPECT_EQ(host.json(), "");
    EXPECT_EQ(host.report(), "");
    EXPECT_FALSE(host.test->getTestResult());
}

TEST(IOTestDuration, IsThatOfTheClass)
{
    const auto estimates = [](auto make) {
        std::vector<std::int64_t> all;
        for (const char* duration : {"short", "long", "verylong", "other"}) {
            auto host = make();
            host.configure(configFor(duration));
            all.push_back(host.test->getTestEstimatedDuration());
        }
        return all;
    };
    using Estimates = std::vector<std::int64_t>;
    EXPECT_EQ(estimates([] { return OnHost<DataVolumeIO>("db1"); }),
              (Estimates{370000, 1200000, 3200000, 0}));
    EXPECT_EQ(estimates([] { return OnHost<LogVolumeIO>("db1"); }),
              (Estimates{220000, 760000, 1700000, 0}));
    EXPECT_EQ(estimates([] { return OnHost<BackupIO>("db1"); }),
              (Estimates{40000, 110000, 210000, 0}));
    EXPECT_EQ(estimates([] { return OnHost<MixedStressIO>("db1"); }),
              (Estimates{220000, 760000, 1700000, 0}));
}

}  // namespace ioTests
