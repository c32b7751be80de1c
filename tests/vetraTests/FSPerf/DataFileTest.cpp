#include <gtest/gtest.h>

#include "tests/vetraTests/FSPerf/RequestHandler.h"

namespace vetraTests {

namespace {

class DataFile : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(handler.init(options));
        layer.takeJournal();
    }

    template <class Operation>
    bool run(Operation operation)
    {
        bool succeeded = false;
        printed = printedBy([&] { succeeded = operation(); });
        return succeeded;
    }
    bool initDataFile()
    {
        return run([this] { return handler.initDataFile(options); });
    }
    bool openDataFile()
    {
        return run([this] { return handler.openDataFile(options); });
    }
    void cleanup()
    {
        run([this] {
            handler.cleanup(options);
            return true;
        });
    }

    FakeFileLayer layer;
    TestOptions options;
    OpenHandler handler;
    Printed printed;
};

constexpr OutputType talkativeTypes[] = {OutputType::VERBOSE, OutputType::FULL};
constexpr OutputType quietTypes[] = {OutputType::SHORT, OutputType::JSON, OutputType::JSON_SHORT};

}  // namespace

TEST_F(DataFile, IsCreatedInPlaceOfTheOldOne)
{
    layer.isFileThere = true;

    EXPECT_TRUE(initDataFile());

    EXPECT_EQ(layer.takeJournal(),
              "ensureSpace datavol.dat 40960\n"
              "fileExists datavol.dat\n"
              "removeFile datavol.dat\n"
              "removeAtEnd datavol.dat true\n"
              "openFile datavol.dat 2 0 33\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(DataFile, IsCreatedWhereThereIsNone)
{
    EXPECT_TRUE(initDataFile());

    EXPECT_EQ(layer.takeJournal(),
              "ensureSpace datavol.dat 40960\n"
              "fileExists datavol.dat\n"
              "removeAtEnd datavol.dat true\n"
              "openFile datavol.dat 2 0 33\n");
}

TEST_F(DataFile, IsClosedBeforeItIsCreatedAgain)
{
    ASSERT_TRUE(initDataFile());
    layer.takeJournal();

    EXPECT_TRUE(initDataFile());

    EXPECT_EQ(layer.takeJournal(),
              "close\n"
              "ensureSpace datavol.dat 40960\n"
              "fileExists datavol.dat\n"
              "removeFile datavol.dat\n"
              "removeAtEnd datavol.dat true\n"
              "openFile datavol.dat 2 0 33\n");
    EXPECT_EQ(layer.openFiles, 1U);
}

TEST_F(DataFile, CreationIsShownWhenTalkative)
{
    for (const OutputType type : talkativeTypes) {
        options.output(type);
        EXPECT_TRUE(initDataFile());
        EXPECT_EQ(printed.output, "Opening and initializing file \"/data/datavol.dat\"... done.\n");
    }
    for (const OutputType type : quietTypes) {
        options.output(type);
        EXPECT_TRUE(initDataFile());
        EXPECT_EQ(printed.output, "");
    }
}

TEST_F(DataFile, CreationShowsOneSlashBehindARootThatEndsInOne)
{
    options.m_directory_path = "/data/";
    OpenHandler other;
    ASSERT_TRUE(other.init(options));
    options.output(OutputType::VERBOSE);

    EXPECT_EQ(printedBy([&] { other.initDataFile(options); }).output,
              "Opening and initializing file \"/data/datavol.dat\"... done.\n");
}

TEST_F(DataFile, CreationFailsIfTheFileCannotBeOpened)
{
    layer.refusesFile = true;
    options.output(OutputType::VERBOSE);

    EXPECT_FALSE(initDataFile());

    EXPECT_EQ(printed.errors, "ERROR: Creation of data file failed!\n");
    EXPECT_EQ(printed.output, "Opening and initializing file \"/data/datavol.dat\"... ");
    EXPECT_EQ(handler.m_file, nullptr);
}

TEST_F(DataFile, CreationFailsForWantOfSpaceAndLeavesTheOldFile)
{
    layer.refusesSpace = true;
    layer.isFileThere = true;
    options.output(OutputType::VERBOSE);

    EXPECT_FALSE(initDataFile());

    EXPECT_EQ(layer.takeJournal(), "ensureSpace datavol.dat 40960\n");
    EXPECT_EQ(printed.errors, "ERROR: Creation of data file failed!\n");
    EXPECT_EQ(printed.output, "Opening and initializing file \"/data/datavol.dat\"... ");
}

TEST_F(DataFile, IsToStayAtTheEndWithNoclean)
{
    options.m_cleanup = false;

    EXPECT_TRUE(initDataFile());
    EXPECT_NE(layer.takeJournal().find("removeAtEnd datavol.dat false\n"), std::string::npos);

    EXPECT_TRUE(openDataFile());
    EXPECT_NE(layer.takeJournal().find("removeAtEnd datavol.dat false\n"), std::string::npos);
}

TEST_F(DataFile, OfAnEarlierRunIsOpened)
{
    layer.isFileThere = true;

    EXPECT_TRUE(openDataFile());

    EXPECT_EQ(layer.takeJournal(),
              "fileExists datavol.dat\n"
              "removeAtEnd datavol.dat true\n"
              "openFile datavol.dat 2 0 33\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(DataFile, ThatIsMissingIsNotOpenedAndNothingIsSaid)
{
    options.output(OutputType::VERBOSE);

    EXPECT_FALSE(openDataFile());

    EXPECT_EQ(layer.takeJournal(), "fileExists datavol.dat\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(DataFile, OpeningReleasesTheFileThatWasOpen)
{
    ASSERT_TRUE(initDataFile());
    layer.takeJournal();
    layer.isFileThere = false;

    EXPECT_FALSE(openDataFile());

    EXPECT_EQ(layer.takeJournal(), "close\nfileExists datavol.dat\n");
    EXPECT_EQ(handler.m_file, nullptr);
}

TEST_F(DataFile, OpeningFailsWithTheMessageOfCreation)
{
    layer.isFileThere = true;
    layer.refusesFile = true;
    options.output(OutputType::VERBOSE);

    EXPECT_FALSE(openDataFile());

    EXPECT_EQ(printed.errors, "ERROR: Creation of data file failed!\n");
    EXPECT_EQ(printed.output, "");
}

TEST_F(DataFile, OpeningIsShownWhenTalkative)
{
    layer.isFileThere = true;
    for (const OutputType type : talkativeTypes) {
        options.output(type);
        EXPECT_TRUE(openDataFile());
        EXPECT_EQ(printed.output, "File \"/data/datavol.dat\" opened.\n");
    }
    for (const OutputType type : quietTypes) {
        options.output(type);
        EXPECT_TRUE(openDataFile());
        EXPECT_EQ(printed.output, "");
    }
}

TEST_F(DataFile, IsFilledInOneWriteIfTheBufferIsAsLarge)
{
    ASSERT_TRUE(initDataFile());

    EXPECT_TRUE(handler.initFile(options));

    ASSERT_EQ(layer.requests.size(), 1U);
    EXPECT_EQ(layer.requests[0].offset, 0U);
    EXPECT_EQ(layer.requests[0].size, 10 * testBlock);
    EXPECT_EQ(layer.requests[0].buffer, handler.m_data_buffer.data());
    EXPECT_FALSE(layer.requests[0].isRead);
}

TEST(InitFile, FillsTheFileInAsManyWritesAsBuffersFitIntoIt)
{
    FakeFileLayer layer;
    TestOptions options(12);
    options.m_alloc_size = 4 * testBlock;
    OpenHandler handler;
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));

    EXPECT_TRUE(handler.initFile(options));

    ASSERT_EQ(layer.requests.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(layer.requests[i].offset, i * options.m_alloc_size);
        EXPECT_EQ(layer.requests[i].size, options.m_alloc_size);
        EXPECT_EQ(layer.requests[i].buffer, handler.m_data_buffer.data());
    }
}

TEST(InitFile, ShortensTheLastWriteToWhatIsLeft)
{
    FakeFileLayer layer;
    TestOptions options(10);
    options.m_alloc_size = 4 * testBlock;
    OpenHandler handler;
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));

    EXPECT_TRUE(handler.initFile(options));

    ASSERT_EQ(layer.requests.size(), 3U);
    EXPECT_EQ(layer.requests[2].offset, 8 * testBlock);
    EXPECT_EQ(layer.requests[2].size, 2 * testBlock);
}

TEST(InitFile, WritesTheConstantByteIntoAFileForLaterTests)
{
    FakeFileLayer layer;
    TestOptions options(2);
    OpenHandler handler;
    ASSERT_TRUE(handler.init(options) && handler.initDataFile(options));
    std::string written;
    layer.onRequest = [&written](const SeenRequest& request) {
        written.append(static_cast<const char*>(request.buffer), request.size);
    };

    EXPECT_TRUE(handler.initFile(options));

    EXPECT_EQ(written, std::string(2 * testBlock, '\x80'));
}

TEST_F(DataFile, IsClosedAndRemovedByCleanup)
{
    ASSERT_TRUE(initDataFile());
    layer.takeJournal();

    cleanup();

    EXPECT_EQ(layer.takeJournal(),
              "close\n"
              "fileExists datavol.dat\n"
              "removeFile datavol.dat\n"
              "removeAtEnd datavol.dat false\n");
    EXPECT_EQ(printed.output + printed.errors, "");
}

TEST_F(DataFile, ThatIsMissingIsNotRemovedByCleanup)
{
    cleanup();

    EXPECT_EQ(layer.takeJournal(), "fileExists datavol.dat\nremoveAtEnd datavol.dat false\n");
}

TEST_F(DataFile, StaysOpenWithNoclean)
{
    options.m_cleanup = false;
    ASSERT_TRUE(initDataFile());
    layer.takeJournal();

    cleanup();

    EXPECT_EQ(layer.takeJournal(), "");
    EXPECT_EQ(layer.openFiles, 1U);
    EXPECT_TRUE(layer.isFileThere);
}

TEST_F(DataFile, CleanupIsShownWhenTalkative)
{
    for (const OutputType type : talkativeTypes) {
        options.output(type);
        cleanup();
        EXPECT_EQ(printed.output, "Cleanup... close... remove... done.\n");
    }
    for (const OutputType type : quietTypes) {
        options.output(type);
        cleanup();
        EXPECT_EQ(printed.output, "");
    }
}

TEST_F(DataFile, CleanupThatKeepsTheFileIsShownWhenTalkative)
{
    options.m_cleanup = false;
    options.output(OutputType::VERBOSE);

    cleanup();

    EXPECT_EQ(printed.output, "Cleanup... done.\n");
}

}  // namespace vetraTests
