#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "JoltNet/Channel.h"

namespace NetServer {

/// Who has answered at the registry's name, if anybody has.
enum class Holder { silent, sameUser, otherUser };

/// How servers of one user and one host find each other: a socket without a file, which goes with
/// its process. Its name holds the user's number, and both sides look who the other one is.
class UserRegistry {
public:
    struct Joining {
        std::optional<unsigned short> port{};  ///< of the server that has one more user now
        Holder holder = Holder::silent;        ///< a server of the same user without a port ends
    };
    /// Registers one more user with the server that runs already. (To look who holds the name with
    /// a connection of its own would register one more with a server that has come meanwhile.)
    static Joining joinRunning();

    /// Makes this process the one that others join; `isOpen` says whether that has worked. `onJoin`
    /// takes one more user and returns the port, or nothing if the server is about to end; it runs
    /// on a thread of the registry.
    using OnJoin = std::function<std::optional<unsigned short>()>;
    /// `onLeave`, if there is one, takes back a user who did not hear of it.
    explicit UserRegistry(OnJoin onJoin, std::function<void()> onLeave = {});
    ~UserRegistry();
    UserRegistry(const UserRegistry&) = delete;
    UserRegistry& operator=(const UserRegistry&) = delete;

    bool isOpen() const { return thread.joinable(); }
    /// Whether it is not open because somebody else has the name.
    bool isNameTaken() const { return nameTaken; }
    /// From now on nobody joins, and the name is free. May be called from any thread, and more than
    /// once.
    void close();
    /// The same, and `onJoin` does not run any more either.
    void closeAndWait();

private:
    void answerAll();
    std::optional<JoltNet::Descriptor> nextPeer();
    void answer(int peer) const;

    OnJoin join;
    std::function<void()> leave;
    bool nameTaken = false;
    std::atomic<bool> isClosing{false};
    std::mutex closing;  // one closes at a time
    std::mutex mutex;    // held while somebody waits at the listener, and while it goes
    std::optional<JoltNet::Descriptor> listener;
    std::thread thread;
};

}  // namespace NetServer
