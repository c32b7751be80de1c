#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "Basis/Containers.h"
#include "Configuration/ConfigurationHandler.h"
#include "FileAccess/File.h"
#include "FileAccess/FileStatistics.h"

namespace FileAccess {

/// What a factory offers to those who measure it.
class FileFactorySPI {
public:
    virtual ~FileFactorySPI() = default;

    /// The counters of the factory; null if it keeps none. Returns only when no completion thread
    /// is inside a callback, so that nothing of an earlier pass follows.
    virtual FileStatistics* getStatistics() { return nullptr; }

    /// A snapshot of the counters for requests of that size; all zero if there were none. Valid
    /// until the next call.
    virtual const DetailedStatistics& getDetailedStatistics(std::uint64_t blockSize) = 0;
};

/// Opens files below one directory and carries out their requests with kernel asynchronous I/O.
///
/// Parameters of the section "fileio": num_completion_queues [1, 16], num_submit_queues [1, 16],
/// size_kernel_io_queue [128, 2048], max_parallel_io_requests [1, size_kernel_io_queue],
/// min_submit_batch_size, max_submit_batch_size, async_read_submit (on, off),
/// async_write_submit_active (on, off, auto), async_write_submit_blocks (all, new, none). Values
/// out of range are put to the nearest that is allowed, values that clash to the nearest consistent
/// set, unknown words to the default; getConfigStatisticsString shows what is in force.
///
/// Files are opened for direct I/O. Where the file system refuses that, or takes it and fails the
/// first aligned transfer, the factory goes on with cached I/O and says so once on standard error.
///
/// Threads:    createInstance starts one thread per submit queue and one per completion queue. All
///             operations may be called from any thread.
/// Ownership:  files hold their factory's machinery; close them first. The destructor waits for the
///             requests that were accepted, then for the threads.
/// Errors:     createInstance, openFile and ensureSpace never throw: one line on standard error and
///             null or false.
/// At its end: a file for which removeAtEnd holds is deleted by the destructor, by an assertion or
///             a crash, and by SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE and SIGXFSZ, after which
///             the signal takes its usual effect.
class FileFactory : public FileFactorySPI {
public:
    enum class Type : int { volume = 2 };
    enum class Usage : int { data = 1 };

    /// A factory for the directory `root`. A directory serves one factory at a time, in this
    /// process and in all others. `permissions` are those of new files; `flags` are reserved.
    static std::shared_ptr<FileFactory> createInstance(
        const Configuration::ConfigurationHandler& configuration, Type type,
        const Basis::string& root, unsigned permissions, unsigned flags, Usage usage);

    /// The directory, as createInstance was given it.
    virtual const Basis::string& getRoot() const = 0;

    /// Bytes of a control block; a multiple of 64. The memory must be aligned to 64 bytes.
    virtual std::size_t getIOControlBlockSize() const = 0;
    /// Makes a control block in the given memory, which stays the caller's.
    virtual IOControlBlock* constructIOControlBlock(void* memory) const = 0;

    /// Opens the file of that name, creating it if it is missing. `mode`, `sharing` and `flags` are
    /// 2, 0 and 33: both directions, by this factory alone, direct and asynchronous.
    virtual std::shared_ptr<File> openFile(const char* name, int mode, int sharing, int flags) = 0;
    virtual bool fileExists(const char* name) const = 0;
    virtual void removeFile(const char* name) = 0;

    /// True if a file of `size` bytes can be written in the place of the one of that name, if there
    /// is one.
    virtual bool ensureSpace(const char* name, std::uint64_t size) = 0;

    /// Says whether the file is to be deleted when the process or the factory ends.
    virtual void removeAtEnd(const char* name, bool remove) = 0;
};

}  // namespace FileAccess
