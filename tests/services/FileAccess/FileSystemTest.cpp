#include "FileAccess/FileSystem.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/FileAccess/Mounts.h"

namespace {

using FileAccess::FileSystem;
using fileLayerTests::ImageMount;
using fileLayerTests::Mount;
using fileLayerTests::TemporaryDirectory;

FileSystem fileSystemOf(const std::string& path)
{
    return {Basis::string(path, Basis::Allocator::global().get()), true, true};
}

// A file system of any type.
class FileSystemOfType : public FileSystem {
public:
    explicit FileSystemOfType(int code) : FileSystem(code, "any", *Basis::Allocator::global()) {}
};

TEST(FileSystem, IsUnknownForAPathThatIsMissing)
{
    const FileSystem missing = fileSystemOf("/no/such/path");

    EXPECT_EQ(missing.getType(), 0);
    EXPECT_EQ(missing.getTypeStr(), "unknown");
    EXPECT_FALSE(missing.isValid());
    EXPECT_FALSE(missing.isSupported());
}

TEST(FileSystem, IsUnknownAndNotValidForOneOfTheKernel)
{
    const FileSystem proc = fileSystemOf("/proc");

    EXPECT_LT(proc.getType(), FileSystem::firstValid);
    EXPECT_FALSE(proc.isValid());
}

TEST(FileSystem, TakesTheNameOfAFileForThatOfItsFileSystem)
{
    EXPECT_EQ(fileSystemOf("/proc/self/status").getType(), fileSystemOf("/proc").getType());
}

TEST(FileSystem, HasValidCodesFrom10To28)
{
    EXPECT_FALSE(FileSystemOfType(9).isValid());
    EXPECT_TRUE(FileSystemOfType(10).isValid());
    EXPECT_TRUE(FileSystemOfType(28).isValid());
    EXPECT_FALSE(FileSystemOfType(29).isValid());
    EXPECT_FALSE(FileSystemOfType(-1).isValid());
    EXPECT_FALSE(FileSystemOfType(1000).isSupported());
}

TEST(FileSystem, SupportsFiveOfThem)
{
    std::string supported;
    for (int type = -2; type < 40; ++type) {
        if (FileSystemOfType(type).isSupported())
            supported += std::to_string(type) + " ";
    }

    EXPECT_EQ(supported, "11 12 13 15 16 ");
}

struct MountedType {
    const char* name;
    bool isReal;
    bool isSupported;
};

class FileSystemByMount : public testing::TestWithParam<MountedType> {
protected:
    void expectTypeOf(const std::string& path) const
    {
        const FileSystem mounted = fileSystemOf(path);
        EXPECT_EQ(mounted.getTypeStr(), GetParam().name);
        EXPECT_EQ(mounted.isValid(), GetParam().isReal);
        EXPECT_EQ(mounted.isSupported(), GetParam().isSupported);
    }

    TemporaryDirectory directory;
};

using MemoryFileSystem = FileSystemByMount;

TEST_P(MemoryFileSystem, IsNamedAndNotValid)
{
    const Mount mount(directory.path(), GetParam().name, "");
    if (!mount.isMounted())
        GTEST_SKIP() << "cannot mount " << GetParam().name;

    expectTypeOf(directory.path());
}

INSTANTIATE_TEST_SUITE_P(Types, MemoryFileSystem,
                         testing::Values(MountedType{"tmpfs", false, false},
                                         MountedType{"ramfs", false, false}),
                         [](const auto& tested) { return std::string(tested.param.name); });

using RealFileSystem = FileSystemByMount;

TEST_P(RealFileSystem, IsTakenForWhatTheMountTableSays)
{
    const ImageMount mount(GetParam().name, 320U << 20);
    if (!mount.isMounted())
        GTEST_SKIP() << "cannot make and mount an image with " << GetParam().name;

    expectTypeOf(mount.path());
    expectTypeOf(mount.path() + "/.");
}

INSTANTIATE_TEST_SUITE_P(Types, RealFileSystem,
                         testing::Values(MountedType{"ext2", true, false},
                                         MountedType{"ext3", true, true},
                                         MountedType{"ext4", true, true},
                                         MountedType{"xfs", true, true},
                                         MountedType{"btrfs", true, false}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
