// What the layer makes of a kernel that refuses contexts, direct I/O or blocking transfers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <iostream>
#include <string>

#include "FileAccess/DirectIO.h"
#include "tests/services/FileAccess/KernelStandIn.h"
#include "tests/services/FileAccess/LayerSupport.h"
#include "tests/services/support/CapturedOutput.h"
#include "tests/services/support/ChildProcess.h"
#include "tests/services/support/Files.h"

namespace {

using FileAccess::DirectIOAnswer;
using FileAccess::probeDirectIO;
using fileLayerTests::KernelStandIn;
using fileLayerTests::Layer;
using fileLayerTests::makeFactory;
using fileLayerTests::memoryBase;
using fileLayerTests::page;
using fileLayerTests::TemporaryDirectory;
using testing::HasSubstr;
using testing::IsEmpty;
using unitTests::CapturedOutput;

class KernelRefusal : public testing::Test {
protected:
    ~KernelRefusal() override { kernel.reset(); }

    KernelStandIn& kernel = KernelStandIn::instance();
    TemporaryDirectory directory{memoryBase()};
};

TEST_F(KernelRefusal, OfAContextIsSaidWithTheLimitThatIsReached)
{
    kernel.setupRefusal = EAGAIN;
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(makeFactory(directory.path()), nullptr);

    EXPECT_THAT(errors.text(),
                testing::MatchesRegex("vetra: cannot set up 512 asynchronous requests: Resource "
                                      "temporarily unavailable: [0-9]+ of [0-9]+ allowed are in "
                                      "use; raise the limit with sysctl fs.aio-max-nr\n"));
}

TEST_F(KernelRefusal, OfAContextForAnotherReasonIsSaidWithoutTheLimit)
{
    kernel.setupRefusal = ENOMEM;
    const CapturedOutput errors(std::cerr);

    EXPECT_EQ(makeFactory(directory.path(), {{"size_kernel_io_queue", "2048"}}), nullptr);

    EXPECT_EQ(errors.text(),
              "vetra: cannot set up 2048 asynchronous requests: Cannot allocate memory\n");
}

TEST_F(KernelRefusal, OfALaterContextLeavesTheDirectoryFree)
{
    kernel.setupRefusal = EAGAIN;
    kernel.setupsBeforeRefusal = 2;
    {
        const CapturedOutput errors(std::cerr);
        EXPECT_EQ(makeFactory(directory.path(), {{"num_completion_queues", "4"}}), nullptr);
        EXPECT_THAT(errors.text(), HasSubstr("cannot set up 512"));
    }
    EXPECT_EQ(kernel.contextSizes().size(), 3U);

    kernel.setupRefusal = 0;
    EXPECT_NE(makeFactory(directory.path()), nullptr);
}

TEST_F(KernelRefusal, OfTheProbesWriteMeansNoDirectIO)
{
    kernel.writeFailure = EINVAL;
    const auto descriptors = unitTests::openDescriptors();

    const DirectIOAnswer answer = probeDirectIO(directory.path());

    EXPECT_FALSE(answer.isPossible);
    EXPECT_EQ(answer.reason, "a write: Invalid argument");
    EXPECT_THAT(unitTests::namesIn(directory.path()), IsEmpty());
    EXPECT_EQ(unitTests::openDescriptors(), descriptors);
}

TEST_F(KernelRefusal, OfTheProbesReadMeansNoDirectIO)
{
    kernel.readFailure = EOPNOTSUPP;

    const DirectIOAnswer answer = probeDirectIO(directory.path());

    EXPECT_FALSE(answer.isPossible);
    EXPECT_EQ(answer.reason, "a read: Operation not supported");
}

// A full or a broken disk says nothing about direct I/O.
TEST_F(KernelRefusal, OfTheProbeForAnotherReasonLeavesDirectIOPossible)
{
    for (const int other : {ENOSPC, EIO, EDQUOT}) {
        kernel.writeFailure = other;
        EXPECT_TRUE(probeDirectIO(directory.path()).isPossible) << other;
    }
}

TEST_F(KernelRefusal, OfTheFirstTransferLeadsToThePageCacheAfterOneWarning)
{
    kernel.writeFailure = EINVAL;
    std::string text;
    {
        const CapturedOutput errors(std::cerr);
        Layer layer(directory.path());
        kernel.writeFailure = 0;
        layer.file = layer.factory->openFile("datavol.dat", 2, 0, 33);
        layer.fillPages(4);
        // The page cache takes any place and size without a further word.
        layer.file->read(2 * page + 1, layer.pageAt(0), 100);
        text = errors.text();
        EXPECT_EQ(layer.pageAt(0)[0], 2);
    }

    EXPECT_EQ(text, "vetra: the file system of " + directory.path() +
                        " refuses direct I/O (a write: Invalid argument); the page cache is used, "
                        "and figures are not the device's\n");
}

class BlockingTransfer : public KernelRefusal {
protected:
    BlockingTransfer() { layer.fillPages(8); }
    // Before the stand-in is as it was.
    void TearDown() override
    {
        kernel.reset();
        layer.file.reset();
        layer.factory.reset();
    }

    Layer layer{directory.path()};
};

TEST_F(BlockingTransfer, GoesOnWhereAReadEndedShort)
{
    kernel.mostPerTransfer = 3 * page;

    layer.file->read(0, layer.pageAt(0), 8 * page);

    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(std::string(layer.pageAt(i), page), std::string(page, static_cast<char>(i)));
}

TEST_F(BlockingTransfer, GoesOnWhereAWriteEndedShort)
{
    kernel.mostPerTransfer = 3 * page;
    std::memset(layer.pageAt(0), 'a', 4 * page);
    std::memset(layer.pageAt(4), 'b', 4 * page);
    const std::uint64_t before = kernel.transfers;

    layer.file->write(0, layer.pageAt(0), 8 * page);

    EXPECT_EQ(kernel.transfers - before, 3U);
    EXPECT_EQ(unitTests::contentOf(directory / "datavol.dat"),
              std::string(4 * page, 'a') + std::string(4 * page, 'b'));
}

TEST_F(BlockingTransfer, IsRepeatedAfterAnInterruption)
{
    kernel.interruptedTransfers = 5;
    layer.file->read(page, layer.pageAt(0), page);
    EXPECT_EQ(layer.pageAt(0)[0], 1);
    EXPECT_EQ(kernel.interruptedTransfers, 0);

    kernel.interruptedTransfers = 5;
    layer.file->write(2 * page, layer.pageAt(0), page);
    EXPECT_EQ(unitTests::contentOf(directory / "datavol.dat")[2 * page], 1);
}

// How a process ends whose transfer the kernel does not serve.
class FailedTransfer : public KernelRefusal {
protected:
    unitTests::ChildEnd endAfter(const std::function<void(Layer&)>& transfer) const
    {
        return unitTests::inChild([&] {
            Layer layer(directory.path());
            layer.fillPages(8);
            std::cout << unitTests::namesIn(directory.path()).size() << std::flush;
            transfer(layer);
        });
    }
    void expectEnd(const unitTests::ChildEnd& end, const std::string& text) const
    {
        EXPECT_EQ(end.signal, SIGABRT);
        EXPECT_THAT(end.errors, testing::MatchesRegex("vetra: fatal: [^\n]*" + text + "[^\n]*\n"));
        EXPECT_EQ(end.output, "1");
        EXPECT_THAT(unitTests::namesIn(directory.path()), IsEmpty());
    }
};

TEST_F(FailedTransfer, IsAReadThatIsInterruptedForEver)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.interruptedTransfers = KernelStandIn::forEver;
                  layer.file->read(page, layer.pageAt(0), page);
              }),
              "EINTR[^\n]*read of " + directory.path() + "/datavol.dat at offset 4096, size 4096");
}

TEST_F(FailedTransfer, IsAWriteThatIsInterruptedForEver)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.interruptedTransfers = KernelStandIn::forEver;
                  layer.file->write(page, layer.pageAt(0), page);
              }),
              "EINTR[^\n]*write of " + directory.path() + "/datavol.dat at offset 4096, size 4096");
}

TEST_F(FailedTransfer, IsAReadThatTheDeviceFails)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.readFailure = EIO;
                  layer.file->read(0, layer.pageAt(0), 2 * page);
              }),
              "EIO[^\n]*read of " + directory.path() + "/datavol.dat at offset 0, size 8192");
}

TEST_F(FailedTransfer, IsAWriteThatTheDeviceFails)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.writeFailure = EIO;
                  layer.file->write(0, layer.pageAt(0), 2 * page);
              }),
              "EIO[^\n]*write of " + directory.path() + "/datavol.dat at offset 0, size 8192");
}

TEST_F(FailedTransfer, IsAReadOfNothing)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.mostPerTransfer = 0;
                  layer.file->read(0, layer.pageAt(0), page);
              }),
              "ENODATA[^\n]*read of ");
}

TEST_F(FailedTransfer, IsAWriteOfNothing)
{
    expectEnd(endAfter([this](Layer& layer) {
                  kernel.mostPerTransfer = 0;
                  layer.file->write(0, layer.pageAt(0), page);
              }),
              "ENOSPC[^\n]*write of ");
}

}  // namespace
