#pragma once

#include <string>

namespace FileAccess {

/// Holds a directory for one factory, among all processes that see the directory through this
/// kernel. The lock is the directory's own (flock), so nothing is left behind. Where a file system
/// has no such locks (some network file systems) the directory is not held.
class DirectoryLock {
public:
    DirectoryLock() = default;
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

    enum class Result { taken, held, failed };
    /// `failed` leaves the reason in errno.
    Result take(const std::string& directory);

private:
    int descriptor = -1;
};

}  // namespace FileAccess
