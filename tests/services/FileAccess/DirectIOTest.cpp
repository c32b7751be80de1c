#include "FileAccess/DirectIO.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/FileAccess/Mounts.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"

namespace {

using FileAccess::DirectIOAnswer;
using FileAccess::probeDirectIO;
using fileLayerTests::ImageMount;
using fileLayerTests::Layer;
using fileLayerTests::Mount;
using fileLayerTests::TemporaryDirectory;
using testing::ElementsAre;

TEST(DirectIO, LeavesNothingOfItsProbe)
{
    const TemporaryDirectory directory;
    const auto descriptors = unitTests::openDescriptors();

    probeDirectIO(directory.path());

    EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre());
    EXPECT_EQ(unitTests::openDescriptors(), descriptors);
}

// What else is wrong with the directory is said where it is opened.
TEST(DirectIO, CountsAsPossibleWhereNoFileCanBeMade)
{
    EXPECT_TRUE(probeDirectIO("/no/such/directory").isPossible);
    EXPECT_TRUE(probeDirectIO("/proc").isPossible);
}

class DirectIOOn : public testing::TestWithParam<const char*> {};

TEST_P(DirectIOOn, IsPossible)
{
    const ImageMount mount(GetParam(), 320U << 20);
    if (!mount.isMounted())
        GTEST_SKIP() << "cannot make and mount an image with " << GetParam();
    const auto before = unitTests::namesIn(mount.path());

    const DirectIOAnswer answer = probeDirectIO(mount.path());

    EXPECT_TRUE(answer.isPossible) << answer.reason;
    EXPECT_EQ(unitTests::namesIn(mount.path()), before);
}

INSTANTIATE_TEST_SUITE_P(RealFileSystems, DirectIOOn, testing::Values("ext4", "xfs", "btrfs"),
                         [](const auto& tested) { return std::string(tested.param); });

TEST(DirectIO, IsRefusedByAFileSystemThatKnowsOnlyThePageCache)
{
    const TemporaryDirectory directory;
    const Mount mount(directory.path(), "ramfs", "");
    if (!mount.isMounted())
        GTEST_SKIP() << "cannot mount a ramfs";

    const DirectIOAnswer answer = probeDirectIO(directory.path());

    EXPECT_FALSE(answer.isPossible);
    EXPECT_EQ(answer.reason, "the opening of a file: Invalid argument");
    EXPECT_THAT(unitTests::namesIn(directory.path()), ElementsAre());
}

TEST(DirectIO, GivesWayToThePageCacheAfterOneWarning)
{
    const TemporaryDirectory directory;
    const Mount mount(directory.path(), "ramfs", "");
    if (!mount.isMounted())
        GTEST_SKIP() << "cannot mount a ramfs";
    const unitTests::CapturedOutput errors(std::cerr);
    Layer layer(directory.path());
    layer.file = layer.factory->openFile("datavol.dat", 2, 0, 33);

    EXPECT_TRUE(layer.factory->ensureSpace("datavol.dat", fileLayerTests::page));
    layer.fillPages(8);
    layer.completions.expect(8);
    for (std::size_t i = 0; i < 8; ++i)
        layer.read(i, i * fileLayerTests::page);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.reads(), 8U);
    EXPECT_EQ(layer.pageAt(7)[0], 7);
    EXPECT_EQ(errors.text(),
              "vetra: the file system of " + directory.path() +
                  " refuses direct I/O (the opening of a file: Invalid argument); the page cache "
                  "is used, and figures are not the device's\n");
}

}  // namespace
