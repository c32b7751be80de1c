#include "programs/VNSNetServerBidi/ServerOptions.h"

#include <gmock/gmock.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

namespace {

using NetServer::ServerOptions;
using testing::HasSubstr;
using Action = ServerOptions::Action;

std::string complaint;

std::optional<ServerOptions> read(std::initializer_list<const char*> words)
{
    std::vector<const char*> argv{"VNSNetServerBidi"};
    argv.insert(argv.end(), words);
    complaint.clear();
    return NetServer::readOptions(static_cast<int>(argv.size()), argv.data(), complaint);
}

// The options of a command line that must be right.
ServerOptions good(std::initializer_list<const char*> words)
{
    const std::optional<ServerOptions> options = read(words);
    EXPECT_TRUE(options) << complaint;
    EXPECT_EQ(complaint, "");
    return options.value_or(ServerOptions());
}

TEST(ServerOptions, AreThoseOfTheTestWithoutArguments)
{
    const ServerOptions options = good({});
    EXPECT_EQ(options.action, Action::serve);
    EXPECT_FALSE(options.isForeground);
    EXPECT_EQ(options.port, std::nullopt);
    EXPECT_EQ(options.bindAddress, "0.0.0.0");
    EXPECT_EQ(options.idleTimeout.count(), 900);

    const char* const nothing[] = {nullptr};
    EXPECT_TRUE(NetServer::readOptions(0, nothing, complaint));
}

TEST(ServerOptions, AreAllTakenAtOnce)
{
    const ServerOptions options =
        good({"--idle-timeout", "60", "--foreground", "--port", "30004", "--bind", "127.0.0.1"});
    EXPECT_EQ(options.action, Action::serve);
    EXPECT_TRUE(options.isForeground);
    EXPECT_EQ(options.port, 30004);
    EXPECT_EQ(options.bindAddress, "127.0.0.1");
    EXPECT_EQ(options.idleTimeout.count(), 60);
}

TEST(ServerOptions, AreTheLastOnesIfTheyAreGivenTwice)
{
    EXPECT_EQ(good({"--port", "1", "--port", "2"}).port, 2);
}

TEST(ServerOptions, AskForHelpAndVersionInTwoFormsEach)
{
    EXPECT_EQ(good({"-h"}).action, Action::help);
    EXPECT_EQ(good({"--help"}).action, Action::help);
    EXPECT_EQ(good({"-v"}).action, Action::version);
    EXPECT_EQ(good({"--version"}).action, Action::version);
    EXPECT_EQ(good({"--foreground", "--help", "--nonsense"}).action, Action::help);
}

TEST(ServerOptions, TakePortsFromZeroTo65535)
{
    EXPECT_EQ(good({"--port", "0"}).port, 0);
    EXPECT_EQ(good({"--port", "65535"}).port, 65535);
    for (const char* port :
         {"65536", "-1", "+1", "", " 1", "1 ", "0x1", "port", "1.0", "99999999999999999999"}) {
        EXPECT_FALSE(read({"--port", port})) << port;
        EXPECT_EQ(complaint,
                  std::string("--port takes a number from 0 to 65535, not '") + port + "'");
    }
}

TEST(ServerOptions, TakeIdleTimesFromASecondToAWeek)
{
    EXPECT_EQ(good({"--idle-timeout", "1"}).idleTimeout.count(), 1);
    EXPECT_EQ(good({"--idle-timeout", "604800"}).idleTimeout.count(), 604800);
    for (const char* time : {"0", "604801", "-1", "", "1s", "99999999999999999999"}) {
        EXPECT_FALSE(read({"--idle-timeout", time})) << time;
        EXPECT_EQ(complaint,
                  std::string("--idle-timeout takes seconds from 1 to 604800, not '") + time + "'");
    }
}

TEST(ServerOptions, TakeIpv4Addresses)
{
    EXPECT_EQ(good({"--bind", "10.1.2.3"}).bindAddress, "10.1.2.3");
    for (const char* address : {"", "localhost", "::1", "10.1.2", "10.1.2.256", "10.1.2.3 "}) {
        EXPECT_FALSE(read({"--bind", address})) << address;
        EXPECT_EQ(complaint, std::string("--bind takes an IPv4 address, not '") + address + "'");
    }
}

TEST(ServerOptions, AreRefusedWithoutTheirValue)
{
    for (const char* name : {"--port", "--bind", "--idle-timeout"}) {
        EXPECT_FALSE(read({"--foreground", name})) << name;
        EXPECT_THAT(complaint, testing::StartsWith(std::string(name) + " takes "));
        EXPECT_THAT(complaint, testing::EndsWith(", not ''"));
    }
}

TEST(ServerOptions, AreRefusedIfTheyAreUnknown)
{
    for (const char* word : {"", "-", "--", "port", "--Port", "--port=1", "-p", "--foregroun"}) {
        EXPECT_FALSE(read({word})) << word;
        EXPECT_EQ(complaint, std::string("unknown argument '") + word + "', see --help");
    }
}

TEST(ServerHelp, NamesAllOptionsAndFitsATerminal)
{
    for (const char* option : {"--foreground", "--port", "--bind", "--idle-timeout", "-h, --help",
                               "-v, --version", "4464", "0.0.0.0", "900"})
        EXPECT_THAT(NetServer::helpText, HasSubstr(option));
    std::istringstream lines{NetServer::helpText};
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 100U) << line;
}

}  // namespace
