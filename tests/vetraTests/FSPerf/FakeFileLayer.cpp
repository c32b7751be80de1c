#include "tests/vetraTests/FSPerf/FakeFileLayer.h"

#include <stdexcept>

#include "Diagnose/Shell.h"
#include "Diagnose/Statistics.h"
#include "vetraTests/FSPerf/FSPerfHelper.h"

namespace vetraTests {

namespace {

FakeFileLayer* layerThatLives = nullptr;

class FakeFile : public FileAccess::File {
public:
    FakeFile(FakeFileLayer& owner, const Basis::string& root, const char* name)
        : layer(owner), fullName("", &fsperfAllocator())
    {
        fullName.append(root).append("/").append(name);
        ++layer.openFiles;
    }
    ~FakeFile() override
    {
        --layer.openFiles;
        layer.note("close");
    }

    void readAsync(std::uint64_t offset, void* buffer, std::size_t size, unsigned flags,
                   FileAccess::FileCallback& callback, FileAccess::IOControlBlock* block,
                   void* context) override
    {
        layer.accept({offset, buffer, size, false, flags, &callback, block, context, true},
                     "readAsync");
    }
    void writeAsync(std::uint64_t offset, const void* buffer, std::size_t size, bool newBlocks,
                    FileAccess::FileCallback& callback, FileAccess::IOControlBlock* block,
                    void* context) override
    {
        layer.accept({offset, buffer, size, newBlocks, 0, &callback, block, context, false},
                     "writeAsync");
    }
    void read(std::uint64_t offset, void* buffer, std::size_t size) override
    {
        layer.accept({offset, buffer, size, false, 0, nullptr, nullptr, nullptr, true}, "read");
    }
    void write(std::uint64_t offset, const void* buffer, std::size_t size) override
    {
        layer.accept({offset, buffer, size, false, 0, nullptr, nullptr, nullptr, false}, "write");
    }
    const Basis::string& getFullName() const override { return fullName; }

private:
    FakeFileLayer& layer;
    Basis::string fullName;
};

class FakeStatistics : public FileAccess::FileStatistics {
public:
    explicit FakeStatistics(FakeFileLayer& owner) : layer(owner) {}

    std::uint64_t getTotalReadTicks(unsigned domain) const override
    {
        layer.askedDomains.push_back(domain);
        return layer.readTicks;
    }
    std::uint64_t getTotalWriteTicks(unsigned domain) const override
    {
        layer.askedDomains.push_back(domain);
        return layer.writeTicks;
    }
    void getConfigStatisticsString(std::ostream& stream, bool) const override
    {
        stream << layer.configuration;
    }

private:
    FakeFileLayer& layer;
};

class FakeFileFactory : public FileAccess::FileFactory {
public:
    FakeFileFactory(FakeFileLayer& owner, const Basis::string& rootDirectory)
        : layer(owner), statistics(owner), root(rootDirectory, &fsperfAllocator())
    {
    }
    ~FakeFileFactory() override { layer.note("factory ends"); }

    FileAccess::FileStatistics* getStatistics() override
    {
        layer.quiesce();
        return layer.keepsStatistics ? &statistics : nullptr;
    }
    const FileAccess::DetailedStatistics& getDetailedStatistics(std::uint64_t blockSize) override
    {
        layer.quiesce();
        layer.noteOnce("getDetailed");
        layer.askedBlockSize = blockSize;
        return layer.detailed;
    }
    const Basis::string& getRoot() const override { return root; }
    std::size_t getIOControlBlockSize() const override { return layer.controlBlockSize; }
    FileAccess::IOControlBlock* constructIOControlBlock(void* memory) const override
    {
        layer.noteOnce("construct");
        layer.controlBlocks.push_back(memory);
        return static_cast<FileAccess::IOControlBlock*>(memory);
    }
    std::shared_ptr<FileAccess::File> openFile(const char* name, int mode, int sharing,
                                               int flags) override
    {
        layer.note("openFile " + std::string(name) + " " + std::to_string(mode) + " " +
                   std::to_string(sharing) + " " + std::to_string(flags));
        if (layer.refusesFile)
            return nullptr;
        layer.isFileThere = true;
        return std::make_shared<FakeFile>(layer, root, name);
    }
    bool fileExists(const char* name) const override
    {
        layer.note("fileExists " + std::string(name));
        return layer.isFileThere;
    }
    void removeFile(const char* name) override
    {
        layer.note("removeFile " + std::string(name));
        layer.isFileThere = false;
    }
    bool ensureSpace(const char* name, std::uint64_t size) override
    {
        layer.note("ensureSpace " + std::string(name) + " " + std::to_string(size));
        return !layer.refusesSpace;
    }
    void removeAtEnd(const char* name, bool remove) override
    {
        layer.note("removeAtEnd " + std::string(name) + (remove ? " true" : " false"));
    }

private:
    FakeFileLayer& layer;
    FakeStatistics statistics;
    Basis::string root;
};

}  // namespace

FakeFileLayer::FakeFileLayer()
{
    layerThatLives = this;
    addDomain("M_VOLUME_IO_TOTAL_STATISTICS_RESET", "total");
    addDomain("M_DEV_VOLUME_IO_DETAILED_STATISTICS_RESET", "detailed");
    addDomain("M_DEV_VOLUME_IO_QUEUE_STATISTICS_RESET", "queue");
    addDomain("M_DEV_VOLUME_IO_COMPLETION_STATISTICS_RESET", "completion");
    // A pass must not find the list growing under it.
    requests.reserve(1 << 20);
    controlBlocks.reserve(1 << 20);
    journal.reserve(1 << 10);
}

FakeFileLayer::~FakeFileLayer()
{
    stopThreads();
    for (const unsigned domain : domains)
        Diagnose::StatisticsRegistry::instance().remove(domain);
    layerThatLives = nullptr;
}

FakeFileLayer& FakeFileLayer::current()
{
    if (!layerThatLives)
        throw std::logic_error("the test has no file layer");
    return *layerThatLives;
}

void FakeFileLayer::addDomain(const char* name, const char* shortName)
{
    const std::string reset = std::string("reset ") + shortName;
    const std::string print = std::string("print ") + shortName;
    const auto run = [this](const std::string& event) {
        note(event);
        if (event == failingCommand)
            Diagnose::refuseCommand("no " + event);
    };
    domains.push_back(
        Diagnose::StatisticsRegistry::instance().add({name, [run, reset] { run(reset); },
                                                      [run, print](std::ostream& stream) {
                                                          stream << "counters of " << print << "\n";
                                                          run(print);
                                                      }}));
}

void FakeFileLayer::note(std::string_view event)
{
    journal.emplace_back(event);
}

void FakeFileLayer::noteOnce(const char* event)
{
    if (journal.empty() || journal.back() != event)
        note(event);
}

std::string FakeFileLayer::takeJournal()
{
    std::string text;
    for (const std::string& entry : journal)
        text.append(entry).append("\n");
    journal.clear();
    return text;
}

void FakeFileLayer::forgetRequests()
{
    const std::scoped_lock lock(mutex);
    requests.clear();
    accepted = taken = 0;
}

void FakeFileLayer::accept(const SeenRequest& request, const char* event)
{
    noteOnce(event);
    if (onRequest)
        onRequest(request);
    const bool endsAtOnce = !request.callback || completion == Completion::ATONCE;
    {
        const std::scoped_lock lock(mutex);
        requests.push_back(request);
        accepted = requests.size();
        if (endsAtOnce)
            taken = accepted;
        else if (threads.empty())
            for (int i = 0; i < 2; ++i)
                threads.emplace_back([this] { work(); });
        changed.notify_one();
    }
    if (request.callback && endsAtOnce)
        complete(request, requests.size() - 1);
}

void FakeFileLayer::complete(const SeenRequest& request, std::size_t number)
{
    const FileAccess::FileCallback::Status status{request.offset, request.size, request.context};
    if (number == failingRequest)
        request.callback->transferError(status, std::runtime_error("read of datavol.dat failed"));
    else if (request.isRead)
        request.callback->dataRead(status);
    else
        request.callback->dataWritten(status);
}

void FakeFileLayer::work()
{
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] {
            return isEnding ||
                   (taken < accepted && (completion == Completion::THREADS || isReleased));
        });
        if (isEnding)
            return;
        const std::size_t number = taken++;
        const SeenRequest request = requests[number];
        ++insideCallback;
        lock.unlock();
        complete(request, number);
        lock.lock();
        --insideCallback;
        changed.notify_all();
    }
}

void FakeFileLayer::release()
{
    const std::scoped_lock lock(mutex);
    isReleased = true;
    changed.notify_all();
}

void FakeFileLayer::quiesce()
{
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return insideCallback == 0; });
}

void FakeFileLayer::stopThreads()
{
    {
        const std::scoped_lock lock(mutex);
        isEnding = true;
        changed.notify_all();
    }
    for (std::thread& thread : threads)
        thread.join();
}

FakeProfiler::FakeProfiler(FakeFileLayer& layer)
{
    Diagnose::registerCommandFamily(
        "profiler", [this, &layer](const std::vector<std::string>& words, std::ostream& answer) {
            std::string command = "profiler";
            for (const std::string& word : words)
                command.append(" ").append(word);
            layer.note(command);
            if (onCommand)
                onCommand(command);
            answer << "answer to " << command << "\n";
            if (command == failingCommand && --failingTime == 0)
                Diagnose::refuseCommand("no samples");
        });
}

FakeProfiler::~FakeProfiler()
{
    Diagnose::registerCommandFamily("profiler", [](const std::vector<std::string>&, std::ostream&) {
        Diagnose::refuseCommand("the test is over");
    });
}

}  // namespace vetraTests

// The engine's way to the file layer ends here: this definition stands in for the real one, whose
// object file a program that never asks for it does not get.
std::shared_ptr<FileAccess::FileFactory> FileAccess::FileFactory::createInstance(
    const Configuration::ConfigurationHandler& configuration, Type type, const Basis::string& root,
    unsigned permissions, unsigned flags, Usage usage)
{
    vetraTests::FakeFileLayer& layer = vetraTests::FakeFileLayer::current();
    Basis::string queues("?", &vetraTests::fsperfAllocator());
    configuration.getParameterValue("fileio", "num_submit_queues", queues);
    layer.note("createInstance " + std::string(root) + " type " +
               std::to_string(static_cast<int>(type)) + " " + std::to_string(permissions) + " " +
               std::to_string(flags) + " usage " + std::to_string(static_cast<int>(usage)) +
               " num_submit_queues=" + std::string(queues));
    if (layer.refusesFactory)
        return nullptr;
    return std::make_shared<vetraTests::FakeFileFactory>(layer, root);
}
