#include "tests/services/FileAccess/LayerSupport.h"

#include <sys/vfs.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <sstream>
#include <stdexcept>

#include "Configuration/TempConfiguration.h"
#include "Diagnose/Shell.h"

namespace fileLayerTests {

namespace fs = std::filesystem;

std::shared_ptr<FileAccess::FileFactory> makeFactory(const std::string& root,
                                                     const Parameters& parameters)
{
    using FileAccess::FileFactory;
    Basis::Allocator& allocator = *Basis::Allocator::global();
    Configuration::TempConfiguration configuration(allocator, "test", nullptr);
    for (const auto& [key, value] : parameters)
        configuration.setParameterValue("fileio", key, nullptr, std::string_view(value));
    configuration.reconfigure();
    return FileFactory::createInstance(configuration, FileFactory::Type::volume,
                                       Basis::string(root, &allocator), 0664, 4,
                                       FileFactory::Usage::data);
}

TemporaryDirectory::TemporaryDirectory(const std::string& base)
{
    const fs::path parent = base.empty() ? fs::temp_directory_path() : fs::path(base);
    std::string name = (parent / "vetra-layer-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::runtime_error("cannot make a temporary directory");
    ownPath = fs::canonical(name).string();
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    fs::remove_all(ownPath, ignored);
}

std::string memoryBase()
{
    constexpr long tmpfsNumber = 0x01021994;
    struct statfs status {};
    if (::statfs("/dev/shm", &status) == 0 && status.f_type == tmpfsNumber)
        return "/dev/shm";
    return {};
}

AlignedBuffer::AlignedBuffer(std::size_t bytes)
    : memory(static_cast<char*>(std::aligned_alloc(page, (bytes + page - 1) / page * page))),
      ownSize(bytes)
{
    if (!memory)
        throw std::bad_alloc();
    std::memset(memory, 0, bytes);
}

AlignedBuffer::~AlignedBuffer()
{
    std::free(memory);
}

Blocks::Blocks(const FileAccess::FileFactory& factory, std::size_t count)
    : memory(factory.getIOControlBlockSize() * count)
{
    for (std::size_t i = 0; i < count; ++i) {
        char* const place = memory.data() + i * factory.getIOControlBlockSize();
        blocks.push_back(factory.constructIOControlBlock(place));
    }
}

void Completions::expect(std::uint64_t count)
{
    awaited = count;
    readCount = 0;
    writeCount = 0;
    errorCount = 0;
    gate.resetForReuse();
}

std::string Completions::errorText() const
{
    const std::scoped_lock lock(mutex);
    return text;
}

FileAccess::FileCallback::Status Completions::lastStatus() const
{
    const std::scoped_lock lock(mutex);
    return status;
}

void Completions::dataRead(const Status& finished)
{
    ++readCount;
    finishOne(finished);
}

void Completions::dataWritten(const Status& finished)
{
    ++writeCount;
    finishOne(finished);
}

void Completions::transferError(const Status& finished, const std::exception& error)
{
    ++errorCount;
    {
        const std::scoped_lock lock(mutex);
        text = error.what();
    }
    finishOne(finished);
}

void Completions::finishOne(const Status& finished)
{
    {
        const std::scoped_lock lock(mutex);
        status = finished;
    }
    if (--awaited == 0)
        gate.signal();
}

namespace {

std::shared_ptr<FileAccess::FileFactory> factoryOrThrow(const std::string& root,
                                                        const Parameters& parameters)
{
    auto factory = makeFactory(root, parameters);
    if (!factory)
        throw std::runtime_error("no factory for " + root);
    factory->removeAtEnd("datavol.dat", true);
    return factory;
}

}  // namespace

Layer::Layer(const std::string& root, const Parameters& parameters, std::size_t requests)
    : factory(factoryOrThrow(root, parameters)),
      file(factory->openFile("datavol.dat", 2, 0, 33)),
      blocks(*factory, requests),
      buffer(requests * page)
{
    if (!file)
        throw std::runtime_error("no file in " + root);
}

void Layer::read(std::size_t index, std::uint64_t offset)
{
    file->readAsync(offset, pageAt(index), page, 0, completions, blocks[index], nullptr);
}

void Layer::write(std::size_t index, std::uint64_t offset)
{
    file->writeAsync(offset, pageAt(index), page, false, completions, blocks[index], nullptr);
}

void Layer::fillPages(std::size_t count) const
{
    const AlignedBuffer content(count * page);
    for (std::size_t i = 0; i < count; ++i)
        std::memset(content.data() + i * page, static_cast<int>(i & 0xff), page);
    file->write(0, content.data(), content.size());
}

std::string command(const std::string& text)
{
    std::ostringstream answer;
    dbgExecuteCommand(text.c_str(), answer, true);
    return answer.str();
}

void resetAllDomains()
{
    for (const char* domain : {totalDomain, detailedDomain, queueDomain, completionDomain})
        command(std::string("statreg reset -n ") + domain);
}

}  // namespace fileLayerTests
