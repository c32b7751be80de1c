// A file system that is nearly full.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>

#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/FileAccess/Mounts.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/Files.h"

namespace {

using fileLayerTests::Layer;
using fileLayerTests::makeFactory;
using fileLayerTests::Mount;
using fileLayerTests::page;
using fileLayerTests::TemporaryDirectory;
using testing::AllOf;
using testing::HasSubstr;
using unitTests::CapturedOutput;

namespace fs = std::filesystem;

constexpr std::size_t filePages = 32;
constexpr std::uint64_t whole = 64 * page;

// Half of the space is taken by a file.
class FreeSpace : public testing::Test {
protected:
    void SetUp() override
    {
        if (!mount.isMounted())
            GTEST_SKIP() << "only root can mount a small file system";
        unitTests::writeFile(directory / "datavol.dat", std::string(filePages * page, 'x'));
    }

    TemporaryDirectory directory;
    Mount mount{directory.path(), "tmpfs", "size=256k"};
};

TEST_F(FreeSpace, CountsTheFileThatIsReplaced)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_TRUE(factory->ensureSpace("datavol.dat", whole));
    EXPECT_EQ(errors.text(), "");

    EXPECT_FALSE(factory->ensureSpace("datavol.dat", whole + 1));
    EXPECT_EQ(errors.text(), "vetra: " + directory.path() +
                                 "/datavol.dat needs 262145 bytes, but only 262144 are free\n");
}

TEST_F(FreeSpace, DoesNotCountAnotherFile)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);

    EXPECT_TRUE(factory->ensureSpace("other.dat", whole / 2));
    EXPECT_EQ(errors.text(), "");

    EXPECT_FALSE(factory->ensureSpace("other.dat", whole / 2 + 1));
    EXPECT_EQ(errors.text(), "vetra: " + directory.path() +
                                 "/other.dat needs 131073 bytes, but only 131072 are free\n");
}

// Removing one of two names frees nothing, nor does removing a link.
TEST_F(FreeSpace, DoesNotCountWhatStaysBehindUnderAnotherName)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);
    fs::create_symlink("datavol.dat", directory / "link.dat");

    EXPECT_FALSE(factory->ensureSpace("link.dat", whole / 2 + 1));
    fs::create_hard_link(directory / "datavol.dat", directory / "second.dat");
    EXPECT_FALSE(factory->ensureSpace("datavol.dat", whole / 2 + 1));
}

// The blocks of a file count, not its length.
TEST_F(FreeSpace, DoesNotCountTheHolesOfAFile)
{
    const auto factory = makeFactory(directory.path());
    const CapturedOutput errors(std::cerr);
    unitTests::writeFile(directory / "sparse.dat", "");
    fs::resize_file(directory / "sparse.dat", 100 * whole);

    EXPECT_TRUE(factory->ensureSpace("sparse.dat", whole / 2));
    EXPECT_FALSE(factory->ensureSpace("sparse.dat", whole / 2 + 1));
}

TEST_F(FreeSpace, ThatIsUsedUpFailsTheWritesThatNeedMore)
{
    fs::remove(directory / "datavol.dat");
    constexpr std::size_t count = 2 * 64;
    Layer layer(directory.path(), {{"async_write_submit_active", "on"}}, count);
    layer.completions.expect(count);

    for (std::size_t i = 0; i < count; ++i)
        layer.write(i, i * page);
    layer.completions.wait();

    EXPECT_EQ(layer.completions.writes(), 64U);
    EXPECT_EQ(layer.completions.errors(), 64U);
    EXPECT_THAT(layer.completions.errorText(),
                AllOf(HasSubstr("ENOSPC"), HasSubstr("No space left on device"),
                      HasSubstr("write of " + directory.path() + "/datavol.dat at offset ")));
}

}  // namespace
