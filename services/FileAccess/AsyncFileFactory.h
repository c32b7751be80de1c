#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "FileAccess/AsyncFile.h"
#include "FileAccess/DirectoryLock.h"
#include "FileAccess/FileFactory.h"
#include "FileAccess/LocalFileCompletionThread.h"
#include "FileAccess/SubmitThread.h"

namespace FileAccess {

/// The factory behind FileFactory::createInstance.
class AsyncFileFactory : public FileFactory {
public:
    AsyncFileFactory(const FileIOParameters& fileParameters, const Basis::string& rootDirectory,
                     unsigned filePermissions);
    ~AsyncFileFactory() override;

    /// Takes the directory, makes the kernel contexts and starts the threads. False, after one line
    /// on standard error, if that is not possible.
    bool open();

    FileStatistics* getStatistics() override;
    const DetailedStatistics& getDetailedStatistics(std::uint64_t blockSize) override;
    const Basis::string& getRoot() const override { return root; }
    std::size_t getIOControlBlockSize() const override { return sizeof(IOControlBlock); }
    IOControlBlock* constructIOControlBlock(void* memory) const override;
    std::shared_ptr<File> openFile(const char* name, int mode, int sharing, int flags) override;
    bool fileExists(const char* name) const override;
    void removeFile(const char* name) override;
    bool ensureSpace(const char* name, std::uint64_t size) override;
    void removeAtEnd(const char* name, bool remove) override;

private:
    bool takeDirectory();
    bool openQueues();
    bool isDirectIOPossible();
    void goOnCached(const std::string& reason);
    int openDescriptor(const std::string& path, bool& isDirect);
    std::shared_ptr<File> makeFile(const std::string& path, int descriptor, bool isDirect);
    bool hasSpace(const std::string& path, std::uint64_t size) const;
    std::string pathOf(const char* name) const;
    std::string absolutePathOf(const char* name) const;
    void waitOutsideOfCallbacks();

    FileIOParameters parameters;
    Basis::string root;
    unsigned permissions;
    DirectoryLock lock;
    IOStatistics statistics;
    std::vector<std::unique_ptr<CompletionQueue>> queues;
    std::optional<RequestDispatcher> dispatcher;
    std::vector<std::unique_ptr<LocalFileCompletionThread>> completionThreads;
    std::vector<std::unique_ptr<SubmitThread>> submitThreads;
    std::mutex mutex;
    std::optional<bool> directIO;
    std::atomic<bool> hasSaidCached{false};
    std::set<std::string> guarded;
};

}  // namespace FileAccess
