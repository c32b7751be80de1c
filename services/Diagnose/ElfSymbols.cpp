#include "Diagnose/ElfSymbols.h"

#include <elf.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <tuple>

namespace Diagnose {

namespace {

using Bytes = std::span<const std::byte>;

// A record of the file's; none if it does not lie inside of it.
template <class Record>
std::optional<Record> recordAt(Bytes file, std::uint64_t offset)
{
    if (offset > file.size() || file.size() - offset < sizeof(Record))
        return std::nullopt;
    Record record;
    std::memcpy(&record, file.data() + offset, sizeof record);
    return record;
}

// As much of a section as there is.
Bytes contentOf(Bytes file, const Elf64_Shdr& section)
{
    if (section.sh_type == SHT_NOBITS || section.sh_offset > file.size())
        return {};
    const std::uint64_t there = file.size() - section.sh_offset;
    return file.subspan(section.sh_offset, std::min(section.sh_size, there));
}

std::string_view textAt(Bytes texts, std::uint64_t offset)
{
    if (offset >= texts.size())
        return {};
    const auto* const begin = reinterpret_cast<const char*>(texts.data()) + offset;
    const std::size_t most = texts.size() - offset;
    const std::size_t length = ::strnlen(begin, most);
    return length == most ? std::string_view() : std::string_view(begin, length);
}

bool isFunction(const Elf64_Sym& symbol)
{
    const unsigned type = ELF64_ST_TYPE(symbol.st_info);
    return (type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != SHN_UNDEF;
}

class SymbolReader {
public:
    explicit SymbolReader(Bytes bytes) : file(bytes) {}

    std::vector<ElfFunction> read()
    {
        const auto header = recordAt<Elf64_Ehdr>(file, 0);
        if (!header || !isOurs(*header))
            return {};
        const std::uint64_t count = sectionCount(*header);
        for (std::uint64_t number = 0; number < count; ++number) {
            const auto section = sectionAt(*header, number);
            if (section && (section->sh_type == SHT_SYMTAB || section->sh_type == SHT_DYNSYM))
                readTable(*header, *section);
        }
        return std::move(functions);
    }

private:
    static bool isOurs(const Elf64_Ehdr& header)
    {
        constexpr auto order =
            std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
        return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
               header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_ident[EI_DATA] == order &&
               header.e_shentsize == sizeof(Elf64_Shdr);
    }

    // A file with very many sections keeps their number in the first of them.
    std::uint64_t sectionCount(const Elf64_Ehdr& header) const
    {
        std::uint64_t count = header.e_shnum;
        if (count == 0 && header.e_shoff != 0) {
            const auto first = recordAt<Elf64_Shdr>(file, header.e_shoff);
            count = first ? first->sh_size : 0;
        }
        return std::min<std::uint64_t>(count, file.size() / sizeof(Elf64_Shdr));
    }

    std::optional<Elf64_Shdr> sectionAt(const Elf64_Ehdr& header, std::uint64_t number) const
    {
        if (header.e_shoff > file.size())
            return std::nullopt;
        return recordAt<Elf64_Shdr>(file, header.e_shoff + number * sizeof(Elf64_Shdr));
    }

    // A section that does not hold the function says nothing of it.
    std::uint64_t reachOf(const Elf64_Ehdr& header, const Elf64_Sym& symbol) const
    {
        const auto section = sectionAt(header, symbol.st_shndx);
        if (symbol.st_size != 0)
            return symbol.st_size;
        if (!section || symbol.st_value - section->sh_addr >= section->sh_size)
            return UINT64_MAX;
        return section->sh_size - (symbol.st_value - section->sh_addr);
    }

    void readTable(const Elf64_Ehdr& header, const Elf64_Shdr& section)
    {
        const auto textSection = sectionAt(header, section.sh_link);
        if (!textSection || section.sh_entsize != sizeof(Elf64_Sym))
            return;
        const Bytes symbols = contentOf(file, section);
        const Bytes texts = contentOf(file, *textSection);
        for (std::uint64_t at = 0; at < symbols.size(); at += sizeof(Elf64_Sym)) {
            const auto symbol = recordAt<Elf64_Sym>(symbols, at);
            if (!symbol || !isFunction(*symbol))
                continue;
            const std::string_view name = textAt(texts, symbol->st_name);
            if (!name.empty())
                functions.push_back(
                    {symbol->st_value, symbol->st_size, reachOf(header, *symbol), name});
        }
    }

    Bytes file;
    std::vector<ElfFunction> functions;
};

// Of the names of one address the one that people use: "read" rather than "__libc_read".
auto rankOf(const ElfFunction& function)
{
    const std::size_t underscores =
        std::min(function.name.find_first_not_of('_'), function.name.size());
    const bool isMangled = function.name.starts_with("_Z");
    return std::tuple(function.address, function.size == 0, isMangled ? 0 : underscores,
                      function.name.size(), function.name);
}

// Functions nest seldom: an entry point within another one.
constexpr int mostEnclosed = 16;

}  // namespace

std::vector<ElfFunction> readElfFunctions(std::span<const std::byte> file)
{
    std::vector<ElfFunction> functions = SymbolReader(file).read();
    std::sort(functions.begin(), functions.end(),
              [](const auto& a, const auto& b) { return rankOf(a) < rankOf(b); });
    const auto end =
        std::unique(functions.begin(), functions.end(),
                    [](const auto& a, const auto& b) { return a.address == b.address; });
    functions.erase(end, functions.end());
    return functions;
}

const ElfFunction* findFunction(const std::vector<ElfFunction>& functions, std::uint64_t address)
{
    auto behind = std::upper_bound(functions.begin(), functions.end(), address,
                                   [](std::uint64_t wanted, const ElfFunction& function) {
                                       return wanted < function.address;
                                   });
    const ElfFunction* unsized = nullptr;
    for (int i = 0; i < mostEnclosed && behind != functions.begin(); ++i) {
        --behind;
        if (address - behind->address >= behind->reach)
            continue;
        if (behind->size != 0)
            return &*behind;
        unsized = i == 0 ? &*behind : unsized;
    }
    return unsized;
}

}  // namespace Diagnose
