#pragma once

#include <cstdint>
#include <exception>

namespace FileAccess {

/// Who is told when an asynchronous request has ended.
///
/// Exactly one of the three operations is called for each request that was accepted, outside of
/// every lock: on a thread of the layer, or, if the kernel refuses a request under synchronous
/// submission, on the thread that issued it. It must neither block nor issue requests that are
/// submitted synchronously, since the completions behind it wait, nor ask for statistics.
class FileCallback {
public:
    /// What ended.
    struct Status {
        std::uint64_t offset;  ///< bytes from the beginning of the file
        std::uint64_t size;    ///< bytes asked for
        void* context;         ///< what the request was given
    };

    virtual void dataRead(const Status& status) = 0;
    virtual void dataWritten(const Status& status) = 0;
    /// The text of the exception names operation, file, offset, size and system error.
    virtual void transferError(const Status& status, const std::exception& error) = 0;
    virtual ~FileCallback() = default;
};

}  // namespace FileAccess
