// How a peer's server is started, by what ssh prints.
#include <gmock/gmock.h>

#include <iostream>
#include <memory>
#include <string>

#include "impl/network/RemoteCommand.h"
#include "impl/network/VNSNetTester.h"
#include "tests/impl/network/FakeSsh.h"
#include "tests/services/support/CapturedOutput.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using unitTests::CapturedOutput;

class StartServer : public testing::Test {
protected:
    bool start(std::string_view host = "peer")
    {
        return tester.startServer(Basis::string(host, domain.get()));
    }

    // Starts a server of which ssh brings back this text.
    bool startsWith(const std::string& text)
    {
        ssh.printsWhenStarting(text);
        return start();
    }

    netTests::FakeSsh ssh;
    std::shared_ptr<Basis::Allocator> domain =
        Basis::Allocator::createChild(Basis::Allocator::global(), "tester", 0);
    vetraTests::VNSNetTester tester{*domain};
    CapturedOutput out;
    CapturedOutput err{std::cerr};
};

TEST_F(StartServer, CallsTheServerBelowTheCurrentDirectory)
{
    start("peer-1.example");

    const std::string& base = ssh.path();
    EXPECT_THAT(ssh.calls(), ElementsAre("peer-1.example cd " + base + " && source " + base +
                                         "/envprofile.sh && " + base + "/lib/VNSNetServerBidi &"));
}

TEST_F(StartServer, CallsTheServerBelowTheRemoteBaseDirectory)
{
    const unitTests::EnvironmentVariable base("remote_base_dir", "/opt/vetra-1.0_x,y=z:@%+");
    start();

    EXPECT_THAT(ssh.calls(), ElementsAre("peer cd /opt/vetra-1.0_x,y=z:@%+ && source "
                                         "/opt/vetra-1.0_x,y=z:@%+/envprofile.sh && "
                                         "/opt/vetra-1.0_x,y=z:@%+/lib/VNSNetServerBidi &"));
}

TEST_F(StartServer, HasStartedWithAnyFirstLineButTheGreeting)
{
    EXPECT_TRUE(startsWith("listening on port 4464\n"));
    EXPECT_TRUE(startsWith("shutdown\n"));
    EXPECT_TRUE(startsWith("bash: line 1: no such file\n"));
    EXPECT_EQ(out.text(), "listening on port 4464\nshutdown\nbash: line 1: no such file\n");
}

TEST_F(StartServer, HasNotStartedIfTheFirstLineBeginsWithTheGreeting)
{
    EXPECT_FALSE(startsWith("accepting requests\n"));
    EXPECT_FALSE(startsWith("accepting requests on port 4464\nlistening\n"));
    EXPECT_EQ(out.text(), "accepting requests\naccepting requests on port 4464\n");
}

TEST_F(StartServer, HasStartedIfTheGreetingStandsElsewhere)
{
    EXPECT_TRUE(startsWith("now accepting requests\n"));
    EXPECT_TRUE(startsWith(" accepting requests\n"));
    EXPECT_TRUE(startsWith("accepting request\n"));
    EXPECT_TRUE(startsWith("ready\naccepting requests\n"));
}

TEST_F(StartServer, PassesOverEmptyLinesAndLinesOfTabs)
{
    EXPECT_TRUE(startsWith("\n\n\t\t\nready\t\t\nmore\n"));
    EXPECT_EQ(out.text(), "ready\n");
    EXPECT_FALSE(startsWith("\n\t\naccepting requests\n"));
}

TEST_F(StartServer, KeepsTabsAndBlanksThatAreNotAtTheEnd)
{
    EXPECT_TRUE(startsWith("\tready \n"));
    EXPECT_TRUE(startsWith(" \n"));
    EXPECT_EQ(out.text(), "\tready \n \n");
}

TEST_F(StartServer, HasNotStartedWithoutAnyOutput)
{
    EXPECT_FALSE(startsWith(""));
    EXPECT_FALSE(startsWith("\n\n\t\n"));
    EXPECT_EQ(out.text(), "");
}

TEST_F(StartServer, TakesALastLineWithoutItsEnd)
{
    EXPECT_TRUE(startsWith("ready"));
    EXPECT_EQ(out.text(), "ready\n");
}

TEST_F(StartServer, TakesLongLinesInPieces)
{
    EXPECT_TRUE(startsWith(std::string(2500, 'x') + "\n"));
    EXPECT_EQ(out.text(), std::string(999, 'x') + "\n");
    // A piece of nothing but tabs is passed over like an empty line.
    EXPECT_FALSE(startsWith(std::string(999, '\t') + "accepting requests\n"));
}

TEST_F(StartServer, WaitsForTheEndOfSsh)
{
    ssh.whenStarting("echo ready\nexec > /dev/null\necho over > ended\n");

    EXPECT_TRUE(start());
    EXPECT_EQ(unitTests::contentOf("ended"), "over\n");
}

TEST_F(StartServer, HasNotStartedIfNoCommandCanBeRun)
{
    const netTests::RefusedCommands refused;

    EXPECT_FALSE(start());
    EXPECT_THAT(ssh.calls(), IsEmpty());
}

TEST_F(StartServer, HasNotStartedWithoutACurrentDirectory)
{
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove(ssh.path() + "/gone");
    ssh.printsWhenStarting("ready\n");

    EXPECT_FALSE(start());
    const unitTests::EnvironmentVariable base("remote_base_dir", "/opt/vetra");
    EXPECT_FALSE(start());
    EXPECT_THAT(ssh.calls(), IsEmpty());
}

TEST_F(StartServer, RefusesWhatIsNoHostName)
{
    ssh.printsWhenStarting("ready\n");
    for (const std::string host : {"", "-oProxyCommand=x", "-", "a b", "a;b", "user@a", "a/b", "$a",
                                   "`a`", "a\n", "a\"b", "a\xc3\xa4", "::1"}) {
        const CapturedOutput line(std::cerr);
        EXPECT_FALSE(start(host)) << host;
        EXPECT_THAT(line.text(), HasSubstr("vetra: \"" + host + "\" is no host name: "));
        EXPECT_EQ(line.text().back(), '\n');
    }
    EXPECT_EQ(out.text(), "");
    EXPECT_THAT(ssh.calls(), IsEmpty());
}

TEST_F(StartServer, RefusesADirectoryThatAShellWouldTakeForMore)
{
    ssh.printsWhenStarting("ready\n");
    for (const std::string base :
         {"", "relative", "./x", "/a b", "/a\tb", "/a\"b", "/a'b", "/$HOME", "/`id`", "/a;b",
          "/a&b", "/a|b", "/a\\b", "/a\nb", "~/x"}) {
        const unitTests::EnvironmentVariable variable("remote_base_dir", base.c_str());
        const CapturedOutput line(std::cerr);
        EXPECT_FALSE(start()) << base;
        EXPECT_THAT(line.text(), HasSubstr("the base directory \"" + base + "\""));
    }
    EXPECT_THAT(ssh.calls(), IsEmpty());
}

TEST(RemoteCommand, GivesTheLinesOfACommandWithoutTheirEnds)
{
    Basis::Allocator& domain = *Basis::Allocator::global();
    Basis::string line(&domain);
    vetraTests::RemoteCommand command(Basis::string("printf 'a b\\t\\n\\n\\tc'", &domain));

    EXPECT_TRUE(command.nextLine(line));
    EXPECT_EQ(line, "a b");
    EXPECT_TRUE(command.nextLine(line));
    EXPECT_EQ(line, "");
    EXPECT_TRUE(command.nextLine(line));
    EXPECT_EQ(line, "\tc");
    EXPECT_FALSE(command.nextLine(line));
    EXPECT_FALSE(command.nextLine(line));
}

TEST(RemoteCommand, KnowsPlainHostNames)
{
    for (const char* host : {"a", "peer", "PEER-1.example.org", "10.0.0.1", "_x", "0"})
        EXPECT_TRUE(vetraTests::isPlainHostName(host)) << host;
    for (const char* host : {"", "-a", " a", "a ", "a:b", "a%b", "a\x7f"})
        EXPECT_FALSE(vetraTests::isPlainHostName(host)) << host;
    EXPECT_FALSE(vetraTests::isPlainHostName(std::string_view("a\0b", 3)));
}

TEST(RemoteCommand, KnowsPlainDirectories)
{
    for (const char* directory : {"/", "/opt/vetra", "/opt/vetra-1.0_x", "/\xc3\xa4", "/x/ver~1",
                                  "/x/c#", "/x/x^y", "/x/hi!", "/~", "/#", "/^", "/!", "/a:~=#"})
        EXPECT_TRUE(vetraTests::isPlainDirectory(directory)) << directory;
    for (const char* directory :
         {"",     "a",    ".",    "/a b", "/a\x7f", "/a*",  "/a?",   "/[a]",  "/{a}",   "/(a)",
          "/<a",  "/>a",  "~/x",  "~",    "#/x",    "!/x",  "^/x",   "/a #b", "/a\n#b", "/a;b",
          "/a&b", "/a|b", "/a$b", "/a`b", "/a\\b",  "/a'b", "/a\"b", "/a\tb", "/a\x1b"})
        EXPECT_FALSE(vetraTests::isPlainDirectory(directory)) << directory;
}

}  // namespace
