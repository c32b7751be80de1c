#include "Diagnose/ElfSymbols.h"

#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/services/support/Files.h"

namespace {

using Diagnose::ElfFunction;
using Diagnose::findFunction;
using Diagnose::readElfFunctions;
using Bytes = std::vector<std::byte>;

struct Symbol {
    const char* name;
    std::uint64_t address;
    std::uint64_t size;
    unsigned char type = STT_FUNC;
    std::uint16_t section = 1;
};

void append(Bytes& bytes, const void* data, std::size_t size)
{
    const std::size_t place = bytes.size();
    bytes.resize(place + size);
    std::memcpy(bytes.data() + place, data, size);
}

constexpr std::size_t firstSection = sizeof(Elf64_Ehdr);

// A file of a header, three section headers (none, symbols, texts), the symbols and their texts.
Bytes fileOf(const std::vector<Symbol>& symbols)
{
    std::string texts(1, '\0');
    Bytes table(sizeof(Elf64_Sym));
    for (const Symbol& symbol : symbols) {
        Elf64_Sym entry{};
        entry.st_name = static_cast<Elf64_Word>(texts.size());
        entry.st_info = ELF64_ST_INFO(STB_GLOBAL, symbol.type);
        entry.st_shndx = symbol.section;
        entry.st_value = symbol.address;
        entry.st_size = symbol.size;
        append(table, &entry, sizeof entry);
        texts.append(symbol.name).push_back('\0');
    }
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_shoff = firstSection;
    header.e_shentsize = sizeof(Elf64_Shdr);
    header.e_shnum = 3;
    Elf64_Shdr sections[3]{};
    sections[1].sh_type = SHT_SYMTAB;
    sections[1].sh_offset = firstSection + sizeof sections;
    sections[1].sh_size = table.size();
    sections[1].sh_link = 2;
    sections[1].sh_entsize = sizeof(Elf64_Sym);
    sections[2].sh_type = SHT_STRTAB;
    sections[2].sh_offset = sections[1].sh_offset + table.size();
    sections[2].sh_size = texts.size();
    Bytes file;
    append(file, &header, sizeof header);
    append(file, sections, sizeof sections);
    append(file, table.data(), table.size());
    append(file, texts.data(), texts.size());
    return file;
}

std::vector<std::string> namesIn(const Bytes& file)
{
    std::vector<std::string> names;
    for (const ElfFunction& function : readElfFunctions(file))
        names.emplace_back(function.name);
    return names;
}

std::string nameAt(const Bytes& file, std::uint64_t address)
{
    const std::vector<ElfFunction> functions = readElfFunctions(file);
    const ElfFunction* const function = findFunction(functions, address);
    return function ? std::string(function->name) : "(none)";
}

template <class Record>
void change(Bytes& file, std::size_t offset, void (*how)(Record&))
{
    Record record;
    std::memcpy(&record, file.data() + offset, sizeof record);
    how(record);
    std::memcpy(file.data() + offset, &record, sizeof record);
}

const std::vector<Symbol> sample = {{"second", 0x2000, 0x10}, {"first", 0x1000, 0x100}};

TEST(ElfSymbols, AreFunctionsByAddress)
{
    EXPECT_THAT(namesIn(fileOf(sample)), testing::ElementsAre("first", "second"));
}

TEST(ElfSymbols, LeaveOutWhatIsNoFunctionOfTheFile)
{
    EXPECT_THAT(namesIn(fileOf({{"data", 1, 8, STT_OBJECT},
                                {"imported", 0, 0, STT_FUNC, SHN_UNDEF},
                                {"", 5, 5},
                                {"chosen", 3, 8, STT_GNU_IFUNC},
                                {"kept", 2, 1}})),
                testing::ElementsAre("kept", "chosen"));
}

TEST(ElfSymbols, HaveOneNameForAnAddress)
{
    EXPECT_THAT(namesIn(fileOf({{"__read", 1, 8}, {"read", 1, 8}, {"__libc_read", 1, 8}})),
                testing::ElementsAre("read"));
    EXPECT_THAT(namesIn(fileOf({{"label", 1, 0}, {"function", 1, 8}})),
                testing::ElementsAre("function"));
}

TEST(ElfSymbols, FindTheFunctionAroundAnAddress)
{
    const Bytes file = fileOf(sample);

    EXPECT_EQ(nameAt(file, 0xfff), "(none)");
    EXPECT_EQ(nameAt(file, 0x1000), "first");
    EXPECT_EQ(nameAt(file, 0x10ff), "first");
    EXPECT_EQ(nameAt(file, 0x1100), "(none)");
    EXPECT_EQ(nameAt(file, 0x200f), "second");
    EXPECT_EQ(nameAt(file, UINT64_MAX), "(none)");
}

TEST(ElfSymbols, FunctionsWithoutASizeReachToTheNext)
{
    const Bytes file = fileOf({{"a", 0x10, 0}, {"b", 0x20, 0x8}, {"inner", 0x24, 0}});

    EXPECT_EQ(nameAt(file, 0x1f), "a");
    EXPECT_EQ(nameAt(file, 0x22), "b");
    EXPECT_EQ(nameAt(file, 0x26), "b");
    EXPECT_EQ(nameAt(file, 0x30), "inner");
}

TEST(ElfSymbols, FunctionsWithoutASizeEndWithTheirSection)
{
    Bytes file = fileOf({{"last", 0x10, 0}});
    change<Elf64_Shdr>(file, firstSection + sizeof(Elf64_Shdr), [](Elf64_Shdr& section) {
        section.sh_addr = 0x8;  // up to 0x38: it holds two symbols
    });

    EXPECT_EQ(nameAt(file, 0x37), "last");
    EXPECT_EQ(nameAt(file, 0x38), "(none)");
}

TEST(ElfSymbols, FindTheFunctionThatHoldsOthers)
{
    const Bytes file = fileOf({{"outer", 0x10, 0x100}, {"entry", 0x20, 0x10}});

    EXPECT_EQ(nameAt(file, 0x25), "entry");
    EXPECT_EQ(nameAt(file, 0x30), "outer");
}

TEST(ElfSymbols, OfOtherFilesAreNone)
{
    EXPECT_TRUE(readElfFunctions({}).empty());
    Bytes file = fileOf(sample);
    change<Elf64_Ehdr>(file, 0, [](Elf64_Ehdr& header) { header.e_ident[EI_CLASS] = ELFCLASS32; });
    EXPECT_TRUE(readElfFunctions(file).empty());
    file = fileOf(sample);
    change<Elf64_Ehdr>(file, 0, [](Elf64_Ehdr& header) { header.e_ident[EI_DATA] = ELFDATA2MSB; });
    EXPECT_TRUE(readElfFunctions(file).empty());
    file = fileOf(sample);
    file[0] = std::byte{0};
    EXPECT_TRUE(readElfFunctions(file).empty());
}

TEST(ElfSymbols, AreFoundInFilesOfManySections)
{
    Bytes file = fileOf(sample);
    change<Elf64_Ehdr>(file, 0, [](Elf64_Ehdr& header) { header.e_shnum = 0; });
    change<Elf64_Shdr>(file, firstSection, [](Elf64_Shdr& first) { first.sh_size = 3; });

    EXPECT_EQ(namesIn(file).size(), 2U);
}

TEST(ElfSymbols, SurviveOffsetsAndSizesBeyondTheFile)
{
    for (const std::uint64_t wild : {std::uint64_t{1} << 20, UINT64_MAX, UINT64_MAX - 63}) {
        static std::uint64_t value;
        value = wild;
        Bytes file = fileOf(sample);
        change<Elf64_Ehdr>(file, 0, [](Elf64_Ehdr& header) { header.e_shoff = value; });
        EXPECT_TRUE(readElfFunctions(file).empty());
        file = fileOf(sample);
        constexpr std::size_t symbols = firstSection + sizeof(Elf64_Shdr);
        change<Elf64_Shdr>(file, symbols, [](Elf64_Shdr& section) { section.sh_offset = value; });
        EXPECT_TRUE(readElfFunctions(file).empty());
        file = fileOf(sample);
        change<Elf64_Shdr>(file, symbols, [](Elf64_Shdr& section) { section.sh_size = value; });
        EXPECT_GE(readElfFunctions(file).size(), 2U);
        file = fileOf(sample);
        change<Elf64_Shdr>(file, symbols, [](Elf64_Shdr& section) { section.sh_link = 0xffff; });
        EXPECT_TRUE(readElfFunctions(file).empty());
        file = fileOf(sample);
        change<Elf64_Shdr>(file, symbols + sizeof(Elf64_Shdr),
                           [](Elf64_Shdr& section) { section.sh_size = value; });
        EXPECT_EQ(readElfFunctions(file).size(), 2U);
    }
}

TEST(ElfSymbols, LeaveOutANameWithoutAnEnd)
{
    Bytes file = fileOf({{"a", 1, 1}, {"last", 2, 1}});
    file.pop_back();

    EXPECT_THAT(namesIn(file), testing::ElementsAre("a"));
}

TEST(ElfSymbols, SurviveEveryCut)
{
    const Bytes file = fileOf(sample);
    for (std::size_t size = 0; size < file.size(); ++size) {
        const Bytes cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(readElfFunctions(cut).size(), 2U);
    }
}

TEST(ElfSymbols, SurviveAnyChangedByte)
{
    const Bytes file = fileOf(sample);
    for (std::size_t place = 0; place < file.size(); ++place) {
        for (const unsigned value : {0x00U, 0x01U, 0x7fU, 0x80U, 0xffU}) {
            Bytes changed = file;
            changed[place] = static_cast<std::byte>(value);
            const std::vector<ElfFunction> functions = readElfFunctions(changed);
            findFunction(functions, 0x1000);
        }
    }
}

TEST(ElfSymbols, OfThisProgramHoldItsOwnFunctions)
{
    const std::string content = unitTests::contentOf("/proc/self/exe");
    Bytes file(content.size());
    std::memcpy(file.data(), content.data(), content.size());

    EXPECT_THAT(namesIn(file), testing::Contains("main"));
}

TEST(ElfSymbols, SurviveDamageInAWholeProgram)
{
    const std::string content = unitTests::contentOf("/proc/self/exe");
    std::mt19937 random(1);
    for (int round = 0; round < 20; ++round) {
        Bytes file(content.size());
        std::memcpy(file.data(), content.data(), content.size());
        for (int i = 0; i < 2000; ++i)
            file[random() % file.size()] = static_cast<std::byte>(random());
        for (int i = 0; i < 4; ++i)
            file[52 + random() % 12] = static_cast<std::byte>(random());
        const std::vector<ElfFunction> functions = readElfFunctions(file);
        findFunction(functions, random());
    }
}

}  // namespace
