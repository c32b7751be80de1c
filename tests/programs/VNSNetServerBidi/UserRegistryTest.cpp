#include "programs/VNSNetServerBidi/UserRegistry.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "programs/VNSNetServerBidi/Patience.h"
#include "tests/programs/VNSNetServerBidi/OwnNetwork.h"
#include "tests/services/JoltNet/RawPeer.h"
#include "tests/services/support/ChildProcess.h"

namespace {

using NetServer::Holder;
using NetServer::UserRegistry;
using Port = std::optional<unsigned short>;

constexpr uid_t anotherUser = 65534;

class UserRegistryTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!netTests::hasOwnNetwork())
            GTEST_SKIP() << "no network of its own";
    }

    UserRegistry::OnJoin answering(Port port)
    {
        return [this, port] {
            ++joined;
            return port;
        };
    }

    std::atomic<int> joined{0};
};

Port joinRunning()
{
    return UserRegistry::joinRunning().port;
}

// The name under which servers of this user find each other.
socklen_t ownName(sockaddr_un& address)
{
    const std::string name = "vetra-network-server-" + std::to_string(::geteuid());
    address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(&address.sun_path[1], name.data(), name.size());
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

// Somebody of another user, who cannot be asked who they are as long as they do not listen.
class BoundName {
public:
    BoundName() : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address;
        const socklen_t size = ownName(address);
        EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    }
    ~BoundName() { ::close(socket); }
    BoundName(const BoundName&) = delete;
    BoundName& operator=(const BoundName&) = delete;

    void listen(int backlog) const { EXPECT_EQ(::listen(socket, backlog), 0); }

private:
    int socket;
};

TEST_F(UserRegistryTest, FindsNoServerIfThereIsNone)
{
    EXPECT_EQ(joinRunning(), std::nullopt);
}

TEST_F(UserRegistryTest, GivesThePortToEachWhoJoins)
{
    const UserRegistry registry(answering(4464));
    EXPECT_TRUE(registry.isOpen());
    EXPECT_EQ(joined, 0);

    EXPECT_EQ(joinRunning(), 4464);
    EXPECT_EQ(joinRunning(), 4464);
    EXPECT_EQ(joined, 2);
}

TEST_F(UserRegistryTest, LetsNobodyJoinAServerThatIsAboutToEnd)
{
    const UserRegistry registry(answering(std::nullopt));

    EXPECT_EQ(joinRunning(), std::nullopt);
    EXPECT_EQ(joined, 1);
}

TEST_F(UserRegistryTest, IsOpenOnce)
{
    const UserRegistry first(answering(1));
    UserRegistry second(answering(2));
    EXPECT_FALSE(second.isOpen());
    second.close();
    second.closeAndWait();

    EXPECT_EQ(joinRunning(), 1);
}

TEST_F(UserRegistryTest, LetsNobodyJoinOnceItIsClosed)
{
    UserRegistry registry(answering(1));
    registry.close();
    registry.close();
    EXPECT_EQ(joinRunning(), std::nullopt);
    registry.closeAndWait();
    registry.closeAndWait();

    EXPECT_EQ(joinRunning(), std::nullopt);
    EXPECT_EQ(joined, 0);
}

TEST_F(UserRegistryTest, FreesItsNameAtOnceWhenItIsClosed)
{
    for (int i = 0; i < 20; ++i) {
        UserRegistry registry(answering(1));
        ASSERT_TRUE(registry.isOpen());
        EXPECT_FALSE(registry.isNameTaken());
        registry.close();

        const UserRegistry next(answering(3));
        ASSERT_TRUE(next.isOpen());
        EXPECT_EQ(joinRunning(), 3);
        registry.close();
        EXPECT_EQ(joinRunning(), 3);
    }
}

TEST_F(UserRegistryTest, IsClosedBehindTheBackOfOneWhoIsAnswered)
{
    // Whoever closes it may hold what the answer waits for.
    std::atomic<bool> isAsked{false};
    std::atomic<bool> isClosed{false};
    UserRegistry registry([&]() -> Port {
        isAsked = true;
        netTests::until([&] { return isClosed.load(); });
        return isClosed ? Port(7) : std::nullopt;
    });
    Port port;
    std::thread joiner([&port] { port = joinRunning(); });
    netTests::until([&] { return isAsked.load(); });
    registry.close();
    isClosed = true;
    joiner.join();

    EXPECT_EQ(port, 7);
    EXPECT_TRUE(UserRegistry(answering(1)).isOpen());
}

// In a child, which an alarm ends if it hangs.
TEST_F(UserRegistryTest, IsClosedThoughThereIsNoDescriptorForWhoeverWaits)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer of undefined behaviour needs descriptors to look at objects";
#endif
    const unitTests::ChildEnd end = unitTests::inChild([this] {
        ::alarm(20);
        UserRegistry registry(answering(1));
        const int joiner = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const rlimit none{1, 1};
        ::setrlimit(RLIMIT_NOFILE, &none);
        sockaddr_un address;
        const socklen_t size = ownName(address);
        ::connect(joiner, reinterpret_cast<sockaddr*>(&address), size);
        registry.closeAndWait();
        std::cout << "closed" << std::endl;
    });
    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(end.output, "closed\n");
}

TEST_F(UserRegistryTest, LivesOnIfSomebodyJoinsAndGoes)
{
    const UserRegistry registry(answering(1));
    sockaddr_un address;
    const socklen_t size = ownName(address);
    for (int i = 0; i < 3; ++i) {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
        ::close(socket);
    }

    EXPECT_EQ(joinRunning(), 1);
}

std::atomic<int> interruptions{0};

// As a profiler would: a signal that asks for calls to go on, which those with a time-out do not.
TEST_F(UserRegistryTest, IsJoinedThoughSignalsInterruptTheOneWhoJoins)
{
    struct sigaction before {};
    struct sigaction action {};
    action.sa_handler = [](int) { ++interruptions; };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, &before);
    const pthread_t joiner = ::pthread_self();
    const UserRegistry registry([joiner]() -> Port {
        for (int i = 0; i < 20; ++i) {
            const int known = interruptions;
            ::pthread_kill(joiner, SIGUSR1);
            while (interruptions == known)
                std::this_thread::yield();
        }
        return 4464;
    });

    EXPECT_EQ(joinRunning(), 4464);
    ::sigaction(SIGUSR1, &before, nullptr);
}

class OtherUsers : public UserRegistryTest {
protected:
    void SetUp() override
    {
        UserRegistryTest::SetUp();
        if (!IsSkipped() && ::geteuid() != 0)
            GTEST_SKIP() << "only root can act for another user";
    }
};

TEST_F(OtherUsers, AreNotAnswered)
{
    const UserRegistry registry(answering(1));
    sockaddr_un address;
    const socklen_t size = ownName(address);
    const pid_t child = ::fork();
    if (child == 0) {
        char byte = 0;
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool isEmpty = ::setuid(anotherUser) == 0 &&
                             ::connect(socket, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                             ::recv(socket, &byte, 1, 0) == 0;
        ::_exit(isEmpty ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(joined, 0);
}

TEST_F(OtherUsers, AreNotBelieved)
{
    sockaddr_un address;
    const socklen_t size = ownName(address);
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const unsigned short port = 22;
        const bool isListening = ::setuid(anotherUser) == 0 &&
                                 ::bind(socket, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                                 ::listen(socket, 1) == 0 && ::write(ready[1], "x", 1) == 1;
        const int peer = isListening ? ::accept(socket, nullptr, nullptr) : -1;
        const bool isSent = ::send(peer, &port, sizeof port, MSG_NOSIGNAL) >= 0 || peer >= 0;
        ::_exit(isSent ? 0 : 1);
    }
    ::close(ready[1]);
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);

    EXPECT_EQ(joinRunning(), std::nullopt);
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(OtherUsers, AreSeenToHoldTheName)
{
    {
        const UserRegistry registry(answering(1));
        const UserRegistry::Joining joining = UserRegistry::joinRunning();
        EXPECT_EQ(joining.port, 1);
        EXPECT_EQ(joining.holder, Holder::sameUser);
        // Nothing else that was asked counts as a user.
        EXPECT_EQ(joined, 1);
    }
    const BoundName bound;
    // Whoever says that they listen is the one who is seen.
    ASSERT_EQ(::seteuid(anotherUser), 0);
    bound.listen(4);
    ASSERT_EQ(::seteuid(0), 0);

    const UserRegistry::Joining joining = UserRegistry::joinRunning();
    EXPECT_EQ(joining.port, std::nullopt);
    EXPECT_EQ(joining.holder, Holder::otherUser);
}

TEST_F(UserRegistryTest, TellsOneWhoIsAboutToEndFromOneWhoSaysNothing)
{
    EXPECT_EQ(UserRegistry::joinRunning().holder, Holder::silent);
    {
        const UserRegistry ending(answering(std::nullopt));
        EXPECT_EQ(UserRegistry::joinRunning().holder, Holder::sameUser);
    }
    const BoundName bound;
    EXPECT_EQ(UserRegistry::joinRunning().holder, Holder::silent);
    const UserRegistry other(answering(1));
    EXPECT_FALSE(other.isOpen());
    EXPECT_TRUE(other.isNameTaken());
}

TEST_F(UserRegistryTest, WaitsForNobodyWhoseQueueIsFull)
{
    const BoundName bound;
    bound.listen(0);
    sockaddr_un address;
    const socklen_t size = ownName(address);
    const int waiting = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::connect(waiting, reinterpret_cast<sockaddr*>(&address), size), 0);

    EXPECT_EQ(UserRegistry::joinRunning().holder, Holder::silent);
    ::close(waiting);
}

// As long as one who answers is there, a start waits for it; half a second for one who does not.
TEST(Patience, DependsOnWhoHoldsTheName)
{
    const NetServer::Patience::Clock::time_point begin{};
    const auto isLeft = [&](std::initializer_list<std::pair<Holder, int>> tries) {
        NetServer::Patience patience(begin);
        bool result = false;
        for (const auto& [holder, milliseconds] : tries)
            result = patience.isLeft(holder, begin + std::chrono::milliseconds(milliseconds));
        return result;
    };
    EXPECT_TRUE(isLeft({{Holder::silent, 0}}));
    EXPECT_TRUE(isLeft({{Holder::silent, 499}}));
    EXPECT_FALSE(isLeft({{Holder::silent, 500}}));
    EXPECT_TRUE(isLeft({{Holder::sameUser, 14'999}}));
    EXPECT_FALSE(isLeft({{Holder::sameUser, 15'000}}));
    EXPECT_TRUE(isLeft({{Holder::sameUser, 3000}, {Holder::silent, 3499}}));
    EXPECT_FALSE(isLeft({{Holder::sameUser, 3000}, {Holder::silent, 3500}}));
    EXPECT_FALSE(isLeft({{Holder::sameUser, 14'900}, {Holder::silent, 15'000}}));
    EXPECT_FALSE(isLeft({{Holder::otherUser, 0}}));
}

}  // namespace
