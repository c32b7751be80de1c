#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <thread>

namespace NetServer {

/// How servers of one user and one host find each other: a socket without a file, which goes with
/// its process. Its name holds the user's number, and both sides look who the other one is.
class UserRegistry {
public:
    /// Registers one more user with the server that runs already. Its port, or nothing if there is
    /// none or it is about to end. `isHeldByOther` becomes true if another user holds the name:
    /// nobody can be waited for then. (To look at that with a connection of its own would register
    /// one more user with a server that has come meanwhile.)
    static std::optional<unsigned short> joinRunning(bool& isHeldByOther);
    static std::optional<unsigned short> joinRunning()
    {
        bool isHeldByOther = false;
        return joinRunning(isHeldByOther);
    }

    /// Makes this process the one that others join; `isOpen` says whether that has worked. `onJoin`
    /// takes one more user and returns the port, or nothing if the server is about to end; it runs
    /// on a thread of the registry.
    using OnJoin = std::function<std::optional<unsigned short>()>;
    /// `onLeave`, if there is one, takes back a user who did not hear of it.
    explicit UserRegistry(OnJoin onJoin, std::function<void()> onLeave = {});
    ~UserRegistry();
    UserRegistry(const UserRegistry&) = delete;
    UserRegistry& operator=(const UserRegistry&) = delete;

    bool isOpen() const { return listener >= 0; }
    /// From now on nobody joins. May be called from any thread, and more than once.
    void close();
    /// The same, and `onJoin` does not run any more either.
    void closeAndWait();

private:
    void answerAll();
    void answer(int peer) const;

    OnJoin join;
    std::function<void()> leave;
    int listener = -1;
    std::thread thread;
};

}  // namespace NetServer
