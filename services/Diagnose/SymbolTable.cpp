#include "Diagnose/SymbolTable.h"

#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string_view>

#include "Diagnose/ElfSymbols.h"
#include "Diagnose/SymbolNames.h"

namespace Diagnose {

namespace {

constexpr const char* ownProgram = "/proc/self/exe";
constexpr const char* kernelsLibrary = "linux-vdso.so.1";
constexpr std::uint64_t pageSize = 4096;

// A file's bytes for reading; none if it cannot be read.
class MappedFile {
public:
    explicit MappedFile(const char* path)
    {
        const int file = ::open(path, O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (file >= 0 && ::fstat(file, &status) == 0 && status.st_size > 0) {
            size = static_cast<std::size_t>(status.st_size);
            memory = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file, 0);
        }
        if (file >= 0)
            ::close(file);
    }
    ~MappedFile()
    {
        if (memory != MAP_FAILED)
            ::munmap(memory, size);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    std::span<const std::byte> bytes() const
    {
        if (memory == MAP_FAILED)
            return {};
        return {static_cast<const std::byte*>(memory), size};
    }

private:
    void* memory = MAP_FAILED;
    std::size_t size = 0;
};

std::string asHex(std::uint64_t number)
{
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, number, 16).ptr;
    return "0x" + std::string(digits, end);
}

std::string baseName(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string pathOfProgram()
{
    char path[4096];
    const ssize_t length = ::readlink(ownProgram, path, sizeof path);
    return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : "program";
}

}  // namespace

// A program or library in memory. Its functions are read when the first of them is asked for.
class SymbolTable::Module {
public:
    explicit Module(const dl_phdr_info& info)
        : path(info.dlpi_name), base(info.dlpi_addr), begin(UINT64_MAX)
    {
        for (const ElfW(Phdr) & header : std::span(info.dlpi_phdr, info.dlpi_phnum)) {
            if (header.p_type != PT_LOAD)
                continue;
            begin = std::min(begin, base + header.p_vaddr);
            end = std::max(end, base + header.p_vaddr + header.p_memsz);
        }
    }

    bool holds(std::uint64_t address) const { return address >= begin && address < end; }

    std::string nameOf(std::uint64_t address)
    {
        readFunctions();
        const ElfFunction* const function = findFunction(functions, address - base);
        if (function) {
            std::string& name = names[function->address];
            if (name.empty())
                name = readableName(function->name);
            return name;
        }
        return "[" + baseName(path.empty() ? pathOfProgram() : path) + "+" + asHex(address - base) +
               "]";
    }

private:
    void readFunctions()
    {
        if (isRead)
            return;
        isRead = true;
        if (path == kernelsLibrary) {
            const std::uint64_t pages = (end - begin + pageSize - 1) / pageSize;
            functions =
                readElfFunctions({reinterpret_cast<const std::byte*>(begin), pages * pageSize});
            return;
        }
        file.emplace(path.empty() ? ownProgram : path.c_str());
        functions = readElfFunctions(file->bytes());
    }

    std::string path;  // empty for the program itself
    std::uint64_t base;
    std::uint64_t begin;
    std::uint64_t end = 0;
    bool isRead = false;
    std::optional<MappedFile> file;
    std::vector<ElfFunction> functions;
    std::map<std::uint64_t, std::string> names;
};

SymbolTable::SymbolTable()
{
    ::dl_iterate_phdr(
        [](dl_phdr_info* info, std::size_t, void* list) {
            auto& all = *static_cast<std::vector<std::unique_ptr<Module>>*>(list);
            all.push_back(std::make_unique<Module>(*info));
            return 0;
        },
        &modules);
}

SymbolTable::~SymbolTable() = default;

std::string SymbolTable::nameOf(std::uint64_t address)
{
    for (const std::unique_ptr<Module>& module : modules) {
        if (module->holds(address))
            return module->nameOf(address);
    }
    return "[" + asHex(address) + "]";
}

}  // namespace Diagnose
