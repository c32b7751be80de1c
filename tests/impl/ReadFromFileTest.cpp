#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "impl/VetraHelper.h"
#include "tests/impl/DriverTest.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using unitTests::linesOf;
using unitTests::writeFile;

class ReadFromFileTest : public unitTests::DriverTest {
protected:
    /// Returns the text of the exception, or "" if there was none.
    std::string read(std::string_view path)
    {
        try {
            helper.readFromFile(text(path), content);
        } catch (const Vetra::VetraException& exception) {
            EXPECT_EQ(exception.record(), &Vetra__ERR_INVALID_FILEDESCRIPTOR());
            return exception.what();
        }
        return "";
    }

    Vetra::VetraHelper helper{*domain};
    Basis::string content{"what was there", domain.get()};
};

constexpr const char* refusal =
    "4 ERR_INVALID_FILEDESCRIPTOR: Invalid file descriptor: Error while opening the file. "
    "\\(VetraHelper\\.cpp:[0-9]+\\)";

TEST_F(ReadFromFileTest, FillsTheContentWithTheWholeFile)
{
    writeFile("file", "{\n  \"a\": 1\n}");

    EXPECT_EQ(read("file"), "");

    EXPECT_EQ(content, "{\n  \"a\": 1\n}");
}

TEST_F(ReadFromFileTest, TakesBytesOfAnyKind)
{
    const std::string bytes("\r\n\0\xff\x1a end\n\n", 11);
    writeFile("file", bytes);

    read("file");

    EXPECT_EQ(std::string_view(content), bytes);
}

TEST_F(ReadFromFileTest, EmptyFileGivesAnEmptyContent)
{
    writeFile("file", "");

    EXPECT_EQ(read("file"), "");

    EXPECT_EQ(content, "");
}

TEST_F(ReadFromFileTest, TakesFilesLargerThanABuffer)
{
    std::string large;
    for (int i = 0; large.size() < 1'000'000; ++i)
        large += std::to_string(i) + "\n";
    writeFile("file", large);

    read("file");

    EXPECT_TRUE(std::string_view(content) == large);
}

TEST_F(ReadFromFileTest, SaysInTheLogWhatIsRead)
{
    writeFile("file", "");

    read("file");

    EXPECT_THAT(linesOf("vetra.trc"), ElementsAre(EndsWith(" TRACE INFO: Reading from file file")));
    EXPECT_EQ(output.text(), "");
}

TEST_F(ReadFromFileTest, ClosesTheFile)
{
    writeFile("file", "x");
    writeFile("vetra.trc", "");
    const auto before = unitTests::openDescriptors().size();

    read("file");

    const std::size_t ofTheLogLine = 1;
    EXPECT_EQ(unitTests::openDescriptors().size(), before + ofTheLogLine);
}

TEST_F(ReadFromFileTest, MissingFileIsLoggedAndRaised)
{
    EXPECT_THAT(read("no/such.json"), testing::MatchesRegex(refusal));

    EXPECT_THAT(linesOf("vetra.trc"),
                ElementsAre(EndsWith(" TRACE INFO: Reading from file no/such.json"),
                            EndsWith(" TRACE ERROR: Reading from file no/such.jsonError")));
    EXPECT_EQ(content, "what was there");
    EXPECT_EQ(output.text(), "");
}

TEST_F(ReadFromFileTest, DirectoryIsLoggedAndRaised)
{
    std::filesystem::create_directory("directory");

    EXPECT_THAT(read("directory"), testing::MatchesRegex(refusal));

    EXPECT_THAT(linesOf("vetra.trc"),
                ElementsAre(EndsWith("file directory"), EndsWith("file directoryError")));
}

TEST_F(ReadFromFileTest, EmptyPathIsRaised)
{
    EXPECT_THAT(read(""), testing::MatchesRegex(refusal));
}

}  // namespace
