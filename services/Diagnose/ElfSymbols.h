#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace Diagnose {

/// A function of a program or library, as its file names it.
struct ElfFunction {
    std::uint64_t address;  ///< as linked; where the file is loaded comes on top
    std::uint64_t size;     ///< 0 if the file does not say
    std::uint64_t reach;    ///< the size, or how far it is to the end of what holds the function
    std::string_view name;  ///< mangled; lies in the bytes that were read
};

/// The functions of an ELF file's symbol tables, sorted by address, one for each address. Bytes
/// that are no 64-bit ELF file of this machine's byte order, or are damaged, give fewer or none;
/// nothing outside of them is read.
std::vector<ElfFunction> readElfFunctions(std::span<const std::byte> file);

/// The function that an address lies in; null if it lies in none. Functions without a size go on to
/// the next one, or to the end of their section.
const ElfFunction* findFunction(const std::vector<ElfFunction>& functions, std::uint64_t address);

}  // namespace Diagnose
