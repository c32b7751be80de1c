#pragma once

#include <string>

namespace FileAccess {

/// Whether files of a directory can be read and written past the page cache.
struct DirectIOAnswer {
    bool isPossible;
    std::string reason;  ///< why not
};

/// Finds out by one aligned write and read of a file without a name, since some file systems take
/// such an opening and then fail the transfer. A failure that has another cause, such as a full
/// file system, counts as possible: the transfers themselves will show it.
DirectIOAnswer probeDirectIO(const std::string& directory);

}  // namespace FileAccess
